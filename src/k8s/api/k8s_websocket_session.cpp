#include "k8s/api/k8s_websocket_session.h"

#include <string_view>
#include <utility>

#include "ace/Log_Msg.h"
#include "http/websocket_connection_factory.h"
#include "json_spirit/extract.h"
#include "json_spirit/json_spirit_value.h"
#include "kolt/check_macros.h"

namespace {

constexpr int connect_timeout_sec = 120;
constexpr int idle_timeout_sec = 600;
constexpr char protocol[] = "v4.channel.k8s.io";

}  // namespace

K8S_WebSocket_Session::~K8S_WebSocket_Session() {
  if (endpoint_ && endpoint_->state() != HTTP_SOCK_STATE_CLOSED) endpoint_->close();
}

bool K8S_WebSocket_Session::init() {
  if (!set_host_port()) return false;
  endpoint_ = WebSocket_Connection_Factory::create(host_, port_, true, nullptr, nullptr, false, connect_timeout_sec);
  KOLT_RETURN_IF_NULL(endpoint_, false);
  endpoint_->configure(idle_timeout_sec);
  return true;
}

void K8S_WebSocket_Session::set_request_token() {
  endpoint_->request().headers().put("Authorization", token_.c_str(), true);
}

bool K8S_WebSocket_Session::get(const std::string& url, std::string& body, const ACE_Time_Value* timeout) {
  KOLT_RETURN_IF_NULL(endpoint_, false);
  reset_request();
  if (!connect(url)) return false;
  size_t last = 0;
  if (!read_frames(body, last, timeout)) return false;

  json_spirit::Value document;
  if (!json_spirit::loads_json(std::string_view(body).substr(last), document) ||
      document.type() != json_spirit::obj_type) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to parse response data '%C'.\n"), body.c_str()), false);
  }
  const std::string* const status =
      json_spirit::object_get_any_ptr<const std::string>(std::as_const(document).get_obj(), "status");
  KOLT_RETURN_IF_EMPTY(status, false);
  if (*status != "Success") {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Websocket response status is failed.\n")), false);
  }
  resp_status_ok_ = true;
  body.resize(last);
  return true;
}

int K8S_WebSocket_Session::response_status() {
  return resp_status_ok_ ? 0 : -1;
}

bool K8S_WebSocket_Session::connect(const std::string& url) {
  HTTP_Request& request = endpoint_->request();
  request.headers().put("sec-websocket-protocol", protocol, true);
  request.uri(url.c_str(), true);
  if (endpoint_->connect() < 0 || endpoint_->handshake() < 0) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to handshake with k8s api server.\n")), false);
  }
  return true;
}

/// @param last  where the payload of the last frame that has one begins in @a body.
bool K8S_WebSocket_Session::read_frames(std::string& body, size_t& last, const ACE_Time_Value* timeout) {
  while (endpoint_->state() == HTTP_SOCK_STATE_WEBSOCKET_HANDSHAKED) {
    const char* data = nullptr;
    size_t length = 0;
    unsigned char opcode = 0;
    const ssize_t n = endpoint_->receive(data, length, opcode, timeout);
    if (n < 0) {
      ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to recieve frame from k8s api server.\n")), false);
    }
    if (n == 0) break;
    if (n == 1) continue;  // the channel byte alone
    last = body.size();
    body.append(data + 1, length - 1);
  }
  return true;
}
