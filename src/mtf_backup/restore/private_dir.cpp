#include "mtf_backup/restore/private_dir.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <memory>
#include <string_view>
#include <utility>

#include "kolt/directory_reader.h"
#include "kolt/string_sprintf.h"
#include "mtf_backup/run/run_state.h"

namespace MTF_BACKUP {

namespace {

constexpr std::string_view prefix = ".tessarin-";
constexpr char pattern[] = ".tessarin-????????????????";
constexpr mode_t private_mode = 0700;
constexpr int max_tries = 10;

bool make_name(std::string& name) {
  uint64_t random;
  if (::getrandom(&random, sizeof random, 0) != sizeof random) return false;
  name = string_sprintf("%s%016llx", prefix.data(), static_cast<unsigned long long>(random));
  return true;
}

bool is_private_name(const std::string& name) {
  return name.find_first_not_of("0123456789abcdef", prefix.size()) == name.npos;
}

/// Opens and locks a directory. None, with errno: it is locked already, or gone from this name by now.
Posix_Fd lock_dir(int parent, const std::string& name, struct stat& held) {
  Posix_Fd fd(::openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct stat named;
  if (!fd || ::flock(fd.get(), LOCK_EX | LOCK_NB) != 0 || ::fstat(fd.get(), &held) != 0 ||
      ::fstatat(parent, name.c_str(), &named, AT_SYMLINK_NOFOLLOW) != 0)
    return Posix_Fd();
  if (held.st_dev == named.st_dev && held.st_ino == named.st_ino) return fd;
  errno = ESTALE;
  return Posix_Fd();
}

/// Whether @a owner is whom this process makes things for. File servers may put another user in its place.
bool is_own(int parent, uid_t owner) {
  if (owner == ::geteuid()) return true;
  // A file that is made and opened in one step is certainly ours.
  std::string name;
  if (!make_name(name)) return false;
  const Posix_Fd fd(::openat(parent, name.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!fd) return false;
  (void)::unlinkat(parent, name.c_str(), 0);
  struct stat st;
  if (::fstat(fd.get(), &st) != 0) return false;
  if (st.st_uid == owner) return true;
  errno = EPERM;
  return false;
}

/// The parent may have added a set-group-id bit or access lists. False with errno.
bool close_to_others(int fd, mode_t mode) {
  return (mode & 07777) == private_mode || ::fchmod(fd, private_mode) == 0 || errno == ENOSYS || errno == EOPNOTSUPP;
}

struct Close_Dir {
  void operator()(DIR* dir) const { ::closedir(dir); }
};

std::unique_ptr<DIR, Close_Dir> list(int fd) {
  Posix_Fd own(::openat(fd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  std::unique_ptr<DIR, Close_Dir> dir(own ? ::fdopendir(own.get()) : nullptr);
  if (dir) (void)own.release();
  return dir;
}

bool is_empty(int fd) {
  const auto dir = list(fd);
  if (!dir) return false;
  errno = 0;
  while (const dirent* found = ::readdir(dir.get())) {
    const std::string_view name = found->d_name;
    if (name == "." || name == "..") continue;
    errno = ENOTEMPTY;
    return false;
  }
  return errno == 0;
}

/// Removes what restores make. Part of a destructor, so without memory of its own.
void clear(int fd) {
  const auto dir = list(fd);
  if (!dir) return;
  while (const dirent* found = ::readdir(dir.get()))
    if (std::string_view(found->d_name).starts_with(prefix)) (void)::unlinkat(fd, found->d_name, 0);
}

}  // namespace

bool Private_Dir::make(int parent) {
  remove();
  for (int tries = 0; tries < max_tries; ++tries) {
    std::string name;
    if (!make_name(name) || ::mkdirat(parent, name.c_str(), private_mode) != 0) return false;
    if (take(parent, std::move(name))) return true;
    if (is_resource_error(errno)) return false;
  }
  return false;
}

/// May fail once: where a sweep was quicker with the lock, or somebody has put another directory in its place.
bool Private_Dir::take(int parent, std::string name) {
  struct stat st;
  Posix_Fd fd = lock_dir(parent, name, st);
  if (fd && is_own(parent, st.st_uid) && close_to_others(fd.get(), st.st_mode)) {
    (void)::fremovexattr(fd.get(), "system.posix_acl_default");
    if (is_empty(fd.get())) {
      attach(parent, std::move(name), std::move(fd));
      return true;
    }
  }
  const int error = errno;
  (void)::unlinkat(parent, name.c_str(), AT_REMOVEDIR);
  errno = error;
  return false;
}

void Private_Dir::attach(int parent, std::string name, Posix_Fd fd) {
  parent_ = parent;
  name_ = std::move(name);
  dir_.attach(std::move(fd));
}

void Private_Dir::remove() {
  if (!dir_) return;
  const int error = errno;
  if (::unlinkat(parent_, name_.c_str(), AT_REMOVEDIR) != 0 && (errno == ENOTEMPTY || errno == EEXIST)) {
    clear(dir_.fd());
    (void)::unlinkat(parent_, name_.c_str(), AT_REMOVEDIR);
  }
  // The lock ends last.
  dir_.close();
  errno = error;
}

void Private_Dir::sweep(Anchored_Dir& parent) {
  Directory_Reader reader;
  if (!reader.open(parent.path(""), pattern, false, 0)) return;
  Directory_Entry found;
  while (reader.read(found)) {
    if (!is_private_name(found.name) || !S_ISDIR(found.stat.st_mode)) continue;
    struct stat st;
    Posix_Fd fd = lock_dir(parent.fd(), found.name, st);
    // One that is new may have the parent's set-group-id bit still.
    if (!fd || (st.st_mode & 05777) != private_mode || !is_own(parent.fd(), st.st_uid)) continue;
    Private_Dir left;
    left.attach(parent.fd(), found.name, std::move(fd));
  }
}

}  // namespace MTF_BACKUP
