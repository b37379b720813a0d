#include "kolt/directory_reader.h"

#include <fcntl.h>
#include <fnmatch.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

namespace {

bool is_self_or_parent(const char* name) {
  return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

}  // namespace

bool Directory_Reader::open(const char* path, const char* pattern, bool, reparse_types_t) {
  all_ = pattern == nullptr;
  pattern_ = all_ ? "" : pattern;
  dir_.reset(path == nullptr ? nullptr : opendir(path));
  if (path == nullptr) errno = EINVAL;
  last_error_ = dir_ ? 0 : errno;
  return last_error_ == 0;
}

bool Directory_Reader::read(Directory_Entry& entry) {
  entry.name.clear();
  if (!dir_) return false;
  for (;;) {
    errno = 0;
    const dirent* found = readdir(dir_.get());
    last_error_ = errno;
    if (found == nullptr) return false;
    if (is_self_or_parent(found->d_name)) continue;
    if (!all_ && fnmatch(pattern_.c_str(), found->d_name, 0) != 0) continue;
    if (fstatat(dirfd(dir_.get()), found->d_name, &entry.stat, AT_SYMLINK_NOFOLLOW) == 0) {
      entry.name = found->d_name;
      entry.reparse_types = 0;
      return true;
    }
    if (errno != ENOENT) {
      last_error_ = errno;
      entry.name = found->d_name;
      return false;
    }
  }
}
