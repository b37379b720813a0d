#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>

#include "support/kube_sim/front.h"
#include "support/kube_sim/test/simple_api.h"
#include "support/kube_sim/test/tls_peer.h"

using namespace kube_sim;
using namespace kube_sim_test;
using std::chrono::milliseconds;
using End = Fault::End;

namespace {

struct Front_Fault_Test : testing::Test {
  Simple_Api api;
  Front front{api};
  Tls_Peer peer{front.port(), front.ca()};

  void fail(End end, size_t body_bytes = 0) { front.fail({}, {milliseconds(0), {}, end, body_bytes}); }
  static Fault status(int status) {
    Fault fault;
    fault.answer = Answer{status, "text/plain", "no", {{"Retry-After", "1"}}};
    return fault;
  }
};

TEST_F(Front_Fault_Test, an_answer_of_the_script_stands_in_for_the_api) {
  bool asked = false;
  api.on_request = [&](const Request&) { return asked = true, Answer{}; };
  front.fail({}, status(503));
  const Reply reply = peer.reply_to("/a");
  EXPECT_EQ(reply.status, 503);
  EXPECT_EQ(reply.body, "no");
  EXPECT_EQ(reply.headers.at("retry-after"), "1");
  EXPECT_FALSE(asked);
  EXPECT_EQ(front.requests().size(), 1u);
}

TEST_F(Front_Fault_Test, a_fault_hits_once_unless_told_otherwise) {
  front.fail({}, status(503));
  EXPECT_EQ(peer.reply_to("/a").status, 503);
  EXPECT_EQ(peer.reply_to("/a").status, 200);
  EXPECT_EQ(front.faults_hit(), 1u);
}

TEST_F(Front_Fault_Test, a_fault_hits_the_nth_request_of_its_method_and_path) {
  front.fail({"GET", "/a/.*", 2, 1}, status(500));
  EXPECT_EQ(peer.reply_to("/a/1?x=1").status, 200);
  EXPECT_EQ(peer.reply_to("/b").status, 200);
  peer.send("DELETE /a/1 HTTP/1.1\r\nHost: h\r\n\r\n");
  EXPECT_EQ(peer.reply().status, 200);
  EXPECT_EQ(peer.reply_to("/a/2").status, 500);
  EXPECT_EQ(peer.reply_to("/a/3").status, 200);
}

TEST_F(Front_Fault_Test, a_count_of_0_hits_all_further_requests) {
  front.fail({"", "", 2, 0}, status(500));
  EXPECT_EQ(peer.reply_to("/a").status, 200);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(peer.reply_to("/a").status, 500);
  front.clear_faults();
  EXPECT_EQ(peer.reply_to("/a").status, 200);
}

TEST_F(Front_Fault_Test, a_delay_comes_before_the_answer) {
  front.fail({}, {milliseconds(100)});
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(peer.reply_to("/a").status, 200);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, milliseconds(100));
}

TEST_F(Front_Fault_Test, drops_before_the_head_after_the_api_was_asked) {
  std::atomic<bool> asked = false;
  api.on_request = [&](const Request&) { return asked = true, Answer{}; };
  fail(End::DROP_BEFORE_HEAD);
  peer.get("/a");
  EXPECT_EQ(peer.read_all(), "");
  EXPECT_EQ(peer.state(), State::CLOSED);
  EXPECT_TRUE(asked);
}

TEST_F(Front_Fault_Test, drops_in_the_head) {
  fail(End::DROP_IN_HEAD);
  peer.get("/a");
  const std::string bytes = peer.read_all();
  EXPECT_THAT(bytes, testing::StartsWith("HTTP/1.1 200 OK\r\n"));
  EXPECT_THAT(bytes, testing::Not(testing::HasSubstr("\r\n\r\n")));
}

TEST_F(Front_Fault_Test, cuts_a_body_with_a_length) {
  fail(End::CUT_BODY, 3);
  const Reply reply = peer.reply_to("/a");
  EXPECT_EQ(reply.headers.at("content-length"), "6");
  EXPECT_EQ(reply.body, "GET");
  EXPECT_FALSE(reply.whole);
}

TEST_F(Front_Fault_Test, cuts_a_body_in_chunks) {
  api.on_request = [](const Request&) {
    Answer answer;
    answer.chunked = true;
    answer.body = std::string(40'000, 'x');
    return answer;
  };
  fail(End::CUT_BODY, 20'000);
  const Reply reply = peer.reply_to("/a");
  EXPECT_EQ(reply.body.size(), 20'000u);
  EXPECT_FALSE(reply.whole);
}

TEST_F(Front_Fault_Test, cuts_a_body_in_chunks_before_the_last_chunk) {
  api.on_request = [](const Request&) {
    Answer answer;
    answer.chunked = true;
    answer.body = "0123456789";
    return answer;
  };
  fail(End::CUT_BODY, 10);
  const Reply reply = peer.reply_to("/a");
  EXPECT_EQ(reply.body, "0123456789");
  EXPECT_FALSE(reply.whole);
}

TEST_F(Front_Fault_Test, resets_the_connection) {
  fail(End::RESET);
  peer.get("/a");
  EXPECT_EQ(peer.read_all(), "");
  EXPECT_EQ(peer.state(), State::RESET);
}

TEST_F(Front_Fault_Test, cuts_a_watch) {
  api.on_watch = [](const Request&, Watch_Sink& sink) {
    sink.start();
    while (sink.send("0123456789\n")) continue;
    return true;
  };
  fail(End::CUT_BODY, 15);
  const Reply reply = peer.reply_to("/a?watch=1");
  EXPECT_EQ(reply.body, "0123456789\n0123");
  EXPECT_FALSE(reply.whole);
}

TEST_F(Front_Fault_Test, drops_an_upgrade) {
  api.on_exec = [] { return std::make_unique<Simple_Exec>([](Exec_Stream&) {}); };
  fail(End::DROP_BEFORE_HEAD);
  EXPECT_EQ(peer.upgrade("/exec", "v4.channel.k8s.io").head, "");
}

TEST_F(Front_Fault_Test, answers_an_upgrade_by_script) {
  api.on_exec = [] { return std::make_unique<Simple_Exec>([](Exec_Stream&) {}); };
  front.fail({"GET", "/exec"}, status(500));
  EXPECT_EQ(peer.upgrade("/exec", "v4.channel.k8s.io").status, 500);
}

}  // namespace
