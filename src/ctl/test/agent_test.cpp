#include "ctl/agent.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include "ctl/failure.h"
#include "ctl/test/scripted_agent.h"
#include "support/temp_dir.h"

namespace {

using namespace ctl;
using ctl_test::Scripted_Agent;
using json_spirit::Object;
using json_spirit::Value;
using ::testing::HasSubstr;
using ::testing::Not;

/// The failure of a call, code first.
std::string failure_of(const std::function<void()>& function) {
  try {
    function();
  } catch (const Failure& failure) {
    return std::to_string(failure.code()) + " " + failure.what();
  }
  return "none";
}

TEST(Agent, A_call_is_a_JSON_RPC_request_by_POST) {
  Scripted_Agent server;
  server.on("method", [](const Object& params) { return params.at("a"); });
  Agent agent(server.url(), "");
  Object params;
  params["a"] = 5;
  EXPECT_EQ(agent.call("method", params).get_int(), 5);
  const Scripted_Agent::Call call = server.calls().at(0);
  EXPECT_THAT(call.head, HasSubstr("POST /d2/jr HTTP/1.1\r\n"));
  EXPECT_THAT(call.head, HasSubstr("Content-Type: application/json\r\n"));
  EXPECT_THAT(call.head, Not(HasSubstr("Authorization")));
}

TEST(Agent, Calls_follow_one_another_on_a_connection) {
  Scripted_Agent server;
  server.on("method", [](const Object&) { return Value("x"); });
  Agent agent(server.url(), "");
  for (int i = 0; i < 3; ++i) EXPECT_EQ(agent.call("method", Object()).get_str(), "x");
}

TEST(Agent, The_first_line_of_the_token_file_is_sent) {
  Scripted_Agent server;
  test_support::Temp_Dir dir;
  server.on("method", [](const Object&) { return Value(); });
  Agent agent(server.url(), dir.write("token", "secret-token\nmore\n"));
  agent.call("method", Object());
  EXPECT_THAT(server.calls().at(0).head, HasSubstr("Authorization: Bearer secret-token\r\n"));
}

TEST(Agent, A_proxy_of_the_environment_is_not_used) {
  setenv("http_proxy", "http://127.0.0.1:1", 1);
  Scripted_Agent server;
  server.on("method", [](const Object&) { return Value("x"); });
  EXPECT_EQ(Agent(server.url(), "").call("method", Object()).get_str(), "x");
  unsetenv("http_proxy");
}

TEST(Agent, A_token_file_that_is_missing_or_empty_is_wrong_usage) {
  test_support::Temp_Dir dir;
  EXPECT_THAT(failure_of([&] { Agent("unix:///x", dir / "missing"); }), HasSubstr("2 There is no token in "));
  EXPECT_THAT(failure_of([&] { Agent("unix:///x", dir.write("token", "\n")); }), HasSubstr("2 There is no token in "));
}

TEST(Agent, A_token_does_not_go_to_another_machine_in_the_clear) {
  test_support::Temp_Dir dir;
  const std::string token = dir.write("token", "t\n");
  EXPECT_THAT(failure_of([&] { Agent("http://10.0.0.1:80", token); }), HasSubstr("2 The token is not sent"));
  EXPECT_THAT(failure_of([&] { Agent("http://localhost.example.com:80", token); }),
              HasSubstr("2 The token is not sent"));
  EXPECT_THAT(failure_of([&] { Agent("http://127.0.0.1.example.com", token); }), HasSubstr("2 The token is not sent"));
  EXPECT_THAT(failure_of([&] { Agent("http://127.0.0.1:80@10.0.0.1", token); }), HasSubstr("2 The token is not sent"));
  for (const char* url : {"http://127.0.0.1:80", "http://localhost:80/", "http://[::1]:80", "https://10.0.0.1:80"})
    EXPECT_EQ(failure_of([&] { Agent(url, token); }), "none") << url;
}

TEST(Agent, Other_URLs_are_wrong_usage) {
  for (const char* url : {"", "socket", "/run/socket", "unix://relative", "ftp://host"})
    EXPECT_THAT(failure_of([&] { Agent(url, ""); }), HasSubstr("2 The agent's URL is")) << url;
}

TEST(Agent, No_agent_at_the_other_end_is_unreachable) {
  test_support::Temp_Dir dir;
  Agent agent("unix://" + (dir / "nobody"), "");
  EXPECT_THAT(failure_of([&] { agent.call("method", Object()); }), HasSubstr("3 No answer from the agent at unix://"));
}

TEST(Agent, An_answer_that_does_not_come_in_time_is_unreachable) {
  Scripted_Agent server;
  server.on("method", [](const Object&) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    return Value();
  });
  Agent agent(server.url(), "");
  EXPECT_THAT(failure_of([&] { agent.call("method", Object(), std::chrono::seconds(1)); }), HasSubstr("3 No answer"));
}

TEST(Agent, An_error_answer_is_told_with_its_code) {
  Scripted_Agent server;
  server.on("method", [](const Object&) -> Value { throw Scripted_Agent::Error{-32602, "Invalid params."}; });
  Agent agent(server.url(), "");
  EXPECT_EQ(failure_of([&] { agent.call("method", Object()); }),
            "4 The agent answered \"Invalid params.\" (-32602) to method.");
}

TEST(Agent, A_caller_without_rights_is_told_about_the_token) {
  test_support::Temp_Dir dir;
  Scripted_Agent server;
  const auto told = [&](const std::string& status, const std::string& token_file) {
    Agent agent(server.url(), token_file);
    server.raw("HTTP/1.1 " + status + "\r\nContent-Length: 0\r\n\r\n");
    return failure_of([&] { agent.call("method", Object()); });
  };
  const std::string token = dir.write("token", "t\n");
  EXPECT_EQ(told("401 Unauthorized", ""), "4 The agent wants a token: give its file with --token-file.");
  EXPECT_EQ(told("401 Unauthorized", token), "4 The agent does not accept the token.");
  EXPECT_EQ(told("403 Forbidden", token), "4 The owner of the token may not call the agent.");
  EXPECT_EQ(told("503 Service Unavailable", token), "3 The agent cannot find out whose token it is; try again later.");
}

TEST(Agent, An_answer_of_something_else_is_unreachable) {
  Scripted_Agent server;
  Agent agent(server.url(), "");
  server.raw("HTTP/1.1 502 Bad Gateway\r\nContent-Length: 4\r\n\r\nhtml");
  EXPECT_THAT(failure_of([&] { agent.call("method", Object()); }), HasSubstr("3 The answer from "));
  server.raw("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\n{}");
  EXPECT_THAT(failure_of([&] { agent.call("method", Object()); }), HasSubstr("has no result"));
  server.raw("HTTP/1.1 302 Found\r\nLocation: http://127.0.0.1:1/\r\nContent-Length: 0\r\n\r\n");
  EXPECT_THAT(failure_of([&] { agent.call("method", Object()); }), HasSubstr("3 The answer from "));
}

}  // namespace
