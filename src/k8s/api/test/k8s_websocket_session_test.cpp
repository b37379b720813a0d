// Exec over a WebSocket: the frames by a connection that a test makes up, the rest over TLS.
#include "k8s/api/k8s_websocket_session.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <deque>
#include <string>
#include <utility>
#include <vector>

#include "k8s/api/k8s_session_factory.h"
#include "k8s/api/test/in_cluster.h"

namespace {

using k8s_test::exit_code_3;
using k8s_test::success;
using kube_sim::Exec_Stream;
using test_support::Log_Capture;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr char no_handshake[] = "Failed to handshake with k8s api server.\n";
constexpr char no_frame[] = "Failed to recieve frame from k8s api server.\n";
constexpr char no_success[] = "Websocket response status is failed.\n";

std::string no_document(const std::string& body) {
  return "Failed to parse response data '" + body + "'.\n";
}

/// What a connection is told to do, and what it was asked.
struct Connection_Script {
  int connect_result = 0;
  int handshake_result = 0;
  HTTP_SOCK_State state = HTTP_SOCK_STATE_WEBSOCKET_HANDSHAKED;
  std::deque<std::string> frames;  ///< channel byte and payload; an end of stream comes behind the last
  bool breaks = false;             ///< an error comes behind the last frame
  bool loses_state = false;        ///< the state is CLOSED behind the last frame

  std::vector<std::string> calls;
  std::vector<const ACE_Time_Value*> timeouts;
  HTTP_Request request;
};

class Scripted_Connection : public WebSocket_Connection {
 public:
  explicit Scripted_Connection(Connection_Script& script) : script_(script) {}

  void configure(int seconds) override { call("configure " + std::to_string(seconds)); }
  HTTP_Request& request() override { return script_.request; }
  int connect() override {
    call("connect");
    return script_.connect_result;
  }
  int handshake() override {
    call("handshake");
    return script_.handshake_result;
  }
  HTTP_SOCK_State state() const override { return script_.state; }
  ssize_t receive(const char*& data, size_t& length, unsigned char&, const ACE_Time_Value* timeout) override {
    script_.timeouts.push_back(timeout);
    if (script_.frames.empty()) return script_.breaks ? -1 : 0;
    frame_ = script_.frames.front();
    script_.frames.pop_front();
    if (script_.frames.empty() && script_.loses_state) script_.state = HTTP_SOCK_STATE_CLOSED;
    data = frame_.data();
    length = frame_.size();
    return static_cast<ssize_t>(length);
  }
  void close() override { call("close"); }

 private:
  void call(const std::string& what) { script_.calls.push_back(what); }

  Connection_Script& script_;
  std::string frame_;
};

class Session : public K8S_WebSocket_Session {
 public:
  explicit Session(Connection_Script* script) {
    if (script != nullptr) endpoint_ = std::make_unique<Scripted_Connection>(*script);
    token_ = "Bearer t";
    set_expire_time();
  }
};

class K8S_WebSocket_Frames : public ::testing::Test {
 protected:
  bool get(std::string& body, const ACE_Time_Value* timeout = nullptr) {
    session_ = std::make_unique<Session>(&connection_);
    return session_->get("/exec?command=ls", body, timeout);
  }
  /// Fails with exactly one line at LM_ERROR.
  void expect_failure(const std::string& line, const std::string& body_left) {
    std::string body;
    EXPECT_FALSE(get(body));
    EXPECT_EQ(body, body_left);
    EXPECT_EQ(session_->response_status(), -1);
    EXPECT_THAT(log_.texts(LM_ERROR), ElementsAre(line));
    EXPECT_THAT(log_.lines(), SizeIs(1));
  }

  const Log_Capture log_;
  Connection_Script connection_;
  std::unique_ptr<Session> session_;
};

TEST_F(K8S_WebSocket_Frames, OutputOfAllFramesIsJoinedWithoutTheStatus) {
  connection_.frames = {"\1one ", "\2two ", "\1three", std::string("\3") + success};
  std::string body;
  EXPECT_TRUE(get(body));
  EXPECT_EQ(body, "one two three");
  EXPECT_EQ(session_->response_status(), 0);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(K8S_WebSocket_Frames, TheRequestIsCompleteBeforeTheConnectionIsMade) {
  connection_.frames = {std::string("\3") + success};
  std::string body;
  EXPECT_TRUE(get(body));
  EXPECT_EQ(connection_.request.uri(), "/exec?command=ls");
  EXPECT_STREQ(connection_.request.headers().get("Authorization", true), "Bearer t");
  EXPECT_STREQ(connection_.request.headers().get("Sec-WebSocket-Protocol", true), "v4.channel.k8s.io");
  EXPECT_THAT(connection_.calls, ElementsAre("connect", "handshake"));
}

TEST_F(K8S_WebSocket_Frames, EachFrameIsWaitedForWithTheCallersTimeout) {
  connection_.frames = {"\1a", std::string("\3") + success};
  std::string body;
  const ACE_Time_Value timeout(5);
  EXPECT_TRUE(get(body, &timeout));
  EXPECT_THAT(connection_.timeouts, ElementsAre(&timeout, &timeout, &timeout));
}

TEST_F(K8S_WebSocket_Frames, ACommandWithoutOutputGivesNone) {
  connection_.frames = {"\1", std::string("\3") + success};
  std::string body;
  EXPECT_TRUE(get(body));
  EXPECT_EQ(body, "");
}

TEST_F(K8S_WebSocket_Frames, AFrameOfOneByteDoesNotMoveTheStatus) {
  connection_.frames = {"\1", "\1out", "\2", std::string("\3") + success, "\1", "\3"};
  std::string body;
  EXPECT_TRUE(get(body));
  EXPECT_EQ(body, "out");
}

TEST_F(K8S_WebSocket_Frames, OutputMayHoldAnyBytes) {
  const std::string bytes("\0\xff{\"status\":\"Failure\"}\0", 22);
  connection_.frames = {"\1" + bytes, std::string("\3") + success};
  std::string body;
  EXPECT_TRUE(get(body));
  EXPECT_EQ(body, bytes);
}

TEST_F(K8S_WebSocket_Frames, OutputComesBehindWhatTheCallerHad) {
  connection_.frames = {"\1out", std::string("\3") + success};
  std::string body = "before ";
  EXPECT_TRUE(get(body));
  EXPECT_EQ(body, "before out");
}

TEST_F(K8S_WebSocket_Frames, AStateOtherThanHandshakedEndsTheStream) {
  connection_.frames = {"\1out", std::string("\3") + success};
  connection_.loses_state = true;
  std::string body;
  EXPECT_TRUE(get(body));
  EXPECT_EQ(body, "out");
  EXPECT_THAT(connection_.timeouts, SizeIs(2));
}

TEST_F(K8S_WebSocket_Frames, AStreamWithoutAnyFrameIsNoSuccess) {
  expect_failure(no_document(""), "");
}

TEST_F(K8S_WebSocket_Frames, ALastFrameThatIsNoDocumentIsNoSuccess) {
  connection_.frames = {"\1one\n", "\1two\n"};
  expect_failure(no_document("one\ntwo\n"), "one\ntwo\n");
}

TEST_F(K8S_WebSocket_Frames, ADocumentThatIsNoObjectIsNoSuccess) {
  connection_.frames = {"\1one\n", "\3[]"};
  expect_failure(no_document("one\n[]"), "one\n[]");
}

TEST_F(K8S_WebSocket_Frames, AnotherStatusIsAFailureThatKeepsWhatCame) {
  connection_.frames = {"\1out\n", std::string("\3") + exit_code_3};
  expect_failure(no_success, std::string("out\n") + exit_code_3);
}

TEST_F(K8S_WebSocket_Frames, TheStatusIsComparedExactly) {
  connection_.frames = {"\3{\"status\":\"success\"}"};
  expect_failure(no_success, "{\"status\":\"success\"}");
}

TEST_F(K8S_WebSocket_Frames, ABrokenConnectionIsAFailureThatKeepsWhatCame) {
  connection_.frames = {"\1out\n"};
  connection_.breaks = true;
  expect_failure(no_frame, "out\n");
}

TEST_F(K8S_WebSocket_Frames, ADropBehindTheStatusIsAFailureToo) {
  connection_.frames = {std::string("\3") + success};
  connection_.breaks = true;
  expect_failure(no_frame, success);
}

TEST_F(K8S_WebSocket_Frames, WithoutAConnectionThereIsNoHandshake) {
  connection_.connect_result = -1;
  expect_failure(no_handshake, "");
  EXPECT_THAT(connection_.calls, ElementsAre("connect"));
}

TEST_F(K8S_WebSocket_Frames, ARefusedHandshakeIsAFailure) {
  connection_.handshake_result = -1;
  expect_failure(no_handshake, "");
  EXPECT_THAT(connection_.calls, ElementsAre("connect", "handshake"));
}

TEST_F(K8S_WebSocket_Frames, AnAbsentOrEmptyStatusIsABrokenPromise) {
  for (const char* document : {"{}", R"({"status":""})", R"({"status":1})", R"({"status":null})"}) {
    const Log_Capture log;
    connection_.frames = {std::string("\3") + document};
    std::string body;
    EXPECT_FALSE(get(body)) << document;
    EXPECT_EQ(body, document);
    EXPECT_EQ(session_->response_status(), -1);
    EXPECT_THAT(log.lines(), SizeIs(1));
    EXPECT_TRUE(log.has_containing(LM_EMERGENCY, ", status is NULL or empty:\n")) << log.all();
  }
}

TEST_F(K8S_WebSocket_Frames, WithoutAConnectionObjectItFails) {
  Session session(nullptr);
  std::string body;
  EXPECT_FALSE(session.get("/exec", body, nullptr));
  EXPECT_THAT(log_.lines(), SizeIs(1));
  EXPECT_TRUE(log_.has_containing(LM_EMERGENCY, "k8s/api/k8s_websocket_session.cpp:")) << log_.all();
  EXPECT_TRUE(log_.has_containing(LM_EMERGENCY, ", endpoint_ is NULL:\n")) << log_.all();
  EXPECT_EQ(session.response_status(), -1);
}

TEST_F(K8S_WebSocket_Frames, TheEndClosesAnOpenConnection) {
  for (const auto& [state, closes] : {std::pair{HTTP_SOCK_STATE_WEBSOCKET_HANDSHAKED, 1},
                                      {HTTP_SOCK_STATE_CONNECTED, 1},
                                      {HTTP_SOCK_STATE_CLOSING, 1},
                                      {HTTP_SOCK_STATE_CLOSED, 0}}) {
    Connection_Script connection;
    connection.state = state;
    { const Session session(&connection); }
    EXPECT_THAT(connection.calls, SizeIs(closes)) << state;
  }
}

TEST_F(K8S_WebSocket_Frames, OtherVerbsAreNotOfThisTransport) {
  Session session(&connection_);
  json_spirit::Value val;
  EXPECT_TRUE(session.get("/x", val));
  EXPECT_TRUE(session.post("/x", val));
  EXPECT_TRUE(session.delete_("/x"));
  EXPECT_TRUE(session.patch("/x", val, ""));
  EXPECT_THAT(connection_.calls, IsEmpty());
}

class K8S_WebSocket_In_Cluster : public k8s_test::In_Cluster_T<k8s_test::Exec_Api> {
 protected:
  /// Runs a command that does as the script says.
  bool run(k8s_test::Script script, std::string& body, const ACE_Time_Value* timeout = nullptr) {
    api_.script = std::move(script);
    session_ = K8S_Session_Factory::create("websocket");
    return session_->get("/api/v1/namespaces/n/pods/p/exec?command=ls", body, timeout);
  }

  std::unique_ptr<K8S_Session> session_;
};

TEST_F(K8S_WebSocket_In_Cluster, ACommandRuns) {
  std::string body;
  EXPECT_TRUE(run(
      [](Exec_Stream& stream) {
        stream.send(1, "");
        stream.send(1, "out\n");
        stream.send(3, success);
      },
      body));
  EXPECT_EQ(body, "out\n");
  EXPECT_EQ(session_->response_status(), 0);
  const auto requests = front_.requests();
  ASSERT_THAT(requests, SizeIs(1));
  EXPECT_EQ(requests[0].method, "GET");
  EXPECT_EQ(requests[0].target, "/api/v1/namespaces/n/pods/p/exec?command=ls");
  EXPECT_EQ(requests[0].header("authorization"), "Bearer " + account_.token());
  EXPECT_EQ(requests[0].header("sec-websocket-protocol"), "v4.channel.k8s.io");
  EXPECT_THAT(log_.texts(LM_ERROR), IsEmpty()) << log_.all();
}

TEST_F(K8S_WebSocket_In_Cluster, ManyFramesKeepTheirOrder) {
  std::string expected, body;
  for (int i = 0; i < 5000; ++i) expected += std::to_string(i) + "\n";
  EXPECT_TRUE(run(
      [](Exec_Stream& stream) {
        for (int i = 0; i < 5000; ++i) {
          stream.send(static_cast<unsigned char>(1 + i % 2), std::to_string(i) + "\n");
          if (i % 7 == 0) stream.send(1, "");
        }
        stream.send(3, success);
      },
      body));
  EXPECT_EQ(body, expected);
}

TEST_F(K8S_WebSocket_In_Cluster, TenMegabytesArriveWhole) {
  std::string expected(10 * 1024 * 1024, '\0'), body;
  for (size_t i = 0; i < expected.size(); ++i) expected[i] = static_cast<char>(i * 2654435761u >> 13);
  EXPECT_TRUE(run(
      [&](Exec_Stream& stream) {
        for (size_t i = 0; i < expected.size(); i += 32767) stream.send(1, std::string_view(expected).substr(i, 32767));
        stream.send(3, success);
      },
      body));
  EXPECT_TRUE(body == expected);
}

TEST_F(K8S_WebSocket_In_Cluster, AnExitCodeIsAFailure) {
  std::string body;
  EXPECT_FALSE(run(
      [](Exec_Stream& stream) {
        stream.send(2, "oops\n");
        stream.send(3, exit_code_3);
      },
      body));
  EXPECT_EQ(body, std::string("oops\n") + exit_code_3);
  EXPECT_EQ(session_->response_status(), -1);
  EXPECT_THAT(log_.texts(LM_ERROR), ElementsAre(no_success));
}

TEST_F(K8S_WebSocket_In_Cluster, ADropBeforeTheStatusIsAFailure) {
  std::string body;
  EXPECT_FALSE(run(
      [](Exec_Stream& stream) {
        stream.send(1, R"({"status":"Success"})");
        stream.drop();
      },
      body));
  EXPECT_EQ(session_->response_status(), -1);
  EXPECT_EQ(log_.texts(LM_ERROR).back(), no_frame);
}

TEST_F(K8S_WebSocket_In_Cluster, ACleanCloseWithoutAnyFrameIsAFailure) {
  std::string body;
  EXPECT_FALSE(run([](Exec_Stream&) {}, body));
  EXPECT_THAT(log_.texts(LM_ERROR), ElementsAre(no_document("")));
}

TEST_F(K8S_WebSocket_In_Cluster, ASilentServerIsAFailureBehindTheTimeout) {
  std::string body;
  const ACE_Time_Value timeout(0, 200 * 1000);
  EXPECT_FALSE(run(
      [](Exec_Stream& stream) {
        stream.send(1, "out");
        std::string frame;
        while (stream.open()) stream.receive(frame, std::chrono::milliseconds(20));
      },
      body, &timeout));
  EXPECT_EQ(body, "out");
  EXPECT_EQ(log_.texts(LM_ERROR).back(), no_frame);
}

TEST_F(K8S_WebSocket_In_Cluster, ARefusalIsToldWithItsReason) {
  api_.refuse = "container not found (\"main\")";
  std::string body;
  EXPECT_FALSE(run([](Exec_Stream&) {}, body));
  EXPECT_EQ(log_.texts(LM_ERROR).back(), no_handshake);
  EXPECT_TRUE(log_.has_containing(LM_ERROR, "container not found")) << log_.all();
  EXPECT_TRUE(log_.has_containing(LM_ERROR, "500")) << log_.all();
}

TEST_F(K8S_WebSocket_In_Cluster, TheTokenIsReadWhenTheSessionIsMade) {
  const auto run_one = [this] {
    std::string body;
    EXPECT_TRUE(run([](Exec_Stream& stream) { stream.send(3, success); }, body));
    return front_.requests().back().header("authorization");
  };
  EXPECT_EQ(run_one(), "Bearer token-of-the-test");
  account_.set_token("rotated\r\n");
  EXPECT_EQ(run_one(), "Bearer rotated");
}

TEST_F(K8S_WebSocket_In_Cluster, WithoutATokenTheHeaderIsEmpty) {
  account_.remove_token();
  std::string body;
  EXPECT_TRUE(run([](Exec_Stream& stream) { stream.send(3, success); }, body));
  EXPECT_EQ(front_.requests().at(0).headers.count("authorization"), 1u);
  EXPECT_EQ(front_.requests().at(0).header("authorization"), "");
  account_.set_token("token-of-the-test");
}

TEST_F(K8S_WebSocket_In_Cluster, TheTokenIsNeverSentToAPeerThatIsNotTheServer) {
  using kube_sim::Certificate_Kind;
  for (const auto kind : {Certificate_Kind::EXPIRED, Certificate_Kind::OTHER_CA, Certificate_Kind::WRONG_NAME,
                          Certificate_Kind::SELF_SIGNED}) {
    kube_sim::Front_Options options;
    options.certificate = kind;
    kube_sim::Front false_front(api_, options);
    account_.set_ca(false_front.ca());
    account_.set_front(false_front);
    std::string body;
    EXPECT_FALSE(run([](Exec_Stream&) {}, body)) << static_cast<int>(kind);
    EXPECT_THAT(false_front.requests(), IsEmpty());
  }
}

TEST_F(K8S_WebSocket_In_Cluster, WithoutAUsableCaNoRequestLeaves) {
  std::string body;
  account_.set_ca("no certificate");
  EXPECT_FALSE(run([](Exec_Stream&) {}, body));
  account_.remove_ca();
  EXPECT_FALSE(run([](Exec_Stream&) {}, body));
  EXPECT_THAT(front_.requests(), IsEmpty());
  EXPECT_EQ(log_.texts(LM_ERROR).back(), no_handshake);
}

TEST_F(K8S_WebSocket_In_Cluster, WithoutAHostTheSessionExistsAndItsGetFails) {
  unsetenv("KUBERNETES_SERVICE_HOST");
  std::string body;
  EXPECT_FALSE(run([](Exec_Stream&) {}, body));
  EXPECT_THAT(log_.texts(LM_ERROR), ElementsAre("Failed to get k8s service host.\n"));
  EXPECT_TRUE(log_.has_containing(LM_EMERGENCY, ", endpoint_ is NULL:\n")) << log_.all();
}

}  // namespace
