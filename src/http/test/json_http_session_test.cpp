// What JSON_HTTP_Session makes of requests and answers, over a session that plays a script.
#include "http/json_http_session.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>

#include "support/fake_clock.h"
#include "support/log_capture.h"

namespace {

using json_spirit::Object;
using json_spirit::Value;
using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::ElementsAre;

struct Step {
  HTTP_Exchange_Result result{HTTP_OUTCOME_ANSWERED, {}};
  int status = 200;
  std::vector<std::string> chunks;
  std::vector<std::pair<const char*, const char*>> headers;
};

struct Sent {
  int method;
  std::string uri;
  HTTP_Headers headers;
  std::optional<std::string> body;
};

class Scripted_Session : public HTTP_Session {
 public:
  HTTP_Exchange_Result exchange(const HTTP_Request& request, const std::string* body, HTTP_Response& response,
                                HTTP_Body_Sink& sink) override {
    sent.push_back({request.method(), request.uri(), request.headers(), body ? std::optional(*body) : std::nullopt});
    response.reset();
    if (steps.empty()) return {HTTP_OUTCOME_FAILED, "nothing left in the script"};
    const Step step = steps.front();
    steps.erase(steps.begin());
    for (const std::string& chunk : step.chunks) sink.write(chunk);
    if (step.result.outcome != HTTP_OUTCOME_ANSWERED) return step.result;
    response.status(step.status);
    for (const auto& [name, value] : step.headers) response.headers().put(name, value, false);
    return step.result;
  }

  std::vector<Step> steps;
  std::vector<Sent> sent;
};

class Json_Http_Session : public testing::Test {
 protected:
  void answer(int status, std::vector<std::string> chunks) {
    script_->steps.push_back({{}, status, std::move(chunks), {}});
  }
  void outcome(HTTP_Outcome outcome, std::vector<std::string> chunks = {}) {
    script_->steps.push_back({{outcome, "gone"}, 0, std::move(chunks), {}});
  }
  bool get() { return session_.get(request_, response_, value_); }
  const char* sent_header(int head) const { return script_->sent.back().headers.get(head, true); }

  test_support::Fake_Clock clock_;
  test_support::Log_Capture log_;
  std::shared_ptr<Scripted_Session> script_ = std::make_shared<Scripted_Session>();
  JSON_HTTP_Session session_{script_, 5, 300};
  HTTP_Request request_{HTTP_METHOD_GET, "/api/v1/pods?token=hidden", true};
  HTTP_Response response_;
  Value value_{"old"};
};

TEST_F(Json_Http_Session, get_reads_a_document_that_comes_in_pieces) {
  answer(200, {"{\"a", "\":[1,2", "]}"});
  EXPECT_TRUE(get());
  EXPECT_EQ(Value(Object{{"a", json_spirit::Array{1, 2}}}), value_);
  EXPECT_EQ(200, response_.status());
  EXPECT_EQ("", log_.all());
}

TEST_F(Json_Http_Session, get_is_true_for_a_json_reply_of_any_status) {
  for (const int status : {201, 302, 400, 401, 403, 404, 409, 410, 422, 500, 503}) {
    answer(status, {R"({"kind":"Status"})"});
    EXPECT_TRUE(get()) << status;
    EXPECT_EQ(status, response_.status());
    EXPECT_EQ(Value(Object{{"kind", "Status"}}), value_) << status;
  }
}

TEST_F(Json_Http_Session, get_is_false_for_a_reply_that_is_no_json_and_the_status_can_be_read) {
  answer(404, {"404 page", " not found\n"});
  EXPECT_FALSE(get());
  EXPECT_EQ(404, response_.status());
  EXPECT_TRUE(value_.is_null());
  EXPECT_TRUE(log_.has(LM_DEBUG, "Reply to GET /api/v1/pods has status 404: 404 page not found\\x0A\n")) << log_.all();
}

TEST_F(Json_Http_Session, the_log_shows_the_beginning_of_a_long_reply) {
  answer(200, {std::string(500, 'x'), std::string(500, 'y')});
  EXPECT_FALSE(get());
  EXPECT_TRUE(log_.has_containing(LM_DEBUG, std::string(500, 'x') + std::string(12, 'y') + '\n'));
}

TEST_F(Json_Http_Session, get_is_false_for_an_empty_reply) {
  answer(204, {});
  EXPECT_FALSE(get());
  EXPECT_EQ(204, response_.status());
  EXPECT_TRUE(value_.is_null());
}

TEST_F(Json_Http_Session, a_document_without_its_end_is_no_json) {
  answer(200, {R"({"a":1)"});
  EXPECT_FALSE(get());
  EXPECT_TRUE(value_.is_null());
}

TEST_F(Json_Http_Session, each_verb_sends_its_method) {
  for (int i = 0; i < 4; ++i) answer(200, {"{}"});
  const Value body = Object{{"a", 1}};
  get();
  session_.post(request_, &body, response_, nullptr);
  session_.patch(request_, &body, response_, nullptr);
  session_.delete_(request_, response_, nullptr);
  ASSERT_EQ(4u, script_->sent.size());
  EXPECT_EQ(HTTP_METHOD_GET, script_->sent[0].method);
  EXPECT_EQ(HTTP_METHOD_POST, script_->sent[1].method);
  EXPECT_EQ(HTTP_METHOD_PATCH, script_->sent[2].method);
  EXPECT_EQ(HTTP_METHOD_DELETE, script_->sent[3].method);
  EXPECT_FALSE(script_->sent[0].body);
  EXPECT_EQ("{\"a\":1}", script_->sent[1].body);
  EXPECT_EQ("{\"a\":1}", script_->sent[2].body);
  EXPECT_FALSE(script_->sent[3].body);
}

TEST_F(Json_Http_Session, asks_for_json_and_says_that_it_sends_json) {
  answer(200, {"{}"});
  const Value body = Object();
  session_.post(request_, &body, response_, nullptr);
  EXPECT_STREQ("application/json", sent_header(HTTP_HEAD_ACCEPT));
  EXPECT_STREQ("application/json", sent_header(HTTP_HEAD_CONTENT_TYPE));
}

TEST_F(Json_Http_Session, the_requests_own_content_type_stands) {
  answer(200, {"{}"});
  const Value body = Object();
  request_.content_type("application/merge-patch+json");
  session_.patch(request_, &body, response_, nullptr);
  EXPECT_STREQ("application/merge-patch+json", sent_header(HTTP_HEAD_CONTENT_TYPE));
}

TEST_F(Json_Http_Session, a_content_type_does_not_outlive_the_reset_of_its_request) {
  answer(200, {"{}"});
  answer(200, {"{}"});
  const Value body = Object();
  request_.content_type("application/merge-patch+json");
  session_.patch(request_, &body, response_, nullptr);
  request_.reset();
  request_.uri("/a", true);
  session_.post(request_, &body, response_, nullptr);
  EXPECT_STREQ("application/json", sent_header(HTTP_HEAD_CONTENT_TYPE));
}

TEST_F(Json_Http_Session, without_a_body_there_is_no_content_type) {
  answer(200, {"{}"});
  get();
  EXPECT_EQ(nullptr, sent_header(HTTP_HEAD_CONTENT_TYPE));
}

TEST_F(Json_Http_Session, post_patch_and_delete_are_true_for_a_reply_of_any_status) {
  const Value body = Object();
  for (const int status : {200, 201, 302, 404, 409, 422, 500}) {
    for (int i = 0; i < 3; ++i) answer(status, {"no json"});
    EXPECT_TRUE(session_.post(request_, &body, response_, nullptr)) << status;
    EXPECT_TRUE(session_.patch(request_, &body, response_, nullptr)) << status;
    EXPECT_TRUE(session_.delete_(request_, response_, nullptr)) << status;
    EXPECT_EQ(status, response_.status());
  }
}

TEST_F(Json_Http_Session, a_dropped_reply_of_failure_is_in_the_log) {
  answer(422, {R"({"message":"bad name"})"});
  session_.delete_(request_, response_, nullptr);
  EXPECT_TRUE(log_.has(LM_DEBUG, "Reply to DELETE /api/v1/pods has status 422: {\"message\":\"bad name\"}\n"))
      << log_.all();
}

TEST_F(Json_Http_Session, post_gives_the_reply_or_null) {
  const Value body = Object();
  Value reply("old");
  answer(200, {"{\"result\":1}"});
  EXPECT_TRUE(session_.post(request_, &body, response_, &reply));
  EXPECT_EQ(Value(Object{{"result", 1}}), reply);
  answer(500, {"oops"});
  EXPECT_TRUE(session_.post(request_, &body, response_, &reply));
  EXPECT_TRUE(reply.is_null());
}

TEST_F(Json_Http_Session, a_failed_exchange_logs_one_line_without_query_and_leaves_status_0_and_null) {
  outcome(HTTP_OUTCOME_FAILED, {"{\"a\":1}"});
  response_.status(200);
  request_.headers().put("Authorization", "Bearer canary", true);
  EXPECT_FALSE(get());
  EXPECT_EQ(0, response_.status());
  EXPECT_TRUE(value_.is_null());
  EXPECT_THAT(log_.texts(LM_ERROR), ElementsAre("Failed to send GET /api/v1/pods: gone.\n"));
  EXPECT_EQ(log_.all().find("hidden"), std::string::npos);
  EXPECT_EQ(log_.all().find("canary"), std::string::npos);
}

TEST_F(Json_Http_Session, every_verb_is_false_after_a_failed_exchange) {
  const Value body = Object();
  Value reply("old");
  for (int i = 0; i < 3; ++i) outcome(HTTP_OUTCOME_FAILED);
  EXPECT_FALSE(session_.post(request_, &body, response_, &reply));
  EXPECT_TRUE(reply.is_null());
  EXPECT_FALSE(session_.patch(request_, &body, response_, nullptr));
  EXPECT_FALSE(session_.delete_(request_, response_, nullptr));
  EXPECT_EQ(3u, log_.texts(LM_ERROR).size());
}

TEST_F(Json_Http_Session, a_repeated_get_starts_its_document_anew) {
  outcome(HTTP_OUTCOME_BROKEN, {"{\"first\":[1,2"});
  answer(200, {"{\"second\":1}"});
  EXPECT_TRUE(get());
  EXPECT_EQ(Value(Object{{"second", 1}}), value_);
  EXPECT_EQ(2u, script_->sent.size());
  EXPECT_EQ(1u, clock_.sleeps().size());
  EXPECT_TRUE(log_.has_containing(LM_INFO, "GET /api/v1/pods is sent again in "));
  EXPECT_TRUE(log_.texts(LM_ERROR).empty());
}

TEST_F(Json_Http_Session, a_broken_post_is_not_repeated) {
  outcome(HTTP_OUTCOME_BROKEN);
  const Value body = Object();
  EXPECT_FALSE(session_.post(request_, &body, response_, nullptr));
  EXPECT_EQ(1u, script_->sent.size());
}

TEST_F(Json_Http_Session, after_five_repeats_the_last_failure_is_told_once) {
  for (int i = 0; i < 7; ++i) outcome(HTTP_OUTCOME_NOT_SENT);
  EXPECT_FALSE(get());
  EXPECT_EQ(6u, script_->sent.size());
  EXPECT_EQ(5u, log_.texts(LM_INFO).size());
  EXPECT_EQ(1u, log_.texts(LM_ERROR).size());
}

TEST_F(Json_Http_Session, waits_as_long_as_the_server_asks) {
  script_->steps.push_back({{}, 429, {"busy"}, {{"Retry-After", "7"}}});
  answer(201, {"{}"});
  const Value body = Object();
  EXPECT_TRUE(session_.post(request_, &body, response_, nullptr));
  EXPECT_EQ(201, response_.status());
  EXPECT_THAT(clock_.sleeps(), ElementsAre(seconds(7)));
  EXPECT_EQ("{}", script_->sent.back().body);
}

TEST_F(Json_Http_Session, a_wait_that_is_too_long_gives_the_answer_that_is_there) {
  script_->steps.push_back({{}, 429, {R"({"reason":"TooManyRequests"})"}, {{"Retry-After", "301"}}});
  EXPECT_TRUE(get());
  EXPECT_EQ(429, response_.status());
  EXPECT_EQ(Value(Object{{"reason", "TooManyRequests"}}), value_);
  EXPECT_TRUE(clock_.sleeps().empty());
}

TEST_F(Json_Http_Session, a_redirect_is_the_reply) {
  script_->steps.push_back({{}, 302, {}, {{"Location", "https://elsewhere/"}}});
  EXPECT_TRUE(session_.delete_(request_, response_, nullptr));
  EXPECT_EQ(302, response_.status());
  EXPECT_EQ(1u, script_->sent.size());
}

TEST_F(Json_Http_Session, a_warning_of_the_server_is_logged_once_per_text) {
  for (int i = 0; i < 2; ++i)
    script_->steps.push_back(
        {{}, 200, {"{}"}, {{"warning", "299 - \"unknown field \\\"x\\\"\""}, {"Warning", "299 - \"orphans\""}}});
  get();
  get();
  EXPECT_THAT(log_.texts(LM_INFO), ElementsAre(testing::StartsWith("The server warns: 299 - \"unknown field"),
                                               "The server warns: 299 - \"orphans\"\n"));
}

TEST_F(Json_Http_Session, without_a_session_every_verb_fails) {
  session_.reset({});
  EXPECT_FALSE(session_);
  EXPECT_FALSE(get());
  EXPECT_TRUE(value_.is_null());
  EXPECT_EQ(1u, log_.texts(LM_ERROR).size());
  session_.reset(script_);
  EXPECT_TRUE(session_);
}

}  // namespace
