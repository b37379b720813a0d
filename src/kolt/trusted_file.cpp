#include "kolt/trusted_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <memory>

#include "ace/Log_Msg.h"

namespace {

/// Whether some users of the system have no number here; then they all show as the overflow user.
bool in_partial_user_namespace() {
  std::ifstream map("/proc/self/uid_map");
  unsigned long inside = 0, outside = 0, count = 0;
  map >> inside >> outside >> count;
  return map && count < 4294967295UL;
}

bool is_trusted_owner(uid_t owner) {
  constexpr uid_t overflow_user = 65534;
  return owner == 0 || owner == ::geteuid() || (owner == overflow_user && in_partial_user_namespace());
}

/// Why an entry is not trusted; null if it is.
const char* fault_of(const std::string& path, bool is_file) {
  struct stat status;
  if (::lstat(path.c_str(), &status) == -1) return "it cannot be examined";
  if (is_file ? !S_ISREG(status.st_mode) : !S_ISDIR(status.st_mode)) return "it is no regular file";
  if (!is_trusted_owner(status.st_uid)) return "it belongs to another user";
  const bool sticky = !is_file && (status.st_mode & S_ISVTX);
  if ((status.st_mode & (S_IWGRP | S_IWOTH)) && !sticky) return "others may write it";
  return nullptr;
}

}  // namespace

bool is_trusted_file(const std::string& path) {
  if (path.empty() || path[0] != '/') {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("'%C' is not trusted: the path is not absolute.\n"), path.c_str()), false);
  }
  const std::unique_ptr<char, decltype(&std::free)> real(::realpath(path.c_str(), nullptr), &std::free);
  if (!real) ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("'%C' is not trusted: %m\n"), path.c_str()), false);

  bool is_file = true;
  for (std::string place = real.get(); !place.empty(); is_file = false) {
    if (const char* fault = fault_of(place, is_file)) {
      ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("'%C' is not trusted: %C: '%C'.\n"), path.c_str(), fault, place.c_str()),
                       false);
    }
    if (place == "/") break;
    const size_t slash = place.rfind('/');
    place.resize(slash == 0 ? 1 : slash);
  }
  return true;
}
