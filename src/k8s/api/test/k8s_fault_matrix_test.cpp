#include "cluster_fixture.h"
#include "fault_matrix_cluster.h"
#include "k8s/api/k8s_session_factory.h"
#include "support/fake_clock.h"

/**
 * Every request of every operation meets every fault, once and for good. The server is the simulated cluster, over TLS.
 */
namespace {

using kube_sim::Answer;
using kube_sim::Fault;
using namespace test_support;

// Faults.

struct Named_Fault {
  const char* name;
  Fault fault;
  /// No reply comes: the exchange fails, where the others are replies with a status.
  bool lost = false;
  /// A session that meets it once repeats the request by itself.
  bool repeated(const std::string& method) const { return lost ? method != "POST" : !fault.answer->headers.empty(); }
};

Named_Fault status(const char* name, int status, std::vector<std::pair<std::string, std::string>> headers = {}) {
  const std::string body = string_sprintf(R"({"kind":"Status","status":"Failure","code":%d})", status);
  return {name, {.answer = Answer{.status = status, .body = body, .headers = std::move(headers)}}};
}

const Named_Fault faults[] = {
    status("401", 401),
    status("403", 403),
    status("409", 409),
    status("410", 410),
    status("422", 422),
    status("429 with Retry-After", 429, {{"Retry-After", "1"}}),
    status("500", 500),
    status("503", 503),
    {"reset", {.end = Fault::End::RESET}, true},
    {"body cut", {.end = Fault::End::CUT_BODY, .body_bytes = 5}, true},
};

/// A session that hears nothing for too long, at its request @a n, counted from 0, or at each one from there on.
class Timed_Out_Session : public K8S_Session {
 public:
  Timed_Out_Session(std::size_t n, bool once) : inner_(K8S_Session_Factory::create("http")), n_(n), once_(once) {}

  bool get(const std::string& url, json_spirit::Value& val) override {
    val = json_spirit::Value();
    return is_heard() && inner_->get(url, val);
  }
  bool delete_(const std::string& url) override { return is_heard() && inner_->delete_(url); }
  bool post(const std::string& url, const json_spirit::Value& val) override {
    return is_heard() && inner_->post(url, val);
  }
  int response_status() override { return heard_ ? inner_->response_status() : 0; }
  bool init() override { return true; }
  void set_request_token() override {}

 private:
  bool is_heard() {
    heard_ = once_ ? count_ != n_ : count_ < n_;
    ++count_;
    return heard_;
  }

  std::unique_ptr<K8S_Session> inner_;
  std::size_t n_;
  bool once_;
  std::size_t count_ = 0;
  bool heard_ = true;
};

class FaultMatrix : public testing::TestWithParam<Operation> {
 protected:
  // One server for all runs: a new one for each would make new certificates each time.
  static void SetUpTestSuite() {
    api = std::make_unique<Fresh_Cluster>();
    front = std::make_unique<kube_sim::Front>(*api);
    account = std::make_unique<kube_sim::Service_Account>(*front, kube_sim::Cluster_Options().token);
  }
  static void TearDownTestSuite() {
    account.reset();
    front.reset();
    api.reset();
  }

  FaultMatrix() { environment.set("CURRENT_NAMESPACE", "shop"); }
  ~FaultMatrix() override { K8S_Cluster::close_instance(); }

  /// Runs the operation on a fresh cluster.
  bool run(K8S_Client_var client = std::make_shared<K8S_Client>()) {
    api->make();
    front->clear_requests();
    log.clear();
    for (const char* resource : {"volumesnapshots", "volumesnapshotclasses"})
      K8S_Cluster::instance()->get_resource_gv(resource) = "snapshot.storage.k8s.io/v1";
    return GetParam().run(std::move(client));
  }
  static std::vector<std::string> requests() {
    std::vector<std::string> result;
    for (const kube_sim::Request& request : front->requests()) result.push_back(request.method + " " + request.target);
    return result;
  }

  void check(const Named_Fault& fault, std::size_t n, bool once);

  static std::unique_ptr<Fresh_Cluster> api;
  static std::unique_ptr<kube_sim::Front> front;
  static std::unique_ptr<kube_sim::Service_Account> account;

  Aux_Environment environment;
  Fake_Clock clock;
  Log_Capture log;
};

std::unique_ptr<Fresh_Cluster> FaultMatrix::api;
std::unique_ptr<kube_sim::Front> FaultMatrix::front;
std::unique_ptr<kube_sim::Service_Account> FaultMatrix::account;

/// Whether the operation succeeds although its request @a n, or each one from there on, fails.
bool survives(const std::vector<Expected_Request>& requests, std::size_t n, bool lost, bool once) {
  if (!once)
    while (n < requests.size() && requests[n].outcome == GOES_ON) ++n;
  if (n == requests.size()) return true;
  switch (requests[n].outcome) {
    case GOES_ON:
      return true;
    case PROBE:
      return lost;
    case WAIT:
      return !lost && once;
    default:
      return false;
  }
}

void FaultMatrix::check(const Named_Fault& fault, std::size_t n, bool once) {
  const std::vector<Expected_Request>& expected = GetParam().requests;
  const std::string method = expected[n].request.substr(0, expected[n].request.find(' '));
  front->clear_faults();
  front->fail({.nth = static_cast<int>(n) + 1, .count = once ? 1 : 0}, fault.fault);
  const bool result = run();
  const std::vector<std::string> sent = requests();

  ASSERT_GT(sent.size(), n);
  EXPECT_EQ(sent[n], expected[n].request);
  if (once && fault.repeated(method)) {
    EXPECT_TRUE(result) << log.all();
    // One more, or none where the request that got no reply has changed the cluster all the same.
    EXPECT_THAT(sent.size() - expected.size(), testing::AnyOf(0u, 1u));
    return;
  }
  EXPECT_EQ(result, survives(expected, n, fault.lost, once)) << log.all();
  if (!result) {
    EXPECT_FALSE(log.texts(LM_ERROR).empty());
  }
  if (expected[n].outcome == STOPS) {
    EXPECT_EQ(std::vector<std::string>(sent.begin() + n, sent.end()),
              std::vector<std::string>(sent.size() - n, expected[n].request));
    if (!fault.repeated(method)) {
      EXPECT_EQ(sent.size(), n + 1);
    }
  }
  if (!expected[n].log.empty() && (expected[n].outcome != PROBE || !fault.lost)) {
    EXPECT_TRUE(log.has_containing(LM_ERROR, expected[n].log)) << log.all();
  }
}

TEST_P(FaultMatrix, WithoutAFaultSendsItsRequestsAndSucceeds) {
  front->clear_faults();
  EXPECT_TRUE(run()) << log.all();
  std::vector<std::string> expected;
  for (const Expected_Request& request : GetParam().requests) expected.push_back(request.request);
  EXPECT_EQ(requests(), expected);
  EXPECT_TRUE(log.texts(LM_ERROR).empty()) << log.all();
}

TEST_P(FaultMatrix, FaultThatPassesIsRepeatedOnlyWhereThatIsSafe) {
  for (std::size_t n = 0; n < GetParam().requests.size(); ++n)
    for (const Named_Fault& fault : faults) {
      SCOPED_TRACE(string_sprintf("%s at request %zu", fault.name, n + 1));
      check(fault, n, true);
    }
}

TEST_P(FaultMatrix, FaultThatStaysEndsTheOperation) {
  for (std::size_t n = 0; n < GetParam().requests.size(); ++n)
    for (const Named_Fault& fault : faults) {
      SCOPED_TRACE(string_sprintf("%s from request %zu on", fault.name, n + 1));
      check(fault, n, false);
    }
}

TEST_P(FaultMatrix, ExchangeThatTimesOutIsNotRepeated) {
  if (GetParam().has_own_client) return;
  front->clear_faults();
  const std::vector<Expected_Request>& expected = GetParam().requests;
  for (std::size_t n = 0; n < expected.size(); ++n)
    for (const bool once : {true, false}) {
      SCOPED_TRACE(string_sprintf("%s request %zu", once ? "at" : "from", n + 1));
      EXPECT_EQ(run(std::make_shared<K8S_Client>(std::make_unique<Timed_Out_Session>(n, once))),
                survives(expected, n, true, once))
          << log.all();
      if (expected[n].outcome == STOPS) {
        EXPECT_EQ(requests().size(), n);
        EXPECT_TRUE(log.has_containing(LM_ERROR, expected[n].log)) << log.all();
      }
    }
}

INSTANTIATE_TEST_SUITE_P(Operations, FaultMatrix, testing::ValuesIn(operations()),
                         [](const auto& info) { return info.param.name; });

}  // namespace
