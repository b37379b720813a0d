#include "kolt/directory_stack.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

namespace kolt {

namespace {

constexpr int open_flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

}  // namespace

Directory_Stack::Directory_Stack(std::size_t max_open) : max_open_(std::max<std::size_t>(max_open, 2)) {}

bool Directory_Stack::open(const char* path) {
  Posix_Fd directory(::open(path, open_flags));
  if (!directory) return false;
  open(std::move(directory));
  return true;
}

void Directory_Stack::open(Posix_Fd directory) {
  levels_.clear();
  first_open_ = 0;
  levels_.push_back({std::move(directory)});
}

bool Directory_Stack::enter(const char* name) {
  Posix_Fd child(::openat(fd(), name, open_flags | O_NOFOLLOW));
  if (!child) return false;
  if (levels_.size() - first_open_ == max_open_ && !close_outermost()) return false;
  levels_.push_back({std::move(child)});
  return true;
}

bool Directory_Stack::leave() {
  if (levels_.empty()) return false;
  const Posix_Fd child = std::move(levels_.back().fd);
  levels_.pop_back();
  if (levels_.empty()) return false;
  if (levels_.back().fd) return true;
  if (open_again(levels_.back(), child.get())) {
    first_open_ = levels_.size() - 1;
    return true;
  }
  levels_.clear();
  return false;
}

bool Directory_Stack::close_outermost() {
  Level& outermost = levels_[first_open_];
  struct stat status;
  if (::fstat(outermost.fd.get(), &status) != 0) return false;
  outermost.device = status.st_dev;
  outermost.inode = status.st_ino;
  outermost.fd.reset();
  ++first_open_;
  return true;
}

bool Directory_Stack::open_again(Level& parent, int child) {
  Posix_Fd found(::openat(child, "..", open_flags));
  struct stat status;
  if (!found || ::fstat(found.get(), &status) != 0) return false;
  if (status.st_dev != parent.device || status.st_ino != parent.inode) {
    errno = ENOENT;
    return false;
  }
  parent.fd = std::move(found);
  return true;
}

}  // namespace kolt
