#include "kolt/mkdir_p.h"

#include <sys/stat.h>

#include <cerrno>
#include <string>

#include "kolt/dir_size.h"

namespace {

bool make_one(const char* path, mode_t mode, const Mkdir_Callback& callback) {
  if (::mkdir(path, mode) != 0) {
    const int error = errno;
    if (is_directory(path)) return true;  // made by another since, or on a read-only file system
    errno = error;
    return false;
  }
  if (callback && !callback(path)) {
    errno = ECANCELED;
    return false;
  }
  return true;
}

}  // namespace

bool mkdir_p(const char* path, mode_t mode, const Mkdir_Callback& callback) {
  if (path == nullptr || *path == '\0') {
    errno = ENOENT;
    return false;
  }
  if (is_directory(path)) return true;
  const std::string whole = path;
  for (std::size_t end = 0; end < whole.size();) {
    const std::size_t begin = whole.find_first_not_of('/', end);
    if (begin == std::string::npos) break;
    end = whole.find('/', begin);
    if (end == std::string::npos) end = whole.size();
    const std::string parent = whole.substr(0, end);
    if (!is_directory(parent.c_str()) && !make_one(parent.c_str(), mode, callback)) return false;
  }
  return true;
}
