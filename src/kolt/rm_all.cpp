#include "kolt/rm_all.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <string>
#include <vector>

#include "ace/Log_Msg.h"
#include "kolt/directory_stack.h"
#include "kolt/dirents.h"
#include "kolt/path.h"
#include "kolt/posix_fd.h"
#include "kolt/printable.h"

namespace {

/// Tells one mount from another, also where both show the same file system. False if the system cannot tell.
bool mount_id(int fd, std::uint64_t& id) {
  struct statx status;
  if (::statx(fd, "", AT_EMPTY_PATH, STATX_MNT_ID, &status) != 0) return false;
  id = status.stx_mnt_id;
  return (status.stx_mask & STATX_MNT_ID) != 0;
}

class Remover {
 public:
  explicit Remover(std::string path) : path_(std::move(path)) {}
  bool run();

 private:
  /// A directory on the way down. The outermost is the one that holds the path itself.
  struct Level {
    kolt::Name_List subdirectories;
    bool kept = false;  // something in it was refused, so it stays
  };

  void start(const std::string& name);
  void remove_entry(const char* name);
  void remove_entries();
  void enter(const char* name);
  void leave();
  void refuse(int error, const char* name);

  const std::string path_;
  std::string parent_;  // the part of path_ before its last component
  std::uint64_t mount_ = 0;
  kolt::Directory_Stack walk_;
  kolt::Dirents dirents_;
  std::vector<Level> levels_;  // as many as walk_ has
  unsigned refused_ = 0;
  int first_error_ = 0;
  std::string first_refused_;
};

bool Remover::run() {
  const std::string name = kolt::basename(path_, '/');
  if (name.empty() || name == "." || name == "..")
    refuse(EINVAL, path_.c_str());
  else
    start(name);
  while (!levels_.empty())
    if (const char* next = levels_.back().subdirectories.next())
      enter(next);
    else
      leave();
  if (refused_ == 0) return true;
  errno = first_error_;
  ACE_ERROR((LM_WARNING, ACE_TEXT("Failed to remove '%C': %u left behind, the first is '%C': %m.\n"),
             printable(path_).c_str(), refused_, printable(first_refused_).c_str()));
  errno = first_error_;
  return false;
}

void Remover::start(const std::string& name) {
  parent_ = path_.substr(0, path_.find_last_not_of('/') + 1 - name.size());
  Posix_Fd parent(::open(parent_.empty() ? "." : parent_.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!parent) {
    if (errno != ENOENT && errno != ENOTDIR) refuse(errno, name.c_str());
    return;
  }
  if (!mount_id(parent.get(), mount_)) {
    refuse(ENOTSUP, name.c_str());
    return;
  }
  walk_.open(std::move(parent));
  levels_.emplace_back();
  remove_entry(name.c_str());
}

void Remover::remove_entry(const char* name) {
  if (::unlinkat(walk_.fd(), name, 0) == 0 || errno == ENOENT) return;
  if (errno == EISDIR)
    levels_.back().subdirectories.add(name);
  else
    refuse(errno, name);
}

void Remover::remove_entries() {
  // All names are read before the first is removed: not every file system goes on well in a directory that shrinks.
  kolt::Name_List names;
  dirents_.for_each(walk_.fd(), [&](const char* name) { names.add(name); });
  while (const char* name = names.next()) remove_entry(name);
}

void Remover::enter(const char* name) {
  if (!walk_.enter(name)) {
    const int error = errno;
    if (::unlinkat(walk_.fd(), name, AT_REMOVEDIR) != 0 && errno != ENOENT) refuse(error, name);
    return;
  }
  std::uint64_t mount = 0;
  if (!mount_id(walk_.fd(), mount) || mount != mount_) {
    walk_.leave();
    refuse(EXDEV, name);
    return;
  }
  levels_.emplace_back();
  remove_entries();
}

void Remover::leave() {
  const bool kept = levels_.back().kept;
  levels_.pop_back();
  if (levels_.empty()) return;
  const char* name = levels_.back().subdirectories.current();
  if (!walk_.leave()) {  // the tree was moved: nothing above can be reached
    refuse(errno, name);
    levels_.clear();
  } else if (kept) {
    levels_.back().kept = true;
  } else if (::unlinkat(walk_.fd(), name, AT_REMOVEDIR) != 0 && errno != ENOENT) {
    refuse(errno, name);
  }
}

void Remover::refuse(int error, const char* name) {
  if (++refused_ == 1) {
    first_error_ = error;
    first_refused_ = parent_;
    for (std::size_t i = 0; i + 1 < levels_.size(); ++i) {
      first_refused_ += levels_[i].subdirectories.current();
      first_refused_ += '/';
    }
    first_refused_ += name;
  }
  if (!levels_.empty()) levels_.back().kept = true;
}

}  // namespace

bool rm_all(const char* path) {
  return Remover(path == nullptr ? "" : path).run();
}
