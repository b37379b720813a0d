#include "http/json_http_session.h"

#include <optional>

#include "ace/Log_Msg.h"
#include "http/http_retry.h"
#include "http/warning_log.h"
#include "json_spirit/dump.h"
#include "json_spirit/json_reader.h"
#include "kolt/clock.h"
#include "kolt/metrics.h"
#include "kolt/printable.h"

using json_spirit::Value;

namespace {

constexpr char json_type[] = "application/json";
/// Bytes of a reply's text that the log shows.
constexpr std::size_t head_bytes = 512;

/// Makes a document of a body, and keeps the beginning of its text.
class Reply_Body : public HTTP_Body_Sink {
 public:
  explicit Reply_Body(bool wanted) {
    if (wanted) reader_.emplace(value_);
  }

  void write(std::string_view chunk) override {
    head_.append(chunk.substr(0, head_bytes - head_.size()));
    if (reader_ && !reader_->write(chunk)) reader_.reset();
  }
  /// Whether the whole body was JSON, and was wanted. @a value is set in any case.
  bool take(Value& value) {
    const bool read = reader_ && reader_->finish();
    value = read ? std::move(value_) : Value();
    return read;
  }
  const std::string& head() const { return head_; }

 private:
  Value value_;
  std::optional<json_spirit::Text_Reader> reader_;
  std::string head_;
};

/// How a request is called in the log. Without the query, where secrets may stand.
std::string described(const HTTP_Request& request) {
  return std::string(http_method_string(request.method())) + ' ' +
         printable(std::string_view(request.uri()).substr(0, request.uri().find('?')));
}

void log_head(const HTTP_Request& request, const HTTP_Response& response, const Reply_Body& body) {
  ACE_DEBUG((LM_DEBUG, ACE_TEXT("Reply to %C has status %d: %C\n"), described(request).c_str(), response.status(),
             printable(body.head()).c_str()));
}

void log_repetition(const HTTP_Request& request, const HTTP_Response& response, const HTTP_Exchange_Result& result,
                    std::chrono::milliseconds wait) {
  const std::string why = result.outcome == HTTP_OUTCOME_ANSWERED ? "status " + std::to_string(response.status())
                                                                  : printable(result.reason);
  ACE_DEBUG((LM_INFO, ACE_TEXT("%C is sent again in %d ms: %C.\n"), described(request).c_str(),
             static_cast<int>(wait.count()), why.c_str()));
}

kolt::Counter api_requests(const char* verb, const std::string& code) {
  return kolt::Counter("tessarin_api_requests_total",
                       "Requests to the API server and other agents, by their answers; \"none\": there was none.",
                       {{"verb", verb}, {"code", code}});
}

// A series that is there from the start shows its first event as a rise.
const kolt::Counter unanswered_requests[] = {api_requests("GET", "none"), api_requests("POST", "none"),
                                             api_requests("PATCH", "none"), api_requests("DELETE", "none")};

void count_request(const HTTP_Request& request, const HTTP_Exchange_Result& result, const HTTP_Response& response) {
  const bool answered = result.outcome == HTTP_OUTCOME_ANSWERED;
  api_requests(http_method_string(request.method()), answered ? std::to_string(response.status()) : "none").add();
}

}  // namespace

JSON_HTTP_Session::JSON_HTTP_Session(HTTP_Session_var session, int retries, int retry_timeout, int flags)
    : session_(std::move(session)), retries_(retries), retry_timeout_(retry_timeout), flags_(flags) {}

bool JSON_HTTP_Session::get(HTTP_Request& request, HTTP_Response& response, Value& value) {
  request.method(HTTP_METHOD_GET);
  return send(request, nullptr, response, &value) == Result::JSON;
}

bool JSON_HTTP_Session::post(HTTP_Request& request, const Value* body, HTTP_Response& response, Value* reply) {
  request.method(HTTP_METHOD_POST);
  return send(request, body, response, reply) != Result::FAILED;
}

bool JSON_HTTP_Session::patch(HTTP_Request& request, const Value* body, HTTP_Response& response, Value* reply) {
  request.method(HTTP_METHOD_PATCH);
  return send(request, body, response, reply) != Result::FAILED;
}

bool JSON_HTTP_Session::delete_(HTTP_Request& request, HTTP_Response& response, Value* reply) {
  request.method(HTTP_METHOD_DELETE);
  return send(request, nullptr, response, reply) != Result::FAILED;
}

JSON_HTTP_Session::Result JSON_HTTP_Session::send(HTTP_Request& request, const Value* body, HTTP_Response& response,
                                                  Value* reply) {
  response.reset();
  if (reply) *reply = Value();
  if (!session_) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to send %C: there is no session.\n"), described(request).c_str()));
    return Result::FAILED;
  }
  std::optional<json_spirit::JSON_Dump> text;
  if (body) text.emplace(*body, false);
  HTTP_Headers& headers = request.headers();
  if (!headers.get(HTTP_HEAD_ACCEPT, true)) headers.put(HTTP_HEAD_ACCEPT, json_type, true);
  if (body && !request.content_type()) request.content_type(json_type);

  HTTP_Retry retry(request.method(), retries_, retry_timeout_);
  for (;;) {
    Reply_Body answer(reply != nullptr);
    const HTTP_Exchange_Result result = session_->exchange(request, text ? &text->str() : nullptr, response, answer);
    count_request(request, result, response);
    log_warnings(response);
    const auto wait = retry.next(result.outcome, response);
    if (wait) {
      log_repetition(request, response, result, *wait);
      kolt::clock().sleep(*wait);
      continue;
    }
    if (result.outcome != HTTP_OUTCOME_ANSWERED) {
      ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to send %C: %C.\n"), described(request).c_str(),
                 printable(result.reason).c_str()));
      return Result::FAILED;
    }
    if (reply && answer.take(*reply)) return Result::JSON;
    if (reply || response.status() >= 400) log_head(request, response, answer);
    return Result::TEXT;
  }
}
