#include "mtf/fs/unix/xattr.h"

#include <sys/xattr.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

namespace MTF_FS {

namespace {

/// Calls a function of the l*xattr kind until its answer fits in @a out. The size is asked for only where the first
/// guess, which is right for nearly all files, is too small.
template <typename Call>
bool sized_read(std::string& out, size_t guess, Call call) {
  for (;;) {
    out.resize(guess);
    ssize_t size = call(out.data(), out.size());
    if (size >= 0) {
      out.resize(static_cast<size_t>(size));
      return true;
    }
    if (errno != ERANGE) return false;
    size = call(nullptr, 0);
    if (size < 0) return false;
    guess = static_cast<size_t>(size) + 64;  // it may be growing
  }
}

}  // namespace

bool read_xattrs(const char* path, MTF::Xattrs& attrs) {
  attrs.clear();
  std::string names;
  if (!sized_read(names, 256, [&](char* at, size_t size) { return ::llistxattr(path, at, size); }))
    return errno == ENOTSUP;
  for (size_t at = 0; at < names.size(); at += std::strlen(&names[at]) + 1) {
    const char* name = &names[at];
    std::string value;
    if (sized_read(value, 256, [&](char* to, size_t size) { return ::lgetxattr(path, name, to, size); }))
      attrs.emplace_back(name, std::move(value));
    else if (errno != ENODATA)
      return false;
  }
  std::sort(attrs.begin(), attrs.end());
  return true;
}

bool set_xattrs(const char* path, const MTF::Xattrs& attrs) {
  int error = 0;
  for (const auto& [name, value] : attrs)
    if (::lsetxattr(path, name.c_str(), value.data(), value.size(), 0) != 0 && error == 0) error = errno;
  if (error != 0) errno = error;
  return error == 0;
}

}  // namespace MTF_FS
