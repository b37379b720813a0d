#include "mtf_backup/run/anchored_dir.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <utility>

namespace MTF_BACKUP {

namespace {

constexpr int dir_flags = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

/// The directory that is the working directory of this thread.
thread_local const Anchored_Dir* entered = nullptr;

int open_names(int dir, const std::string& names) {
  open_how how{};
  how.flags = dir_flags;
  how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS;
  return static_cast<int>(::syscall(SYS_openat2, dir, names.c_str(), &how, sizeof how));
}

/// How much of @a below from @a start on is opened by one call: as many whole names as a path may hold.
size_t piece(const std::string& below, size_t start, size_t limit) {
  if (below.size() - start <= limit) return below.size() - start;
  const size_t end = below.rfind('/', start + limit);
  return end == std::string::npos || end <= start ? below.find('/', start) - start : end - start;
}

/// Opens below in pieces of at most @a limit bytes; with a limit of 0, name by name.
Posix_Fd open_below(int root, const std::string& below, size_t limit) {
  Posix_Fd dir;
  int at = root;
  for (size_t start = 0; start < below.size();) {
    const size_t size = limit ? piece(below, start, limit) : std::min(below.find('/', start), below.size()) - start;
    const std::string names = below.substr(start, size);
    Posix_Fd next(limit ? open_names(at, names) : ::openat(at, names.c_str(), dir_flags));
    if (!next) return next;
    dir = std::move(next);
    at = dir.get();
    start += size + 1;
  }
  return dir;
}

}  // namespace

bool Anchored_Dir::open(int root, const std::string& below) {
  close();
  if (below.empty()) {
    attach(Posix_Fd(::openat(root, ".", dir_flags)));
    return static_cast<bool>(fd_);
  }
  Posix_Fd dir = open_below(root, below, PATH_MAX - 1);
  // Some sandboxes forbid the call that does it in one step.
  if (!dir && (errno == ENOSYS || errno == EPERM)) dir = open_below(root, below, 0);
  attach(std::move(dir));
  return static_cast<bool>(fd_);
}

void Anchored_Dir::attach(Posix_Fd fd) {
  close();
  fd_ = std::move(fd);
}

void Anchored_Dir::close() {
  if (entered == this) entered = nullptr;
  fd_.reset();
}

Anchored_Dir& Anchored_Dir::operator=(Anchored_Dir&& other) {
  attach(std::move(other.fd_));
  other.close();
  return *this;
}

void Anchored_Dir::enter() {
  static thread_local const bool own_directory = ::unshare(CLONE_FS) == 0;
  entered = own_directory && ::fchdir(fd_.get()) == 0 ? this : nullptr;
}

const char* Anchored_Dir::path(const std::string& name) {
  if (entered == this) {
    path_.assign("./");
  } else {
    path_.assign("/proc/self/fd/").append(std::to_string(fd_.get())).push_back('/');
  }
  // The descriptor's own name is a link; with a component behind it, it is followed.
  path_ += name.empty() ? "." : name;
  return path_.c_str();
}

}  // namespace MTF_BACKUP
