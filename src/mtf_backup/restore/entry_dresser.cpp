#include "mtf_backup/restore/entry_dresser.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "mtf/fs/unix/xattr.h"
#include "mtf_backup/restore/entry_differences.h"

namespace MTF_BACKUP {

namespace {

constexpr unsigned special_bits = S_ISUID | S_ISGID;

timespec to_timespec(const MTF::Timestamp& time) {
  return {static_cast<time_t>(time.sec), static_cast<long>(time.nsec)};
}

bool look(const Anchored_Dir& dir, const std::string& name, const MTF::Entry_Stat& stat, struct stat& now) {
  const int flags = AT_SYMLINK_NOFOLLOW | (name.empty() ? AT_EMPTY_PATH : 0);
  if (::fstatat(dir.fd(), name.c_str(), &now, flags) != 0) return false;
  if ((now.st_mode & S_IFMT) == (stat.mode & S_IFMT)) return true;
  errno = EEXIST;
  return false;
}

/// The mode that may be given to an entry with the owner that it now has.
unsigned safe_mode(const MTF::Entry_Stat& stat, const struct stat& now) {
  const unsigned mode = stat.mode & 07777;
  // To a directory the bit only says which group is inherited.
  if (now.st_gid == stat.gid && (now.st_uid == stat.uid || S_ISDIR(stat.mode))) return mode;
  return mode & ~special_bits;
}

}  // namespace

bool Entry_Dresser::dress(Anchored_Dir& dir, const std::string& name, const MTF::Entry_Stat& stat,
                          const MTF::Xattrs& attrs, const std::string& shown) {
  struct stat now;
  if (!look(dir, name, stat, now)) return false;
  const char* path = dir.path(name);
  Errors errors;
  set_owner(path, stat, now, errors);
  if (!look(dir, name, stat, now)) return false;
  const bool had_lists = drop_access_lists(path, attrs, errors);
  set_rights(path, stat, now, attrs, errors);
  if (callback_.set_times(path, to_timespec(stat.atime), to_timespec(stat.mtime)) != MTF::E_OK) errors.times = errno;

  if (!look(dir, name, stat, now)) return false;
  Entry_Differences differences;
  differences.owner(stat, now, errors.owner);
  differences.mode(stat, now, errors.mode);
  differences.times_and_size(stat, now, errors.times);
  if (had_lists || !attrs.empty()) differences.attributes(path, attrs, errors.attrs);
  if (!differences.empty()) tally_.differs(shown, differences.text(), differences.is_loss());
  return true;
}

void Entry_Dresser::set_owner(const char* path, const MTF::Entry_Stat& stat, const struct stat& now, Errors& errors) {
  if (now.st_uid == stat.uid && now.st_gid == stat.gid) return;
  if (callback_.set_owner(path, stat.uid, stat.gid) == MTF::E_OK) return;
  errors.owner = errno;
  // Who may not give files away may still be a member of the group.
  constexpr unsigned as_it_is = static_cast<unsigned>(-1);
  if (now.st_gid != stat.gid) (void)callback_.set_owner(path, as_it_is, stat.gid);
}

/// Whether there were any that do not belong to the entry. Goes before the mode, which would put them in force.
bool Entry_Dresser::drop_access_lists(const char* path, const MTF::Xattrs& attrs, Errors& errors) {
  MTF::Xattrs found;
  if (!MTF_FS::read_xattrs(path, found)) return false;
  bool dropped = false;
  for (const auto& [name, value] : found) {
    if (!is_access_list(name) || has_attribute(attrs, name)) continue;
    dropped = true;
    if (callback_.remove_xattr(path, name.c_str()) != MTF::E_OK) errors.attrs = errno;
  }
  return dropped;
}

/// Beside an access list, the group's bits of a mode are the most that anybody on the list may do, and not what the
/// group itself may: they come with the list, or not at all.
void Entry_Dresser::set_rights(const char* path, const MTF::Entry_Stat& stat, const struct stat& now, MTF::Xattrs attrs,
                               Errors& errors) {
  MTF::Xattrs list;
  const auto found = std::find_if(attrs.begin(), attrs.end(), [](const auto& a) { return a.first == access_list; });
  if (found != attrs.end()) {
    list.push_back(std::move(*found));
    attrs.erase(found);
  }
  unsigned mode = safe_mode(stat, now);
  if (!list.empty()) mode &= ~static_cast<unsigned>(S_IRWXG);
  if (!S_ISLNK(stat.mode) && callback_.set_mode(path, mode) != MTF::E_OK) errors.mode = errno;
  if (!attrs.empty()) set_attributes(path, mode, attrs, errors);
  // Goes last: it may take the right to write from the owner, without which some attributes cannot be set.
  if (!list.empty() && callback_.set_xattrs(path, list) != MTF::E_OK) errors.attrs = errno;
}

void Entry_Dresser::set_attributes(const char* path, unsigned mode, const MTF::Xattrs& attrs, Errors& errors) {
  if (callback_.set_xattrs(path, attrs) == MTF::E_OK) return;
  errors.attrs = errno;
  if (errors.attrs != EACCES || (mode & S_IWUSR) != 0) return;
  // An ordinary user cannot set those of a file that may not be written.
  if (callback_.set_mode(path, mode | S_IWUSR) != MTF::E_OK) return;
  errors.attrs = callback_.set_xattrs(path, attrs) == MTF::E_OK ? 0 : errno;
  if (callback_.set_mode(path, mode) != MTF::E_OK) errors.mode = errno;
}

}  // namespace MTF_BACKUP
