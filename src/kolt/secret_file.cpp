#include "kolt/secret_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include "kolt/posix_fd.h"

namespace kolt {

namespace {

bool is_own_group(gid_t group) {
  if (group == ::getegid()) return true;
  std::vector<gid_t> groups(static_cast<size_t>(std::max(::getgroups(0, nullptr), 0)));
  const int count = ::getgroups(static_cast<int>(groups.size()), groups.data());
  return std::find(groups.begin(), groups.begin() + std::max(count, 0), group) != groups.begin() + std::max(count, 0);
}

/// Null if nobody else can read or write it.
const char* openness(const struct stat& status) {
  if (status.st_uid != 0 && status.st_uid != ::geteuid()) return "belongs to another user";
  if (status.st_mode & (S_IRWXO | S_IWGRP | S_IXGRP)) return "is open to others; its mode must be 0400, 0600 or 0440";
  if ((status.st_mode & S_IRGRP) && !is_own_group(status.st_gid)) return "can be read by a group of others";
  return nullptr;
}

std::string read_all(int fd, size_t longest, std::string& content) {
  std::string text(longest + 1, '\0');
  size_t length = 0;
  while (length < text.size()) {
    const ssize_t more = ::read(fd, text.data() + length, text.size() - length);
    if (more == -1 && errno == EINTR) continue;
    if (more == -1) return std::strerror(errno);
    if (more == 0) break;
    length += static_cast<size_t>(more);
  }
  if (length > longest) return "is longer than " + std::to_string(longest) + " bytes";
  text.resize(length);
  content = std::move(text);
  return {};
}

std::string read_file(const std::string& path, bool secret, size_t longest, std::string& content) {
  const auto told = [&](const std::string& why) { return why.empty() ? why : "'" + path + "' " + why; };
  // Without a wait, should it be a pipe.
  const Posix_Fd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat status;
  if (!fd || ::fstat(fd.get(), &status) == -1) return told(std::string("cannot be read: ") + std::strerror(errno));
  if (!S_ISREG(status.st_mode)) return told("is no regular file");
  const char* const open = secret ? openness(status) : nullptr;
  return told(open ? open : read_all(fd.get(), longest, content));
}

}  // namespace

std::string read_secret_file(const std::string& path, size_t longest, std::string& content) {
  return read_file(path, true, longest, content);
}

std::string read_public_file(const std::string& path, size_t longest, std::string& content) {
  return read_file(path, false, longest, content);
}

File_Stamp::File_Stamp(const std::string& path) {
  if (::stat(path.c_str(), &status_) == -1) status_ = {};
}

bool File_Stamp::operator==(const File_Stamp& other) const {
  const auto same = [](const timespec& a, const timespec& b) { return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec; };
  return status_.st_dev == other.status_.st_dev && status_.st_ino == other.status_.st_ino &&
         status_.st_size == other.status_.st_size && same(status_.st_mtim, other.status_.st_mtim) &&
         same(status_.st_ctim, other.status_.st_ctim);
}

}  // namespace kolt
