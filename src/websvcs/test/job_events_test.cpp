#include "websvcs/job_events.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <map>

#include "k8s/api/k8s_session.h"
#include "kolt/metrics.h"
#include "support/kube_sim/cluster.h"
#include "support/kube_sim/cluster_api.h"
#include "support/kube_sim/front.h"
#include "support/kube_sim/service_account.h"
#include "support/log_capture.h"
#include "websvcs/event_session.h"

using testing::HasSubstr;
using testing::Not;

namespace {

const Agent_Pod pod{"tessarin-agent-x7k", "backup", "0d1c", "worker-1"};

Task_Record record(const std::string& state) {
  Task_Record task;
  task.id = "5f0c";
  task.kind = "backup";
  task.state = state;
  task.created = task.started = 1000;
  if (state != "running" && state != "queued") task.finished = 13000;
  return task;
}

std::string text_of(const json_spirit::Value& document, const std::vector<std::string>& way) {
  const json_spirit::Value* at = &document;
  for (const std::string& name : way) {
    const auto found = at->get_obj().find(name);
    if (found == at->get_obj().end()) return "(none)";
    at = &found->second;
  }
  return at->get_str();
}

/// The value of the counter of this outcome.
double told(const std::string& outcome) {
  const std::string text = kolt::metrics_text();
  const std::string series = "tessarin_events_total{outcome=\"" + outcome + "\"} ";
  const size_t at = text.find(series);
  return at == std::string::npos ? 0 : std::stod(text.substr(at + series.size()));
}

template <typename Condition>
bool eventually(Condition condition) {
  for (int i = 0; i < 4000; ++i) {
    if (condition()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return false;
}

TEST(Job_Event_Test, NamesThePodTheNodeAndWhatHappened) {
  const auto event = job_event(pod, record("completed"), 1'000'000'000'000);
  EXPECT_EQ("v1", text_of(event, {"apiVersion"}));
  EXPECT_EQ("Event", text_of(event, {"kind"}));
  EXPECT_EQ("backup", text_of(event, {"metadata", "namespace"}));
  EXPECT_THAT(text_of(event, {"metadata", "name"}), testing::StartsWith("tessarin-agent-x7k."));
  EXPECT_EQ("Pod", text_of(event, {"involvedObject", "kind"}));
  EXPECT_EQ("tessarin-agent-x7k", text_of(event, {"involvedObject", "name"}));
  EXPECT_EQ("0d1c", text_of(event, {"involvedObject", "uid"}));
  EXPECT_EQ("worker-1", text_of(event, {"source", "host"}));
  EXPECT_EQ("BackupCompleted", text_of(event, {"reason"}));
  EXPECT_EQ("Normal", text_of(event, {"type"}));
  EXPECT_EQ("Backup job 5f0c completed after 12 seconds.", text_of(event, {"message"}));
  EXPECT_EQ("2001-09-09T01:46:40Z", text_of(event, {"firstTimestamp"}));
}

TEST(Job_Event_Test, FailedAndCanceledJobsAreWarnings) {
  Task_Record failed = record("failed");
  failed.errors = {"Failed to open 'x'.", "more"};
  EXPECT_EQ("BackupFailed", text_of(job_event(pod, failed, 1), {"reason"}));
  EXPECT_EQ("Warning", text_of(job_event(pod, failed, 1), {"type"}));
  EXPECT_EQ("Backup job 5f0c failed after 12 seconds: Failed to open 'x'.",
            text_of(job_event(pod, failed, 1), {"message"}));
  EXPECT_EQ("BackupCanceled", text_of(job_event(pod, record("canceled"), 1), {"reason"}));
  EXPECT_EQ("Normal", text_of(job_event(pod, record("running"), 1), {"type"}));
  EXPECT_EQ("BackupStarted", text_of(job_event(pod, record("running"), 1), {"reason"}));
}

TEST(Job_Event_Test, TwoEventsOfOneMomentHaveTwoNames) {
  EXPECT_NE(text_of(job_event(pod, record("running"), 1), {"metadata", "name"}),
            text_of(job_event(pod, record("running"), 1), {"metadata", "name"}));
}

TEST(Agent_Pod_Test, ComesFromTheEnvironmentOrNotAtAll) {
  unsetenv("POD_NAME");
  EXPECT_FALSE(Agent_Pod::from_environment());
  setenv("POD_NAME", "agent-1", 1);
  setenv("POD_NAMESPACE", "../../secrets", 1);
  EXPECT_FALSE(Agent_Pod::from_environment());
  setenv("POD_NAMESPACE", "backup", 1);
  setenv("NODE_NAME", "worker-1", 1);
  const auto found = Agent_Pod::from_environment();
  ASSERT_TRUE(found);
  EXPECT_EQ("agent-1", found->name);
  EXPECT_EQ("backup", found->namespace_);
  EXPECT_EQ("worker-1", found->node);
}

class Job_Events_Test : public testing::Test {
 protected:
  static kube_sim::Cluster_Options options() {
    kube_sim::Cluster_Options options;
    options.token = "token-of-the-test";
    options.powerless = {{"token-of-nobody", "nobody"}};
    return options;
  }
  void SetUp() override {
    json_spirit::Value ns;
    ASSERT_TRUE(json_spirit::loads_json(R"({"apiVersion":"v1","kind":"Namespace","metadata":{"name":"backup"}})", ns));
    ASSERT_TRUE(cluster_.create("", "namespaces", ns.get_obj()));
  }
  static std::unique_ptr<K8S_Session> session() {
    auto made = std::make_unique<Event_Session>();
    if (!made->init()) return nullptr;
    return made;
  }

  test_support::Log_Capture log_;
  kube_sim::Cluster cluster_{options()};
  kube_sim::Front front_{cluster_};
};

TEST_F(Job_Events_Test, EventsOfAJobReachTheServer) {
  const kube_sim::Service_Account account(front_);
  const double sent = told("sent");
  Job_Events job_events(pod, session);
  ASSERT_EQ(0, job_events.start());
  job_events.tell(record("running"));
  job_events.tell(record("completed"));
  ASSERT_TRUE(eventually([&] { return told("sent") == sent + 2; })) << log_.all();
  const auto requests = front_.requests();
  ASSERT_EQ(2u, requests.size());
  EXPECT_EQ("POST", requests[0].method);
  EXPECT_EQ("/api/v1/namespaces/backup/events", requests[0].target);
  EXPECT_THAT(requests[0].body, HasSubstr("\"BackupStarted\""));
  EXPECT_THAT(requests[1].body, HasSubstr("\"BackupCompleted\""));
  EXPECT_THAT(log_.all(), Not(HasSubstr("token-of-the-test")));
}

TEST_F(Job_Events_Test, QueuedTaskIsNoEvent) {
  const double dropped = told("dropped");
  Job_Events job_events(pod, [] { return nullptr; });
  for (size_t i = 0; i < 2 * Job_Events::max_queued; ++i) job_events.tell(record("queued"));
  EXPECT_EQ(dropped, told("dropped"));
}

TEST_F(Job_Events_Test, RefusalIsToldOnceAndCounted) {
  const kube_sim::Service_Account account(front_, "token-of-nobody");
  const double failed = told("failed");
  Job_Events job_events(pod, session);
  ASSERT_EQ(0, job_events.start());
  job_events.tell(record("running"));
  job_events.tell(record("completed"));
  ASSERT_TRUE(eventually([&] { return told("failed") == failed + 2; })) << log_.all();
  EXPECT_EQ(1u, log_.texts(LM_WARNING).size()) << log_.all();
  EXPECT_TRUE(
      log_.has(LM_WARNING, "The API server refuses events about jobs with status 403; further ones are not told.\n"));
}

/// A server that does not answer while the test wants it so.
class Hanging_Session : public K8S_Session {
 public:
  explicit Hanging_Session(const std::atomic<bool>& hangs) : hangs_(hangs) {}
  bool init() override { return true; }
  void set_request_token() override {}
  bool post(const std::string&, const json_spirit::Value&) override {
    while (hangs_) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return false;
  }

 private:
  const std::atomic<bool>& hangs_;
};

TEST_F(Job_Events_Test, JobNeverWaitsAndWhatFindsNoPlaceIsDropped) {
  std::atomic<bool> hangs{true};
  const double dropped = told("dropped");
  Job_Events job_events(pod, [&] { return std::make_unique<Hanging_Session>(hangs); });
  ASSERT_EQ(0, job_events.start());
  // One is with the server at most, the queue holds its number, the rest finds no place.
  for (size_t i = 0; i < Job_Events::max_queued + 11; ++i) job_events.tell(record("completed"));
  EXPECT_GE(told("dropped"), dropped + 10);
  EXPECT_LE(told("dropped"), dropped + 11);
  hangs = false;
}

TEST_F(Job_Events_Test, WithoutASessionEventsFailAndNothingElse) {
  const double failed = told("failed");
  Job_Events job_events(pod, [] { return nullptr; });
  ASSERT_EQ(0, job_events.start());
  job_events.tell(record("running"));
  EXPECT_TRUE(eventually([&] { return told("failed") == failed + 1; }));
}

}  // namespace
