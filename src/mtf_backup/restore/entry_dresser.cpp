#include "mtf_backup/restore/entry_dresser.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "ace/Log_Msg.h"

namespace MTF_BACKUP {

namespace {

timespec to_timespec(const MTF::Timestamp& time) {
  return {static_cast<time_t>(time.sec), static_cast<long>(time.nsec)};
}

bool look(const Anchored_Dir& dir, const std::string& name, struct stat& now) {
  const int flags = AT_SYMLINK_NOFOLLOW | (name.empty() ? AT_EMPTY_PATH : 0);
  return ::fstatat(dir.fd(), name.c_str(), &now, flags) == 0;
}

}  // namespace

bool Entry_Dresser::dress(Anchored_Dir& dir, const std::string& name, const MTF::Entry_Stat& stat,
                          const MTF::Xattrs& attrs, const std::string& shown) {
  struct stat now;
  if (!look(dir, name, now)) return false;
  if ((now.st_mode & S_IFMT) != (stat.mode & S_IFMT)) {
    errno = EEXIST;
    return false;
  }
  unsigned mode = stat.mode & 07777;
  if (!set_owner(dir, name, stat, now, shown)) mode &= ~static_cast<unsigned>(S_ISUID | S_ISGID);
  if (!S_ISLNK(stat.mode) && callback_.set_mode(dir.path(name), mode) != MTF::E_OK)
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to change mode of %C: %m\n"), shown.c_str()));
  if (!attrs.empty() && callback_.set_xattrs(dir.path(name), attrs) != MTF::E_OK)
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to set all extended attributes of %C: %m\n"), shown.c_str()));
  if (callback_.set_times(dir.path(name), to_timespec(stat.atime), to_timespec(stat.mtime)) != MTF::E_OK)
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to set times of %C: %m\n"), shown.c_str()));
  return true;
}

bool Entry_Dresser::set_owner(Anchored_Dir& dir, const std::string& name, const MTF::Entry_Stat& stat,
                              const struct stat& now, const std::string& shown) {
  if (now.st_uid == stat.uid && now.st_gid == stat.gid) return true;
  struct stat then;
  const bool told = callback_.set_owner(dir.path(name), stat.uid, stat.gid) == MTF::E_OK;
  const int error = told ? 0 : errno;
  // Some filesystems say yes and do nothing.
  if (told && look(dir, name, then) && then.st_uid == stat.uid && then.st_gid == stat.gid) return true;
  ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to change owner of %C to %u:%u, errno=%d\n"), shown.c_str(), stat.uid, stat.gid,
             error));
  return false;
}

}  // namespace MTF_BACKUP
