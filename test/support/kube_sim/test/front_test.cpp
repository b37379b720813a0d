#include "support/kube_sim/front.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/kube_sim/test/simple_api.h"
#include "support/kube_sim/test/tls_peer.h"

using namespace kube_sim;
using namespace kube_sim_test;
using std::chrono::milliseconds;

namespace {

struct Front_Test : testing::Test {
  Simple_Api api;
  Front front{api};
  Tls_Peer peer{front.port(), front.ca()};

  void SetUp() override { ASSERT_TRUE(peer.connected()); }
};

TEST_F(Front_Test, answers_a_request_with_a_length) {
  const Reply reply = peer.reply_to("/api/v1/pods");
  EXPECT_EQ(reply.status, 200);
  EXPECT_EQ(reply.body, "GET /api/v1/pods");
  EXPECT_EQ(reply.headers.at("content-length"), "16");
  EXPECT_EQ(reply.headers.at("content-type"), "application/json");
}

TEST_F(Front_Test, keeps_the_connection_for_further_requests) {
  EXPECT_EQ(peer.reply_to("/a").body, "GET /a");
  EXPECT_EQ(peer.reply_to("/b").body, "GET /b");
  EXPECT_EQ(front.connections(), 1u);
  EXPECT_EQ(peer.state(milliseconds(50)), State::OPEN);
}

TEST_F(Front_Test, ends_the_connection_when_the_client_asks_for_that) {
  const Reply reply = peer.reply_to("/a", "Connection: close\r\n");
  EXPECT_EQ(reply.headers.at("connection"), "close");
  EXPECT_EQ(peer.state(), State::CLOSED);
}

TEST_F(Front_Test, ends_the_connection_behind_an_answer_to_http_1_0) {
  peer.send("GET /a HTTP/1.0\r\n\r\n");
  EXPECT_EQ(peer.reply().body, "GET /a");
  EXPECT_EQ(peer.state(), State::CLOSED);
}

TEST_F(Front_Test, sends_chunks_where_the_answer_asks_for_them) {
  const std::string body(100'000, 'x');
  api.on_request = [&](const Request&) {
    Answer answer;
    answer.chunked = true;
    answer.body = body;
    return answer;
  };
  const Reply reply = peer.reply_to("/a");
  EXPECT_EQ(reply.headers.at("transfer-encoding"), "chunked");
  EXPECT_EQ(reply.headers.count("content-length"), 0u);
  EXPECT_TRUE(reply.body == body);
  EXPECT_TRUE(reply.whole);
}

TEST_F(Front_Test, records_requests_in_order_with_all_that_was_sent) {
  peer.send(
      "POST /api/v1/pods?a=1&b=x%20y&c HTTP/1.1\r\nHost: h\r\nAuthorization: Bearer t\r\nContent-Length: 2\r\n\r\n{}");
  peer.reply();
  peer.reply_to("/second");
  const std::vector<Request> requests = front.requests();
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_EQ(requests[0].method, "POST");
  EXPECT_EQ(requests[0].target, "/api/v1/pods?a=1&b=x%20y&c");
  EXPECT_EQ(requests[0].path, "/api/v1/pods");
  EXPECT_EQ(requests[0].body, "{}");
  EXPECT_EQ(requests[0].header("authorization"), "Bearer t");
  EXPECT_THAT(requests[0].query,
              testing::ElementsAre(testing::Pair("a", "1"), testing::Pair("b", "x y"), testing::Pair("c", "")));
  EXPECT_EQ(requests[1].path, "/second");
  front.clear_requests();
  EXPECT_TRUE(front.requests().empty());
}

TEST_F(Front_Test, takes_a_body_in_chunks) {
  peer.send("POST /a HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n2\r\nde\r\n0\r\n\r\n");
  EXPECT_EQ(peer.reply().status, 200);
  EXPECT_EQ(front.requests().at(0).body, "abcde");
}

TEST_F(Front_Test, asks_for_a_body_that_waits_for_100_continue) {
  peer.send("POST /a HTTP/1.1\r\nHost: h\r\nExpect: 100-continue\r\nContent-Length: 2\r\n\r\n");
  EXPECT_EQ(peer.read_to("\r\n\r\n"), "HTTP/1.1 100 Continue\r\n\r\n");
  peer.send("{}");
  EXPECT_EQ(peer.reply().status, 200);
}

TEST_F(Front_Test, answers_head_without_a_body) {
  peer.send("HEAD /a HTTP/1.1\r\nHost: h\r\n\r\n");
  EXPECT_THAT(peer.read_to("\r\n\r\n"), testing::HasSubstr("Content-Length: 7\r\n"));
  EXPECT_EQ(peer.reply_to("/b").body, "GET /b");
}

TEST_F(Front_Test, refuses_a_request_without_host) {
  peer.send("GET /a HTTP/1.1\r\n\r\n");
  const Reply reply = peer.reply();
  EXPECT_EQ(reply.status, 400);
  EXPECT_EQ(reply.body, "400 Bad Request: missing required Host header");
  EXPECT_EQ(peer.state(), State::CLOSED);
}

TEST_F(Front_Test, refuses_what_is_no_http) {
  peer.send("GET /a b HTTP/1.1\r\nHost: h\r\n\r\n");
  const Reply reply = peer.reply();
  EXPECT_EQ(reply.status, 400);
  EXPECT_EQ(reply.body, "400 Bad Request");
  EXPECT_EQ(peer.state(), State::CLOSED);
}

TEST_F(Front_Test, refuses_a_broken_escape_in_the_path) {
  EXPECT_EQ(peer.reply_to("/a%zz").status, 400);
  EXPECT_EQ(peer.reply_to("/a%2").status, 400);
}

TEST_F(Front_Test, refuses_a_body_beyond_the_limit_so_that_the_answer_arrives) {
  const std::string body(3 * 1024 * 1024 + 1, 'x');
  peer.send("POST /a HTTP/1.1\r\nHost: h\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body);
  const Reply reply = peer.reply();
  EXPECT_EQ(reply.status, 413);
  EXPECT_THAT(reply.body, testing::HasSubstr("Request entity too large: limit is 3145728"));
}

TEST_F(Front_Test, takes_a_head_of_200000_bytes_and_refuses_one_beyond_the_limit) {
  EXPECT_EQ(peer.reply_to("/a?command=" + std::string(200'000, 'x')).status, 200);
  EXPECT_EQ(peer.reply_to("/a?command=" + std::string(1'100'000, 'x')).status, 431);
}

TEST_F(Front_Test, compresses_a_large_body_only_when_asked) {
  api.on_request = [](const Request&) {
    Answer answer;
    answer.body = std::string(200'000, 'x');
    return answer;
  };
  const Reply packed = peer.reply_to("/a", "Accept-Encoding: gzip\r\n");
  EXPECT_EQ(packed.headers.at("content-encoding"), "gzip");
  EXPECT_LT(packed.body.size(), 2000u);
  const Reply plain = peer.reply_to("/a");
  EXPECT_EQ(plain.headers.count("content-encoding"), 0u);
  EXPECT_EQ(plain.body.size(), 200'000u);
}

TEST_F(Front_Test, what_it_compresses_another_program_reads) {
  std::string body;
  for (int i = 0; i < 50'000; ++i) body += std::to_string(i * 7919) + ",";
  api.on_request = [&](const Request&) {
    Answer answer;
    answer.body = body;
    answer.chunked = true;
    return answer;
  };
  const Front other(api);
  const std::string command = "curl -sk --compressed " + other.url() + "/a";
  FILE* pipe = popen(command.c_str(), "r");
  std::string read(body.size() + 1, '\0');
  read.resize(fread(read.data(), 1, read.size(), pipe));
  EXPECT_EQ(pclose(pipe), 0);
  EXPECT_TRUE(read == body);
  EXPECT_EQ(other.requests().at(0).header("accept-encoding").find("gzip") == std::string::npos, false);
}

TEST_F(Front_Test, counts_open_connections) {
  auto second = std::make_unique<Tls_Peer>(front.port(), front.ca());
  second->reply_to("/a");
  peer.reply_to("/a");
  EXPECT_EQ(front.open_connections(), 2u);
  second.reset();
  while (front.open_connections() > 1) std::this_thread::sleep_for(milliseconds(1));
  EXPECT_EQ(front.connections(), 2u);
}

TEST_F(Front_Test, serves_many_clients_at_once) {
  std::atomic<int> good = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i)
    threads.emplace_back([&] {
      Tls_Peer own(front.port(), front.ca());
      for (int k = 0; k < 20; ++k) good += own.reply_to("/x").status == 200;
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(good, 160);
}

TEST(Front, stops_in_every_state_of_its_connections) {
  Simple_Api api;
  api.on_watch = [](const Request&, Watch_Sink& sink) {
    sink.start();
    while (sink.open()) std::this_thread::sleep_for(milliseconds(5));
    return true;
  };
  auto front = std::make_unique<Front>(api);
  front->fail({"", "/slow"}, {milliseconds(3'600'000)});
  Tls_Peer idle(front->port(), front->ca()), watching(front->port(), front->ca()), waiting(front->port(), front->ca()),
      halfway(front->port(), front->ca());
  watching.get("/a?watch=true");
  watching.read_to("\r\n\r\n");
  waiting.get("/slow");
  halfway.send("GET /a HTT");
  while (front->requests().size() < 2) std::this_thread::sleep_for(milliseconds(1));
  const auto begin = std::chrono::steady_clock::now();
  front.reset();
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
  EXPECT_NE(idle.state(), State::OPEN);
}

TEST(Front, throws_when_the_port_is_taken) {
  Simple_Api api;
  Front first(api);
  Front_Options options;
  options.port = first.port();
  EXPECT_ANY_THROW(Front(api, options));
}

TEST(Request_Target, odd_parameters_are_read_as_a_real_server_does) {
  Request request;
  EXPECT_TRUE(set_target(request, "/a?command=echo%20a;echo%20b&b=100%&c=x+y&d=1#2&=3&e=1=2"));
  EXPECT_THAT(request.query, testing::ElementsAre(testing::Pair("c", "x y"), testing::Pair("d", "1#2"),
                                                  testing::Pair("", "3"), testing::Pair("e", "1=2")));
}

TEST(Request_Target, a_plus_sign_in_the_path_stays) {
  Request request;
  EXPECT_TRUE(set_target(request, "/a+b%2Fc"));
  EXPECT_EQ(request.path, "/a+b/c");
}

TEST(Request_Target, an_absolute_target_loses_its_host) {
  Request request;
  EXPECT_TRUE(set_target(request, "https://localhost:1/api/v1?x=https://y"));
  EXPECT_EQ(request.path, "/api/v1");
  EXPECT_EQ(*request.parameter("x"), "https://y");
}

}  // namespace
