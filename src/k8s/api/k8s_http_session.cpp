#include "k8s/api/k8s_http_session.h"

#include "ace/Log_Msg.h"
#include "http/http_session_factory.h"

namespace {

constexpr int retries = 5;
constexpr int retry_timeout_sec = 300;

}  // namespace

K8S_HTTP_Session::K8S_HTTP_Session()
    : session_(HTTP_Session_var(), retries, retry_timeout_sec), request_(HTTP_METHOD_GET, "/", false) {}

bool K8S_HTTP_Session::init() {
  if (!set_host_port()) return false;
  session_.reset(HTTP_Session_Factory::create(host_, port_, true, nullptr, DEFAULT_IDLE_CONNECTIONS, nullptr, false,
                                              DEFAULT_SOCKET_SEND_TIMEOUT, DEFAULT_SOCKET_RECV_TIMEOUT,
                                              DEFAULT_SOCKET_CONN_TIMEOUT, 0));
  if (!session_) ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to create http session.\n")), false);
  return true;
}

void K8S_HTTP_Session::set_request_token() {
  request_.reset();
  request_.headers().put("Authorization", token_.c_str(), true);
}

bool K8S_HTTP_Session::get(const std::string& url, json_spirit::Value& val) {
  return start_request(url) && session_.get(request_, response_, val);
}

bool K8S_HTTP_Session::delete_(const std::string& url) {
  return start_request(url) && session_.delete_(request_, response_, nullptr);
}

bool K8S_HTTP_Session::post(const std::string& url, const json_spirit::Value& val) {
  return start_request(url) && session_.post(request_, &val, response_, nullptr);
}

bool K8S_HTTP_Session::patch(const std::string& url, const json_spirit::Value& val, const char* content_type) {
  if (!start_request(url)) return false;
  request_.content_type(content_type);
  return session_.patch(request_, &val, response_, nullptr);
}

int K8S_HTTP_Session::response_status() {
  return response_.status();
}

bool K8S_HTTP_Session::start_request(const std::string& url) {
  if (!session_) ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to create k8s session.\n")), false);
  reset_request();
  request_.uri(url.c_str(), true);
  return true;
}
