#include "support/kube_sim/exec_status.h"

#include "json_spirit/assign.h"
#include "json_spirit/dump.h"

namespace kube_sim {

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Object_Maker;
using json_spirit::Value;

namespace {

constexpr unsigned char status_channel = 3;

bool send_failure(Exec_Stream& stream, const std::string& message, const Object& status) {
  const std::string& protocol = stream.protocol();
  if (protocol.empty()) return true;
  const bool json = protocol.starts_with("v4.") || protocol.starts_with("v5.");
  return stream.send(status_channel, json ? json_spirit::JSON_Dump(status, false).str() : message);
}

Object failure_status(const std::string& message, const std::string& reason, const Value& cause) {
  return Object_Maker()("metadata", Object())("status", "Failure")("message", message)("reason", reason)(
             "details", Object_Maker()("causes", Array{cause}))
      .get_obj();
}

std::string joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : " ") + word;
  return text;
}

}  // namespace

bool send_exit(Exec_Stream& stream, int exit_code, const std::vector<std::string>& command) {
  const std::string& protocol = stream.protocol();
  if (exit_code == 0)
    return !(protocol.starts_with("v4.") || protocol.starts_with("v5.")) ||
           stream.send(status_channel, R"({"metadata":{},"status":"Success"})");
  const std::string code = std::to_string(exit_code);
  const std::string message = "command terminated with non-zero exit code: error executing command [" +
                              joined(command) + "], exit code " + code;
  const Value cause = Object_Maker()("reason", "ExitCode")("message", code);
  return send_failure(stream, message, failure_status(message, "NonZeroExitCode", cause));
}

bool send_not_started(Exec_Stream& stream, const std::string& why) {
  const std::string cause = "error executing command in container: failed to exec in container: " + why;
  const std::string message = "Internal error occurred: " + cause;
  Object status = failure_status(message, "InternalError", Object_Maker()("message", cause));
  status["code"] = 500;
  return send_failure(stream, message, status);
}

}  // namespace kube_sim
