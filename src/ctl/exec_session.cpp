#include "ctl/exec_session.h"

#include <string_view>

namespace ctl {

namespace {

// Of the protocol "v4.channel.k8s.io".
enum Channel : char { channel_stdout = 1, channel_stderr = 2, channel_status = 3 };

}  // namespace

bool Exec_Session::run(const std::string& url, std::ostream& out, std::ostream& err, json_spirit::Value& status) {
  if (!init() || !set_token()) return false;
  set_expire_time();
  reset_request();
  if (!connect(url)) return false;
  while (endpoint_->state() == HTTP_SOCK_STATE_WEBSOCKET_HANDSHAKED) {
    const char* data = nullptr;
    size_t length = 0;
    unsigned char opcode = 0;
    const ssize_t received = endpoint_->receive(data, length, opcode, nullptr);
    if (received < 0) return false;
    if (received == 0) break;
    const std::string_view payload(data + 1, length - 1);
    if (*data == channel_stdout) out << payload << std::flush;
    if (*data == channel_stderr) err << payload << std::flush;
    if (*data == channel_status) static_cast<void>(json_spirit::loads_json(payload, status));
  }
  return true;
}

}  // namespace ctl
