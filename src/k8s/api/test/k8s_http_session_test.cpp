// REST over TLS, as a process in a pod does it.
#include "k8s/api/k8s_http_session.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <chrono>
#include <string>
#include <vector>

#include "json_spirit/dump.h"
#include "k8s/api/k8s_client.h"
#include "k8s/api/k8s_session_factory.h"
#include "k8s/api/test/in_cluster.h"
#include "kolt/make_shared_nothrow.h"

namespace {

using namespace std::chrono_literals;
using json_spirit::Value;
using kube_sim::Certificate_Kind;
using kube_sim::Front;
using kube_sim::Front_Options;
using kube_sim::json_answer;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr char no_session[] = "Failed to create k8s session.\n";
constexpr char no_token[] = "Failded to open token file, errno=2, No such file or directory\n";

class K8S_HTTP_Session_Test : public k8s_test::In_Cluster_T<kube_sim::Scripted_Api> {
 protected:
  void TearDown() override {
    EXPECT_EQ(api_.verify(), "");
    In_Cluster_T::TearDown();
  }

  static std::unique_ptr<K8S_Session> session() { return K8S_Session_Factory::create("http"); }

  /// "Authorization" of each request so far.
  std::vector<std::string> authorizations() const {
    std::vector<std::string> values;
    for (const auto& request : front_.requests()) values.push_back(request.header("authorization"));
    return values;
  }

  void expect_gets(int count) {
    for (int i = 0; i < count; ++i) api_.expect("GET", "/x", json_answer(200, "{}"));
  }

  const Value body_ = Value("text");
  Value val_;
};

TEST_F(K8S_HTTP_Session_Test, FactoryComparesTypesExactly) {
  for (const char* type : {"HTTP", "Http", "", "http ", "https", "WebSocket", "ws"})
    EXPECT_EQ(K8S_Session_Factory::create(type), nullptr) << type;
  EXPECT_THAT(log_.lines(), IsEmpty());
  EXPECT_NE(dynamic_cast<K8S_HTTP_Session*>(session().get()), nullptr);
}

TEST_F(K8S_HTTP_Session_Test, GetReadsTheDocument) {
  api_.expect("GET", "/api/v1/pods?labelSelector=a%3Db", json_answer(200, R"({"items":[]})"));
  const auto sess = session();
  EXPECT_TRUE(sess->get("/api/v1/pods?labelSelector=a%3Db", val_));
  EXPECT_EQ(sess->response_status(), 200);
  EXPECT_EQ(val_.type(), json_spirit::obj_type);
  EXPECT_THAT(authorizations(), ElementsAre("Bearer " + account_.token()));
  EXPECT_THAT(log_.lines(), IsEmpty()) << log_.all();
}

TEST_F(K8S_HTTP_Session_Test, GetOfAMissingObjectGivesTheStatusAndItsDocument) {
  api_.expect("GET", "/x", json_answer(404, R"({"kind":"Status","code":404})"));
  const auto sess = session();
  EXPECT_TRUE(sess->get("/x", val_));
  EXPECT_EQ(sess->response_status(), 404);
  EXPECT_EQ(json_spirit::JSON_Dump(val_, false).str(), R"({"code":404,"kind":"Status"})");
}

TEST_F(K8S_HTTP_Session_Test, GetOfAMissingGroupReadsNothing) {
  kube_sim::Answer answer;
  answer.status = 404;
  answer.content_type = "text/plain; charset=utf-8";
  answer.body = "404 page not found\n";
  api_.expect("GET", "/apis/none", answer);
  const auto sess = session();
  val_ = Value("old");
  EXPECT_FALSE(sess->get("/apis/none", val_));
  EXPECT_EQ(sess->response_status(), 404);
  EXPECT_TRUE(val_.is_null());
}

TEST_F(K8S_HTTP_Session_Test, OtherVerbsTellOfTheExchangeAndLeaveTheStatusToTheCaller) {
  const auto sess = session();
  for (const int status : {200, 201, 404, 409, 422}) {
    api_.expect("DELETE", "/d", json_answer(status, "{}"));
    api_.expect("POST", "/p", json_answer(status, "{}"));
    api_.expect("PATCH", "/q", json_answer(status, "{}"));
    EXPECT_TRUE(sess->delete_("/d"));
    EXPECT_EQ(sess->response_status(), status);
    EXPECT_TRUE(sess->post("/p", body_));
    EXPECT_EQ(sess->response_status(), status);
    EXPECT_TRUE(sess->patch("/q", body_, "application/merge-patch+json"));
    EXPECT_EQ(sess->response_status(), status);
  }
  const auto requests = front_.requests();
  EXPECT_EQ(requests.at(0).body, "");
  EXPECT_EQ(requests.at(1).body, "\"text\"");
  EXPECT_EQ(requests.at(2).body, "\"text\"");
}

TEST_F(K8S_HTTP_Session_Test, ContentTypeOfAPatchDoesNotReachThePostBehindIt) {
  api_.expect("PATCH", "/x", json_answer(200, "{}")).expect("POST", "/x", json_answer(201, "{}"));
  const auto sess = session();
  EXPECT_TRUE(sess->patch("/x", body_, "application/merge-patch+json"));
  EXPECT_TRUE(sess->post("/x", body_));
  EXPECT_EQ(front_.requests().at(0).header("content-type"), "application/merge-patch+json");
  EXPECT_EQ(front_.requests().at(1).header("content-type"), "application/json");
}

TEST_F(K8S_HTTP_Session_Test, StreamedGetIsNotOfThisTransport) {
  const auto sess = session();
  std::string text = "untouched";
  EXPECT_TRUE(sess->get("/x", text, nullptr));
  EXPECT_EQ(text, "untouched");
  EXPECT_THAT(front_.requests(), IsEmpty());
}

TEST_F(K8S_HTTP_Session_Test, OneConnectionServesManyRequests) {
  expect_gets(20);
  const auto sess = session();
  for (int i = 0; i < 20; ++i) EXPECT_TRUE(sess->get("/x", val_));
  EXPECT_EQ(front_.connections(), 1u);
}

TEST_F(K8S_HTTP_Session_Test, WithoutAHostEachVerbFailsWithItsLine) {
  unsetenv("KUBERNETES_SERVICE_HOST");
  const auto sess = session();
  ASSERT_NE(sess, nullptr);
  EXPECT_THAT(log_.texts(LM_ERROR), ElementsAre("Failed to get k8s service host.\n"));
  log_.clear();
  EXPECT_FALSE(sess->get("/x", val_));
  EXPECT_FALSE(sess->delete_("/x"));
  EXPECT_FALSE(sess->post("/x", body_));
  EXPECT_FALSE(sess->patch("/x", body_, "application/json"));
  EXPECT_THAT(log_.texts(LM_ERROR), ElementsAre(no_session, no_session, no_session, no_session));
  EXPECT_EQ(sess->response_status(), 0);
}

TEST_F(K8S_HTTP_Session_Test, AnEnvironmentThatComesLaterDoesNotMendASession) {
  setenv("KUBERNETES_SERVICE_PORT", "none", 1);
  const auto sess = session();
  account_.set_front(front_);
  EXPECT_FALSE(sess->get("/x", val_));
  EXPECT_THAT(log_.texts(LM_ERROR), ElementsAre(no_session));
}

TEST_F(K8S_HTTP_Session_Test, TokenIsReadAgainBehindTheSixtiethSecond) {
  expect_gets(3);
  const auto sess = session();
  sess->get("/x", val_);
  account_.set_token("rotated");
  clock_.advance(59s);
  sess->get("/x", val_);
  clock_.advance(2s);
  sess->get("/x", val_);
  EXPECT_THAT(authorizations(), ElementsAre("Bearer token-of-the-test", "Bearer token-of-the-test", "Bearer rotated"));
}

TEST_F(K8S_HTTP_Session_Test, ARefusedTokenIsNotReadAgainBeforeItsTime) {
  api_.expect("GET", "/x", json_answer(401, "{}")).expect("GET", "/x", json_answer(401, "{}"));
  const auto sess = session();
  account_.set_token("rotated");
  sess->get("/x", val_);
  EXPECT_EQ(sess->response_status(), 401);
  clock_.advance(30s);
  sess->get("/x", val_);
  EXPECT_THAT(authorizations(), ElementsAre("Bearer token-of-the-test", "Bearer token-of-the-test"));
}

TEST_F(K8S_HTTP_Session_Test, WithoutATokenRequestsGoOutWithAnEmptyHeader) {
  account_.remove_token();
  expect_gets(3);
  const auto sess = session();
  ASSERT_NE(sess, nullptr);
  EXPECT_THAT(log_.texts(LM_ERROR), ElementsAre(no_token));
  EXPECT_TRUE(sess->get("/x", val_));
  clock_.advance(60s);
  EXPECT_TRUE(sess->get("/x", val_));
  for (const auto& request : front_.requests()) {
    EXPECT_EQ(request.headers.count("authorization"), 1u);
    EXPECT_EQ(request.header("authorization"), "");
  }
  account_.set_token("late-token");
  clock_.advance(1s);
  EXPECT_TRUE(sess->get("/x", val_));
  EXPECT_EQ(authorizations().back(), "Bearer late-token");
}

TEST_F(K8S_HTTP_Session_Test, ATokenFileWithLineEndsGivesACleanHeader) {
  account_.set_token("abc\r\nX-Injected: 1\r\n");
  expect_gets(1);
  EXPECT_TRUE(session()->get("/x", val_));
  EXPECT_THAT(authorizations(), ElementsAre("Bearer abc"));
  EXPECT_EQ(front_.requests().at(0).headers.count("x-injected"), 0u);
}

TEST_F(K8S_HTTP_Session_Test, WithoutTheCaNoRequestLeaves) {
  account_.remove_ca();
  const auto sess = session();
  EXPECT_FALSE(sess->get("/x", val_));
  EXPECT_FALSE(sess->post("/x", body_));
  EXPECT_EQ(sess->response_status(), 0);
  EXPECT_TRUE(val_.is_null());
  EXPECT_THAT(front_.requests(), IsEmpty());
  EXPECT_THAT(log_.texts(LM_ERROR), SizeIs(2)) << log_.all();
}

TEST_F(K8S_HTTP_Session_Test, ACaFileWithoutACertificateTrustsNobody) {
  account_.set_ca("no certificate");
  EXPECT_FALSE(session()->get("/x", val_));
  EXPECT_THAT(front_.requests(), IsEmpty());
}

TEST_F(K8S_HTTP_Session_Test, TheTokenIsNeverSentToAPeerThatIsNotTheServer) {
  for (const auto kind : {Certificate_Kind::EXPIRED, Certificate_Kind::OTHER_CA, Certificate_Kind::WRONG_NAME,
                          Certificate_Kind::SELF_SIGNED}) {
    Front_Options options;
    options.certificate = kind;
    Front false_front(api_, options);
    account_.set_ca(false_front.ca());
    account_.set_front(false_front);
    EXPECT_FALSE(session()->get("/x", val_)) << static_cast<int>(kind);
    EXPECT_THAT(false_front.requests(), IsEmpty());
  }
}

TEST_F(K8S_HTTP_Session_Test, ARotatedCaIsKnownToTheNextConnection) {
  expect_gets(2);
  auto first = std::make_unique<Front>(api_);
  account_.set_front(*first);
  account_.set_ca(first->ca());
  const auto sess = session();
  EXPECT_TRUE(sess->get("/x", val_));

  Front_Options options;
  options.port = first->port();
  first.reset();
  const Front second(api_, options);
  EXPECT_FALSE(sess->get("/x", val_));
  EXPECT_THAT(second.requests(), IsEmpty());
  account_.set_ca(second.ca());
  EXPECT_TRUE(sess->get("/x", val_));
}

TEST_F(K8S_HTTP_Session_Test, ARedirectIsTheReplyAndTheTokenStaysHere) {
  Front other(api_);
  kube_sim::Answer redirect = json_answer(302, "{}");
  redirect.headers.emplace_back("Location", other.url() + "/y");
  api_.expect("GET", "/x", redirect);
  const auto sess = session();
  EXPECT_TRUE(sess->get("/x", val_));
  EXPECT_EQ(sess->response_status(), 302);
  EXPECT_THAT(other.requests(), IsEmpty());
}

TEST_F(K8S_HTTP_Session_Test, AServerThatIsAwayIsAFailureOnceTheRetriesAreOver) {
  {
    Front gone(api_);
    account_.set_front(gone);
    account_.set_ca(gone.ca());
  }
  const auto sess = session();
  EXPECT_FALSE(sess->get("/x", val_));
  EXPECT_EQ(sess->response_status(), 0);
  EXPECT_THAT(clock_.sleeps(), SizeIs(5));
  EXPECT_THAT(log_.texts(LM_ERROR), SizeIs(1)) << log_.all();
}

TEST_F(K8S_HTTP_Session_Test, StatusOfAFailedExchangeIsNotThatOfTheOneBefore) {
  api_.expect("GET", "/x", json_answer(200, "{}"));
  const auto sess = session();
  EXPECT_TRUE(sess->get("/x", val_));
  kube_sim::Fault reset;
  reset.end = kube_sim::Fault::End::DROP_BEFORE_HEAD;
  front_.fail({.method = "POST"}, reset);
  api_.expect("POST", "/x", json_answer(201, "{}"));
  EXPECT_FALSE(sess->post("/x", body_));
  EXPECT_EQ(sess->response_status(), 0);
}

class K8S_Client_In_Cluster : public K8S_HTTP_Session_Test {};

TEST_F(K8S_Client_In_Cluster, WorksOverASessionOfItsOwn) {
  api_.expect("GET", "/api/v1/pods?labelSelector=a%3D1,b%3D2&fieldSelector=c%3D3", json_answer(200, R"({"items":[]})"));
  const K8S_Client_var client = make_shared_nothrow<K8S_Client>();
  EXPECT_TRUE(client->list("/api/v1/pods", val_,
                           {{"labelSelector", {{"a", "1"}, {"b", "2"}}}, {"fieldSelector", {{"c", "3"}}}}));
  EXPECT_EQ(client->get_response_code(), 200);
}

TEST_F(K8S_Client_In_Cluster, ListWithoutSelectorsAsksForTheUrlAsItIs) {
  api_.expect("GET", "/api/v1/pods", json_answer(200, "{}"));
  EXPECT_TRUE(K8S_Client().list("/api/v1/pods", val_, {}));
}

TEST_F(K8S_Client_In_Cluster, AnArrayIsNoDocumentButStaysInTheValue) {
  api_.expect("GET", "/x", json_answer(200, "[1,2]"));
  K8S_Client client;
  EXPECT_FALSE(client.get("/x", val_));
  ASSERT_EQ(val_.type(), json_spirit::array_type);
  EXPECT_THAT(val_.get_array(), SizeIs(2));
}

TEST_F(K8S_Client_In_Cluster, WithoutAServerItsVerbsFailInTheSession) {
  unsetenv("KUBERNETES_SERVICE_HOST");
  K8S_Client client;
  log_.clear();
  EXPECT_FALSE(client.get("/x", val_));
  EXPECT_THAT(log_.texts(LM_ERROR), ElementsAre(no_session));
}

}  // namespace
