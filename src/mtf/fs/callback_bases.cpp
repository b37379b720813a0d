// Base behaviours of the callbacks that work on a POSIX filesystem.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "mtf/core/backup_callback.h"
#include "mtf/core/restore_callback.h"
#include "mtf/fs/unix/util.h"
#include "mtf/fs/unix/xattr.h"

namespace MTF {

namespace {

const std::string temp_pattern = ".tessarin-XXXXXX";

Error_Code result(bool ok) {
  return ok ? E_OK : E_FAILED;
}

}  // namespace

bool IBackup_Callback::read_xattrs(const char* path, Xattrs& attrs) {
  return MTF_FS::read_xattrs(path, attrs);
}

bool IBackup_Callback::check_directory(const char* path) {
  const int fd = ::open(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) return false;
  ::close(fd);
  return true;
}

bool IBackup_Callback::full_lstat(const char* path, ACE_stat& st) {
  return MTF_FS::lstat(path, &st) == 0;
}

Error_Code Restore_Callback_Base::unlink(const char* path) {
  return result(::unlink(path) == 0 || errno == ENOENT);
}

Error_Code Restore_Callback_Base::mknod(const char* path, const Callback_Stat& st) {
  return result(::mknod(path, static_cast<mode_t>(st.mode), static_cast<dev_t>(st.rdev)) == 0);
}

Error_Code Restore_Callback_Base::set_dir_time(const char* path, unsigned long atime, unsigned long mtime,
                                               unsigned long) {
  return set_times(path, timespec{static_cast<time_t>(atime), 0}, timespec{static_cast<time_t>(mtime), 0});
}

Error_Code Restore_Callback_Base::mktemp(const char* path, std::string& temp) {
  const std::string whole = path;
  // A name of its own length, not the file's: that one may be as long as a name can be.
  std::string name = whole.substr(0, whole.rfind('/') + 1) + temp_pattern;
  const int fd = ::mkostemp(name.data(), O_CLOEXEC);
  if (fd < 0) return E_FAILED;
  ::close(fd);
  temp = std::move(name);
  return E_OK;
}

Error_Code Restore_Callback_Base::set_xattrs(const char* path, const Xattrs& attrs) {
  return result(MTF_FS::set_xattrs(path, attrs));
}

Error_Code Restore_Callback_Base::set_times(const char* path, const timespec& atime, const timespec& mtime) {
  const timespec times[2] = {atime, mtime};
  return result(::utimensat(AT_FDCWD, path, times, AT_SYMLINK_NOFOLLOW) == 0);
}

Error_Code Restore_Callback_Base::set_mode(const char* path, unsigned int mode) {
  return result(::fchmodat(AT_FDCWD, path, mode & 07777, AT_SYMLINK_NOFOLLOW) == 0 || errno == EOPNOTSUPP);
}

Error_Code Restore_Callback_Base::set_owner(const char* path, unsigned int uid, unsigned int gid) {
  return result(::lchown(path, uid, gid) == 0);
}

Error_Code Restore_Callback_Base::rename(const char* from, const char* to) {
  return result(::rename(from, to) == 0);
}

Error_Code Restore_Callback_Base::remove_xattr(const char* path, const char* name) {
  return result(::lremovexattr(path, name) == 0 || errno == ENODATA);
}

}  // namespace MTF
