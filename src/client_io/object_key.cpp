#include "client_io/object_key.h"

#include <algorithm>
#include <cerrno>

#include "ace/Log_Msg.h"
#include "ace/OS_NS_string.h"
#include "client_io/held_failure.h"
#include "kolt/printable.h"

namespace client_io {

namespace {

constexpr size_t max_component = 255;
constexpr size_t max_key = 1024;

bool is_control(char c) {
  return static_cast<unsigned char>(c) < 0x20 || c == 0x7f;
}

}  // namespace

bool is_key_component(std::string_view name) {
  return !name.empty() && name.size() <= max_component && name != "." && name != ".." &&
         !name.starts_with(unfinished_mark) && name.find('/') == name.npos &&
         std::none_of(name.begin(), name.end(), is_control);
}

bool is_key(std::string_view key) {
  if (key.size() > max_key) return false;
  for (;;) {
    const size_t slash = key.find('/');
    if (!is_key_component(key.substr(0, slash))) return false;
    if (slash == key.npos) return true;
    key.remove_prefix(slash + 1);
  }
}

void log_failure(const char* operation, std::string_view key, const std::string& root) {
  log_failure(operation, key, root, {});
}

void log_failure(const char* operation, std::string_view key, const std::string& root, const std::string& detail) {
  const int error = errno;
  const std::string line = std::string("Failed to ") + operation + " object \"" + printable(key) + "\" in \"" +
                           printable(root) + "\": " + ACE_OS::strerror(error) +
                           (detail.empty() ? "" : " (" + detail + ")") + ".";
  if (!Held_Failure::keep(line)) ACE_ERROR((LM_ERROR, ACE_TEXT("%C\n"), line.c_str()));
  errno = error;
}

bool check_key(const char* operation, std::string_view key, const std::string& root) {
  if (is_key(key)) return true;
  errno = EINVAL;
  log_failure(operation, key, root);
  return false;
}

}  // namespace client_io
