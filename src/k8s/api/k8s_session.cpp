#include "k8s/api/k8s_session.h"

#include <fcntl.h>
#include <unistd.h>

#include "ace/Log_Msg.h"
#include "k8s/api/k8s_def.h"
#include "kolt/clock.h"
#include "kolt/get_env_r.h"
#include "kolt/natoi.h"
#include "kolt/posix_fd.h"

namespace {

constexpr char token_file[] = "/var/run/secrets/kubernetes.io/serviceaccount/token";
constexpr char host_variable[] = "KUBERNETES_SERVICE_HOST";
constexpr char port_variable[] = "KUBERNETES_SERVICE_PORT";

constexpr size_t buffer_size = 8192;

// Both kinds of line ends are left out: one in a header would end the header block there.
std::string first_line(const Posix_Fd& file) {
  std::string text;
  char buffer[buffer_size];
  for (;;) {
    const ssize_t length = ::read(file.get(), buffer, sizeof buffer);
    if (length <= 0) return text;
    text.append(buffer, static_cast<size_t>(length));
    const size_t end = text.find_first_of("\r\n");
    if (end == std::string::npos) continue;
    text.resize(end);
    return text;
  }
}

}  // namespace

K8S_Session::~K8S_Session() = default;

bool K8S_Session::get(const std::string&, json_spirit::Value&) {
  return true;
}

bool K8S_Session::get(const std::string&, std::string&, const ACE_Time_Value*) {
  return true;
}

bool K8S_Session::delete_(const std::string&) {
  return true;
}

bool K8S_Session::post(const std::string&, const json_spirit::Value&) {
  return true;
}

bool K8S_Session::patch(const std::string&, const json_spirit::Value&, const char*) {
  return true;
}

int K8S_Session::response_status() {
  return 0;
}

bool K8S_Session::set_token() {
  const Posix_Fd file(::open(token_file, O_RDONLY | O_CLOEXEC));
  if (!file) {
    const int error = errno;
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failded to open token file, errno=%d, %m\n"), error), false);
  }
  token_ = "Bearer " + first_line(file);
  return true;
}

void K8S_Session::set_expire_time() {
  expire_at_ = kolt::clock().now() + K8S_TOKEN_EXPIRED_INTERVAL;
}

bool K8S_Session::set_host_port() {
  host_ = get_env_r(host_variable);
  if (host_.empty()) ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to get k8s service host.\n")), false);
  const std::string port = get_env_r(port_variable);
  if (port.empty()) ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to get k8s service port.\n")), false);
  port_ = natoi<u_short>(port.c_str());
  return port_ != 0;
}

void K8S_Session::reset_request() {
  if (expire_at_ < kolt::clock().now()) {
    // Without a new token the old one is tried for another interval; the failure has been logged.
    static_cast<void>(set_token());
    set_expire_time();
  }
  set_request_token();
}
