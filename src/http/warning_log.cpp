#include "http/warning_log.h"

#include <strings.h>

#include <mutex>
#include <set>
#include <string>

#include "ace/Log_Msg.h"
#include "kolt/printable.h"

namespace {

/// A server that words each of its warnings anew fills the log and the memory no further.
constexpr std::size_t max_texts = 1000;

bool is_new(const std::string& text) {
  static std::mutex lock;
  static std::set<std::string> told;
  const std::lock_guard guard(lock);
  return told.size() < max_texts && told.insert(text).second;
}

}  // namespace

void log_warnings(const HTTP_Response& response) {
  const char* name = http_head_string(HTTP_HEAD_WARNING, 0);
  for (const HTTP_Headers::Field& field : response.headers())
    if (::strcasecmp(field.name.c_str(), name) == 0 && is_new(field.value))
      ACE_DEBUG((LM_INFO, ACE_TEXT("The server warns: %C\n"), printable(field.value).c_str()));
}
