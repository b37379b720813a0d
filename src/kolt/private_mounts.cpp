#include "kolt/private_mounts.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "kolt/posix_fd.h"

namespace kolt {

namespace fs = std::filesystem;

namespace {

bool tell(int error) {
  errno = error;
  return error == 0;
}

bool write_map(const char* path, const std::string& text) {
  const Posix_Fd file(::open(path, O_WRONLY | O_CLOEXEC));
  return file && ::write(file.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

/// The kernel takes no group map from an ordinary user who could still change his groups.
bool enter_user_namespace() {
  const uid_t user = ::geteuid();
  const gid_t group = ::getegid();
  return ::unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0 && write_map("/proc/self/setgroups", "deny") &&
         write_map("/proc/self/uid_map", "0 " + std::to_string(user) + " 1") &&
         write_map("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
}

bool mount_tmpfs(const fs::path& path) {
  return ::mount("tmpfs", path.c_str(), "tmpfs", MS_NOSUID | MS_NODEV, "mode=755") == 0;
}

/// Makes @a entry appear below @a directory as well. What cannot be shown (a mount point that is gone) is left out.
void show_again(const fs::directory_entry& entry, const fs::path& directory) {
  const fs::path target = directory / entry.path().filename();
  std::error_code ignored;
  if (entry.is_symlink(ignored)) {
    fs::copy_symlink(entry.path(), target, ignored);
    return;
  }
  if (entry.is_directory(ignored))
    fs::create_directory(target, ignored);
  else
    ::mknod(target.c_str(), S_IFREG | 0600, 0);
  ::mount(entry.path().c_str(), target.c_str(), nullptr, MS_BIND | MS_REC, nullptr);
}

/// @a top becomes a tmpfs that shows what it held.
bool cover_and_show(const fs::path& top) {
  const Posix_Fd covered(::open(top.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!covered || !mount_tmpfs(top)) return false;
  // The slash: what is listed is the directory, not the link to it.
  std::error_code error;
  fs::directory_iterator entry("/proc/self/fd/" + std::to_string(covered.get()) + "/", error);
  for (; !error && entry != fs::directory_iterator(); entry.increment(error)) show_again(*entry, top);
  return tell(error.value());
}

}  // namespace

bool enter_private_mounts() {
  if (::unshare(CLONE_NEWNS) != 0 && !enter_user_namespace()) return false;
  return ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

bool cover_directory(const std::string& path) {
  std::error_code error;
  const fs::path wanted = fs::weakly_canonical(fs::absolute(path, error), error);
  if (error) return tell(error.value());
  fs::path top = wanted;
  while (!fs::exists(top, error) && top.has_relative_path()) top = top.parent_path();
  if (!fs::is_directory(top, error)) return tell(ENOTDIR);
  if (!top.has_relative_path()) return tell(ENOENT);
  if (top == wanted) return mount_tmpfs(top);
  if (!cover_and_show(top)) return false;
  fs::create_directories(wanted, error);
  return tell(error.value());
}

}  // namespace kolt
