#include "k8s/api/k8s_websocket_command_handler.h"

#include <exception>
#include <memory>
#include <utility>

#include <boost/regex.hpp>

#include "ace/Log_Msg.h"
#include "host/host_manager.h"
#include "host/rsa_decoder.h"
#include "k8s/api/k8s_session.h"
#include "k8s/api/k8s_session_factory.h"
#include "k8s/api/k8s_utils.h"
#include "kolt/check_macros.h"
#include "kolt/http_util.h"
#include "kolt/secure_memory.h"
#include "kolt/string_sprintf.h"

namespace {

constexpr unsigned short file_name_length = 8;
constexpr int oaep_sha256 = 1;
/// A string keeps shorter texts inside itself, where they are not wiped.
constexpr size_t shortest_on_heap = 64;

/// Empty when it can't be deciphered.
secure_string rsa_decrypt_string(const std::string& encrypted) {
  const auto& private_key = Host_Manager::instance()->rsa_prvkey();
  const RSA_Decoder decoder(reinterpret_cast<const unsigned char*>(encrypted.data()), encrypted.size(),
                            private_key.data(), private_key.size(), true, oaep_sha256);
  secure_string text;
  text.reserve(shortest_on_heap);
  if (decoder) text.assign(reinterpret_cast<const char*>(decoder.get()), decoder.length());
  return text;
}

}  // namespace

typedef K8S_Websocket_Command_Handler::Command_Handler Command_Handler;

Command_Handler::Command_Handler(const std::string& cmds, const std::map<std::string, std::string>& params,
                                 ACE_UINT64 timeout)
    : cmds_(cmds), params_(params), timeout_(static_cast<time_t>(timeout), 0) {}

bool Command_Handler::operator()(const std::string& url) const {
  std::string response;
  return (*this)(url, response);
}

bool Command_Handler::operator()(const std::string& url, std::string& response) const {
  if (cmds_.empty()) return true;
  std::string cmds_regex = cmds_;
  if (!fill_in(cmds_regex)) return false;
  const std::unique_ptr<K8S_Session> sess = K8S_Session_Factory::create("websocket");
  KOLT_RETURN_IF_NULL(sess, false);

  const std::string new_cmds = string_sprintf("echo \"%1$s\" > /tmp/%2$s && sh /tmp/%2$s", cmds_regex.c_str(),
                                              k8s::generate_random_string(file_name_length).c_str());
  std::string encoded_cmds;
  if (!http_encode_string(new_cmds.c_str(), HUT_FLAG_JS_ENCODE_URI_COMPONENT, encoded_cmds) || encoded_cmds.empty()) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to encode command:\n%C.\n"), new_cmds.c_str()), false);
  }
  // The template, never the text that is sent or the URL: those hold the secrets.
  ACE_DEBUG((LM_INFO, ACE_TEXT("Request command of url is\n%C.\n"), cmds_.c_str()));
  if (!sess->get(string_sprintf("%s%s", url.c_str(), encoded_cmds.c_str()), response, &timeout_)) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to send execute script:\n%C.\n"), cmds_.c_str()), false);
  }
  if (sess->response_status() == -1) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to execute script:\n%C.\n"), cmds_.c_str()), false);
  }
  ACE_DEBUG((LM_INFO, ACE_TEXT("Websocket response message\n%C\n"), response.c_str()));
  return true;
}

/// Puts the secrets in the places of their names.
bool Command_Handler::fill_in(std::string& text) const {
  for (const auto& [name, value] : params_) {
    try {
      const boost::regex place("\\{\\{" + name + "\\}\\}");
      const secure_string val = rsa_decrypt_string(value);
      if (val.empty()) {
        ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to decrypt the value of %C.\n"), name.c_str()), false);
      }
      text = boost::regex_replace(text, place, val.c_str());
    } catch (const std::exception& e) {
      // A name that is no regular expression, or one that takes too long. The text of the error holds the name alone.
      ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to fill in the value of %C: %C\n"), name.c_str(), e.what()), false);
    }
  }
  return true;
}

K8S_Websocket_Command_Handler::K8S_Websocket_Command_Handler(std::string url, const std::string& pre_cmds,
                                                             const std::string& on_success_cmds,
                                                             const std::string& on_failure_cmds,
                                                             const std::map<std::string, std::string>& cmds_params,
                                                             ACE_UINT64 timeout)
    : url_(std::move(url)),
      pre_cmds_handler_(pre_cmds, cmds_params, timeout),
      on_success_cmds_handler_(on_success_cmds, cmds_params, timeout),
      on_failure_cmds_handler_(on_failure_cmds, cmds_params, timeout) {}

K8S_Websocket_Command_Handler::~K8S_Websocket_Command_Handler() = default;

bool K8S_Websocket_Command_Handler::handle_pre_commands_result() const {
  return pre_cmds_handler_(url_);
}

bool K8S_Websocket_Command_Handler::handle_on_success_commands_result() const {
  return on_success_cmds_handler_(url_);
}

bool K8S_Websocket_Command_Handler::handle_on_failure_commands_result() const {
  return on_failure_cmds_handler_(url_);
}
