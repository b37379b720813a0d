// The HTTP client over sockets and TLS: connections, what is sent and how often, time-outs, bodies.
#include "http/json_restful_client.h"
#include "http/test/network_fixture.h"
#include "http/test/raw_server.h"

namespace {

using json_spirit::Object;
using json_spirit::Value;
using kube_sim::Answer;
using kube_sim::Fault;
using kube_sim::Request;
using testing::HasSubstr;

/// A JSON string of so many letters.
std::string quoted(std::size_t letters) {
  std::string text(letters + 2, 'x');
  text.front() = text.back() = '"';
  return text;
}

class Http_Client : public Network_Test {
 protected:
  std::size_t requests() const { return front_.requests().size(); }

  JSON_HTTP_Session session_{session(front_.port()), 5, 300};
};

TEST_F(Http_Client, sends_target_and_headers_as_they_are) {
  EXPECT_TRUE(get(session_, "/a/../b/%7Ex?c=d%20e&f={g}#h"));
  EXPECT_EQ(Value(Object{{"a", 1}}), value_);
  EXPECT_EQ(200, response_.status());
  const Request request = front_.requests().at(0);
  EXPECT_EQ("GET", request.method);
  EXPECT_EQ("/a/../b/%7Ex?c=d%20e&f={g}#h", request.target);
  EXPECT_EQ("Bearer canary-token", request.header("authorization"));
  EXPECT_EQ("application/json", request.header("accept"));
  EXPECT_EQ("gzip", request.header("accept-encoding"));
  EXPECT_EQ("127.0.0.1:" + std::to_string(front_.port()), request.header("host"));
  EXPECT_FALSE(request.headers.contains("content-type"));
}

TEST_F(Http_Client, sends_each_method_with_its_body) {
  const Value body = Object{{"b", 2}};
  request_.uri("/x", true);
  EXPECT_TRUE(session_.post(request_, &body, response_, nullptr));
  request_.content_type("application/merge-patch+json");
  EXPECT_TRUE(session_.patch(request_, &body, response_, nullptr));
  request_.content_type(nullptr);
  EXPECT_TRUE(session_.delete_(request_, response_, nullptr));
  EXPECT_TRUE(session_.post(request_, nullptr, response_, nullptr));
  const auto requests = front_.requests();
  ASSERT_EQ(4u, requests.size());
  EXPECT_EQ("POST", requests[0].method);
  EXPECT_EQ("{\"b\":2}", requests[0].body);
  EXPECT_EQ("application/json", requests[0].header("content-type"));
  EXPECT_EQ("PATCH", requests[1].method);
  EXPECT_EQ("{\"b\":2}", requests[1].body);
  EXPECT_EQ("application/merge-patch+json", requests[1].header("content-type"));
  EXPECT_EQ("DELETE", requests[2].method);
  EXPECT_EQ("", requests[2].body);
  EXPECT_FALSE(requests[2].headers.contains("content-type"));
  EXPECT_EQ("POST", requests[3].method);
  EXPECT_EQ("0", requests[3].header("content-length"));
  EXPECT_FALSE(requests[3].headers.contains("content-type"));
}

TEST_F(Http_Client, an_empty_token_goes_out_as_an_empty_header) {
  request_.uri("/x", true);
  request_.headers().put("Authorization", "", true);
  EXPECT_TRUE(session_.get(request_, response_, value_));
  ASSERT_TRUE(front_.requests().at(0).headers.contains("authorization"));
  EXPECT_EQ("", front_.requests().at(0).header("authorization"));
}

TEST_F(Http_Client, a_token_with_a_line_end_is_not_sent) {
  request_.uri("/x", true);
  request_.headers().put("Authorization", "Bearer canary\r", true);
  EXPECT_FALSE(session_.get(request_, response_, value_));
  EXPECT_EQ(0u, requests());
  EXPECT_THAT(log_.texts(LM_ERROR),
              testing::ElementsAre("Failed to send GET /x: a header holds control characters.\n"));
}

TEST_F(Http_Client, uses_one_connection_for_consecutive_calls) {
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(get(session_));
  EXPECT_TRUE(post(session_));
  EXPECT_EQ(1u, front_.connections());
}

TEST_F(Http_Client, a_404_document_is_read_like_any_other) {
  api_.on_request = [](const Request&) { return Answer{404, "application/json", R"({"reason":"NotFound"})", {}}; };
  EXPECT_TRUE(get(session_));
  EXPECT_EQ(404, response_.status());
  EXPECT_EQ(Value(Object{{"reason", "NotFound"}}), value_);
}

TEST_F(Http_Client, a_text_reply_leaves_its_status) {
  api_.on_request = [](const Request&) { return Answer{404, "text/plain", "404 page not found\n", {}}; };
  EXPECT_FALSE(get(session_));
  EXPECT_EQ(404, response_.status());
  EXPECT_STREQ("text/plain", response_.content_type());
  EXPECT_TRUE(value_.is_null());
}

TEST_F(Http_Client, reads_chunked_answers) {
  api_.on_request = [](const Request&) { return Answer{200, "application/json", quoted(100000), {}, true}; };
  EXPECT_TRUE(get(session_));
  EXPECT_EQ(std::string(100000, 'x'), value_.get_str());
  EXPECT_TRUE(response_.chunked_transfer_encoding());
}

TEST_F(Http_Client, reads_compressed_answers) {
  // gzip of {"items":[ fifty times {"name":"pod"} ]}
  constexpr char zipped[] =
      "\x1F\x8B\x08\x00\x00\x00\x00\x00\x02\xFF\xAB\x56\xCA\x2C\x49\xCD\x2D\x56\xB2\x8A\xAE\x56\xCA\x4B\xCC\x4D\x55\xB2"
      "\x52\x2A\xC8\x4F\x51\xAA\xD5\x19\xE5\x8E\x72\x87\x2F\x37\xB6\x16\x00\xBF\x3E\x96\xF8\xF9\x02\x00\x00";
  api_.on_request = [&](const Request&) {
    return Answer{200, "application/json", std::string(zipped, sizeof zipped - 1), {{"Content-Encoding", "gzip"}}};
  };
  EXPECT_TRUE(get(session_));
  ASSERT_EQ(json_spirit::obj_type, value_.type());
  EXPECT_EQ(50u, value_.get_obj().at("items").get_array().size());
}

TEST_F(Http_Client, a_redirect_is_not_followed) {
  kube_sim_test::Simple_Api other_api;
  kube_sim::Front other(other_api, {.certificates = &certificates_});
  api_.on_request = [&](const Request&) { return Answer{302, "", "", {{"Location", other.url() + "/stolen"}}}; };
  EXPECT_FALSE(get(session_));
  EXPECT_EQ(302, response_.status());
  EXPECT_EQ(1u, requests());
  EXPECT_TRUE(other.requests().empty());
}

TEST_F(Http_Client, no_proxy_of_the_environment_is_used) {
  for (const char* name : {"https_proxy", "HTTPS_PROXY", "http_proxy", "all_proxy", "ALL_PROXY"})
    ::setenv(name, "http://127.0.0.1:1", 1);
  EXPECT_TRUE(get(session_));
  for (const char* name : {"https_proxy", "HTTPS_PROXY", "http_proxy", "all_proxy", "ALL_PROXY"}) ::unsetenv(name);
}

TEST_F(Http_Client, an_ssl_context_or_no_host_is_refused) {
  const auto context = reinterpret_cast<ACE_SSL_Context*>(this);
  EXPECT_FALSE(HTTP_Session_Factory::create("h", 1, true, nullptr, 3, context, false, 1, 1, 1, 0));
  for (const char* host : {"", "a/b", "user@host", "a b"})
    EXPECT_FALSE(HTTP_Session_Factory::create(host, 1, true, nullptr, 3, nullptr, false, 1, 1, 1, 0)) << host;
  EXPECT_EQ(5u, log_.texts(LM_ERROR).size());
}

TEST_F(Http_Client, connects_from_the_local_address) {
  const auto from = [&](const char* address) {
    return HTTP_Session_Factory::create("127.0.0.1", front_.port(), true, address, 3, nullptr, false, 20, 20, 20, 0);
  };
  JSON_HTTP_Session good(from("127.0.0.2"), 0, 300);
  EXPECT_TRUE(get(good)) << log_.all();
  JSON_HTTP_Session bad(from("192.0.2.1"), 0, 300);
  EXPECT_FALSE(get(bad));
}

TEST_F(Http_Client, without_idle_connections_each_call_has_its_own) {
  JSON_HTTP_Session session(
      HTTP_Session_Factory::create("127.0.0.1", front_.port(), true, nullptr, 0, nullptr, false, 20, 20, 20, 0), 5,
      300);
  EXPECT_TRUE(get(session));
  EXPECT_TRUE(get(session));
  EXPECT_EQ(2u, front_.connections());
}

// Repetition.

TEST_F(Http_Client, a_get_is_repeated_when_the_answer_breaks_off) {
  for (const auto end :
       {Fault::End::DROP_BEFORE_HEAD, Fault::End::DROP_IN_HEAD, Fault::End::CUT_BODY, Fault::End::RESET}) {
    front_.clear_requests();
    fault(end, 3);
    EXPECT_TRUE(get(session_)) << static_cast<int>(end) << log_.all();
    EXPECT_EQ(2u, requests());
    EXPECT_EQ(Value(Object{{"a", 1}}), value_);
  }
  EXPECT_TRUE(log_.texts(LM_ERROR).empty());
}

TEST_F(Http_Client, a_get_is_repeated_when_a_chunked_body_is_cut) {
  api_.on_request = [](const Request&) { return Answer{200, "application/json", quoted(40000), {}, true}; };
  fault(Fault::End::CUT_BODY, 20000);
  EXPECT_TRUE(get(session_)) << log_.all();
  EXPECT_EQ(40000u, value_.get_str().size());
  EXPECT_EQ(2u, requests());
}

TEST_F(Http_Client, a_body_that_is_always_cut_fails_with_status_0_and_null) {
  fault(Fault::End::CUT_BODY, 3, 1, 0);
  EXPECT_FALSE(get(session_));
  EXPECT_EQ(6u, requests());
  EXPECT_EQ(0, response_.status());
  EXPECT_TRUE(response_.headers().empty());
  EXPECT_TRUE(value_.is_null());
  EXPECT_EQ(1u, log_.texts(LM_ERROR).size());
  EXPECT_EQ(5u, clock_.sleeps().size());
}

TEST_F(Http_Client, a_delete_is_repeated_too) {
  fault(Fault::End::RESET);
  request_.uri("/x", true);
  EXPECT_TRUE(session_.delete_(request_, response_, nullptr));
  EXPECT_EQ(2u, requests());
}

TEST_F(Http_Client, a_post_whose_answer_breaks_off_is_sent_once) {
  for (const auto end :
       {Fault::End::DROP_BEFORE_HEAD, Fault::End::DROP_IN_HEAD, Fault::End::CUT_BODY, Fault::End::RESET}) {
    front_.clear_requests();
    fault(end, 3);
    EXPECT_FALSE(post(session_)) << static_cast<int>(end);
    EXPECT_EQ(0, response_.status());
    EXPECT_EQ(1u, requests());
  }
}

TEST_F(Http_Client, a_post_on_a_kept_connection_that_the_server_closes_is_sent_once) {
  EXPECT_TRUE(get(session_));
  fault(Fault::End::DROP_BEFORE_HEAD);
  EXPECT_FALSE(post(session_, Object{{"b", 2}}));
  const auto requests = front_.requests();
  ASSERT_EQ(2u, requests.size());
  EXPECT_EQ("POST", requests[1].method);
  EXPECT_EQ("{\"b\":2}", requests[1].body);
  EXPECT_THAT(log_.texts(LM_ERROR), testing::ElementsAre(HasSubstr("POST /api")));
}

TEST_F(Http_Client, the_next_call_after_a_lost_connection_makes_a_new_one) {
  EXPECT_TRUE(get(session_));
  fault(Fault::End::RESET);
  EXPECT_FALSE(post(session_));
  EXPECT_TRUE(post(session_));
  EXPECT_EQ(3u, requests());
}

TEST_F(Http_Client, a_kept_connection_that_was_closed_meanwhile_is_not_used) {
  front_.fail({}, {.answer = Answer{200, "application/json", "{}", {{"Connection", "close"}}}});
  EXPECT_TRUE(get(session_));
  EXPECT_TRUE(post(session_)) << log_.all();
  EXPECT_EQ(2u, front_.connections());
}

TEST_F(Http_Client, cookies_come_back) {
  front_.fail({}, {.answer = Answer{200, "application/json", "{}", {{"Set-Cookie", "node=7; path=/"}}}});
  EXPECT_TRUE(get(session_));
  EXPECT_TRUE(get(session_));
  EXPECT_EQ("node=7", front_.requests().at(1).header("cookie"));
}

TEST_F(Http_Client, a_server_that_is_not_there_is_tried_by_every_method) {
  unsigned short port;
  {
    const kube_sim::Front gone(api_);
    port = gone.port();
  }
  JSON_HTTP_Session session(Network_Test::session(port), 5, 300);
  EXPECT_FALSE(get(session));
  EXPECT_EQ(5u, clock_.sleeps().size());
  EXPECT_FALSE(post(session));
  EXPECT_EQ(10u, clock_.sleeps().size());
  EXPECT_EQ(2u, log_.texts(LM_ERROR).size());
}

TEST_F(Http_Client, a_busy_server_is_waited_for) {
  Fault busy;
  busy.answer = Answer{429, "text/plain", "storage is (re)initializing", {{"Retry-After", "4"}}};
  front_.fail({}, busy);
  EXPECT_TRUE(post(session_));
  EXPECT_EQ(200, response_.status());
  EXPECT_EQ(2u, requests());
  EXPECT_THAT(clock_.sleeps(), testing::ElementsAre(std::chrono::seconds(4)));
}

TEST_F(Http_Client, a_server_error_without_retry_after_is_the_answer) {
  Fault broken;
  broken.answer = Answer{500, "application/json", R"({"code":500})", {}};
  front_.fail({}, broken);
  EXPECT_TRUE(get(session_));
  EXPECT_EQ(500, response_.status());
  EXPECT_EQ(1u, requests());
}

// Time-outs.

TEST_F(Http_Client, a_server_that_is_silent_ends_the_call_without_a_repeat) {
  Fault slow;
  slow.delay = std::chrono::seconds(20);
  front_.fail({}, slow);
  JSON_HTTP_Session session(Network_Test::session(front_.port(), 1), 5, 300);
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_FALSE(get(session));
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
  EXPECT_EQ(0, response_.status());
  EXPECT_EQ(1u, requests());
  EXPECT_THAT(log_.texts(LM_ERROR), testing::ElementsAre("Failed to send GET /api: timed out in silence.\n"));
}

TEST_F(Http_Client, an_answer_may_take_longer_than_the_time_out_while_it_comes) {
  Raw_Server server([](Raw_Server::Peer& peer) {
    peer.read_to("\r\n\r\n");
    peer.write("HTTP/1.1 200 OK\r\nContent-Length: 6\r\n\r\n");
    for (const char* byte : {"[", "1", ",", "2", "3", "]"}) {
      std::this_thread::sleep_for(std::chrono::milliseconds(500));
      peer.write(byte);
    }
  });
  JSON_HTTP_Session session(Network_Test::session(server.port(), 2, "127.0.0.1", false), 0, 300);
  EXPECT_TRUE(get(session)) << log_.all();
  EXPECT_EQ(23, value_.get_array().at(1).get_int());
}

TEST_F(Http_Client, a_tls_handshake_that_hangs_ends_with_the_connect_time_out) {
  Raw_Server server([](Raw_Server::Peer& peer) { peer.read_to("never"); });
  JSON_HTTP_Session session(Network_Test::session(server.port(), 1), 1, 300);
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_FALSE(get(session));
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
  EXPECT_EQ(1u, clock_.sleeps().size());
}

TEST_F(Http_Client, what_is_no_http_fails_without_a_repeat) {
  std::atomic<int> connections = 0;
  Raw_Server server([&](Raw_Server::Peer& peer) {
    ++connections;
    peer.read_to("\r\n\r\n");
    peer.write("SSH-2.0-something\r\n\r\n");
  });
  JSON_HTTP_Session session(Network_Test::session(server.port(), 5, "127.0.0.1", false), 5, 300);
  EXPECT_FALSE(get(session));
  EXPECT_EQ(1, connections);
}

// Large bodies.

TEST_F(Http_Client, a_server_that_leaves_in_the_middle_of_a_large_request_does_not_kill_the_process) {
  Raw_Server server([](Raw_Server::Peer& peer) { peer.read_to("\r\n\r\n"); });
  JSON_HTTP_Session session(Network_Test::session(server.port(), 5, "127.0.0.1", false), 5, 300);
  EXPECT_FALSE(post(session, Value(std::string(20'000'000, 'x'))));
  EXPECT_EQ(0, response_.status());
}

TEST_F(Http_Client, a_tls_server_that_leaves_in_the_middle_of_a_large_request_does_not_kill_the_process) {
  // Larger than what the front reads: it answers 413 and closes.
  const bool answered = post(session_, Value(std::string(20'000'000, 'x')));
  EXPECT_EQ(answered ? 413 : 0, response_.status());
  EXPECT_EQ(0u, clock_.sleeps().size());
}

TEST_F(Http_Client, the_other_end_may_be_named_by_an_ipv6_address) {
  kube_sim::Front front(api_, {.address = "::1", .certificates = &certificates_});
  for (const char* host : {"::1", "[::1]"}) {
    JSON_HTTP_Session session(Network_Test::session(front.port(), 20, host), 0, 300);
    EXPECT_TRUE(get(session));
  }
  EXPECT_THAT(log_.texts(LM_ERROR), testing::IsEmpty());
}

// The client of single calls.

TEST_F(Http_Client, a_restful_client_posts_once_and_reads_the_answer) {
  Common_JSON_RESTful_Client client("127.0.0.1", front_.port(), true, false, true);
  const Value body = Object{{"method", "m"}};
  EXPECT_TRUE(client.post("/d2/jr", &body, response_, &value_));
  EXPECT_EQ(200, response_.status());
  EXPECT_EQ(Value(Object{{"a", 1}}), value_);
  const Request request = front_.requests().at(0);
  EXPECT_EQ("POST", request.method);
  EXPECT_EQ("/d2/jr", request.target);
  EXPECT_EQ("{\"method\":\"m\"}", request.body);
}

TEST_F(Http_Client, a_restful_client_gives_status_and_body_of_a_failure) {
  api_.on_request = [](const Request&) { return Answer{500, "application/json", "\"oops\"", {{"Retry-After", "1"}}}; };
  Common_JSON_RESTful_Client client("127.0.0.1", front_.port(), true, false, true);
  EXPECT_TRUE(client.post("/d2/jr", nullptr, response_, &value_));
  EXPECT_EQ(500, response_.status());
  EXPECT_EQ(Value("oops"), value_);
  EXPECT_EQ(1u, requests());
}

TEST_F(Http_Client, a_restful_client_never_repeats) {
  unsigned short port;
  {
    const kube_sim::Front gone(api_);
    port = gone.port();
  }
  Common_JSON_RESTful_Client client("127.0.0.1", port, true, false, true);
  EXPECT_FALSE(client.post("/d2/jr", nullptr, response_, &value_));
  EXPECT_TRUE(value_.is_null());
  EXPECT_TRUE(clock_.sleeps().empty());
}

TEST_F(Http_Client, another_agent_is_shown_the_token_over_tls_only) {
  account_.set_token("canary-token\r\nsecond line\n");
  Common_JSON_RESTful_Client("127.0.0.1", front_.port(), true, false, true).post("/", nullptr, response_, nullptr);
  EXPECT_EQ("Bearer canary-token", front_.requests().at(0).header("authorization"));

  std::string head;
  {
    Raw_Server server([&](Raw_Server::Peer& peer) {
      head = peer.read_to("\r\n\r\n");
      peer.write("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\n{}");
    });
    Common_JSON_RESTful_Client client("127.0.0.1", server.port(), false, false, true);
    EXPECT_TRUE(client.post("/d2/jr", nullptr, response_, &value_));
  }
  EXPECT_THAT(head, testing::StartsWith("POST /d2/jr HTTP/1.1\r\n"));
  EXPECT_EQ(head.find("canary"), std::string::npos);
}

}  // namespace
