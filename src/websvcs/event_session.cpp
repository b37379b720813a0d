#include "websvcs/event_session.h"

#include "http/http_session_factory.h"

namespace {

constexpr int event_retries = 2;
constexpr int event_retry_timeout_sec = 10;
constexpr int event_timeout_sec = 5;

}  // namespace

Event_Session::Event_Session()
    : session_(HTTP_Session_var(), event_retries, event_retry_timeout_sec), request_(HTTP_METHOD_POST, "/", false) {}

bool Event_Session::init() {
  if (!set_host_port() || !set_token()) return false;
  set_expire_time();
  session_.reset(HTTP_Session_Factory::create(host_, port_, true, nullptr, 1, nullptr, false, event_timeout_sec,
                                              event_timeout_sec, event_timeout_sec, 0));
  return static_cast<bool>(session_);
}

void Event_Session::set_request_token() {
  request_.reset();
  request_.headers().put("Authorization", token_.c_str(), true);
}

bool Event_Session::post(const std::string& url, const json_spirit::Value& document) {
  reset_request();
  request_.uri(url.c_str(), true);
  return session_.post(request_, &document, response_, nullptr);
}
