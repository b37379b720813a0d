#include "mtf_backup/restore/restore_finisher.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "ace/Log_Msg.h"
#include "mtf_backup/restore/private_dir.h"
#include "mtf_backup/set/set_path.h"

namespace MTF_BACKUP {

namespace {

bool is_same(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

}  // namespace

void Restore_Finisher::run() {
  Restore_Item item;
  int got;
  while ((got = scan_.next(item)) > 0) {
    leave_until(item.entry);
    if (item.entry.is_directory())
      enter(item.entry);
    else if (!item.entry.hard_link_target.empty() && !(item.entry.flags & CAT_SKIPPED))
      link(item);
    item = Restore_Item();
  }
  while (got == 0 && !open_.empty() && !job_.state.stopping()) leave();
}

void Restore_Finisher::enter(Catalog_Entry& entry) {
  path_ = std::move(entry.path);
  entry.path.clear();
  open_.push_back({std::move(entry), path_.size()});
}

/// The directories that @a entry does not lie below are done.
void Restore_Finisher::leave_until(const Catalog_Entry& entry) {
  while (!open_.empty() && !(open_.back().entry.source == entry.source && lies_below(entry.path, path_))) leave();
}

void Restore_Finisher::leave() {
  Restore_Item item;
  item.entry = std::move(open_.back().entry);
  item.entry.path = path_;
  open_.pop_back();
  path_.resize(open_.empty() ? 0 : open_.back().path_size);
  item.path = path_in_set(job_.record.sources[item.entry.source], item.entry.path);
  if (!job_.targets.locate(item.path, true, item.target)) return;  // it has been where the directory was entered
  Anchored_Dir dir;
  MTF::Xattrs attrs;
  if (item.entry.xattr_hash != 0) {
    if (reader_.open(item.entry))
      attrs = reader_.block().xattrs;
    else if (errno == ECANCELED && job_.state.stopping())
      return;
    else
      attributes_lost(item, errno);
  }
  if (!dir.open(item.target.root->fd.get(), item.target.below) ||
      !dresser_.dress(dir, "", item.entry.stat, attrs, item.target.shown()))
    failed(item, std::strerror(errno));
  else
    job_.tally.restored(item.entry, item.target);
}

/// Its access list may have been among them, beside which the group's bits of the mode are not what the group may.
void Restore_Finisher::attributes_lost(Restore_Item& item, int error) {
  item.entry.stat.mode &= ~static_cast<unsigned>(S_IRWXG);
  const bool is_damage = error == EBADMSG;
  ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to restore the extended attributes of %C: %C\n"), item.target.shown().c_str(),
             is_damage ? "their data in the set is damaged" : std::strerror(error)));
  job_.tally.failed(item.entry, item.path, is_damage);
}

void Restore_Finisher::link(const Restore_Item& item) {
  Target old;
  std::string old_path;
  if (job_.tally.has_failed(item.path) || links_.source_of(item, old, old_path) != Link_Plan::LINK) return;
  if (job_.tally.has_failed(old_path))
    failed(item, "its other name could not be restored");
  else if (!make_link(old, item.target, item.entry.stat.mode))
    failed(item, std::strerror(errno));
  else
    job_.tally.restored(item.entry, item.target);
}

/// False with errno. Both ends are reached without passing through a link, and the old one is what was restored there.
/// What stands under the new name is replaced at once, or stays.
bool Restore_Finisher::make_link(const Target& old, const Target& target, unsigned mode) {
  Anchored_Dir from;
  Anchored_Dir to;
  if (!from.open(old.root->fd.get(), old.directory()) || !to.open(target.root->fd.get(), target.directory()))
    return false;
  const std::string old_name = old.name();
  const std::string name = target.name();
  struct stat source;
  struct stat there;
  if (::fstatat(from.fd(), old_name.c_str(), &source, AT_SYMLINK_NOFOLLOW) != 0) return false;
  if ((source.st_mode & S_IFMT) != (mode & S_IFMT)) {
    errno = ELOOP;
    return false;
  }
  if (::fstatat(to.fd(), name.c_str(), &there, AT_SYMLINK_NOFOLLOW) != 0)
    return errno == ENOENT && link_to(source, from.path(old_name), to, name);
  if (is_same(there, source)) return true;
  Private_Dir place;
  return place.make(to.fd()) && link_to(source, from.path(old_name), place.dir(), Private_Dir::entry) &&
         callback_.rename(place.dir().path(Private_Dir::entry), to.path(name)) == MTF::E_OK;
}

/// Makes a link that was not there. False with errno; then there is none.
bool Restore_Finisher::link_to(const struct stat& source, const char* old_path, Anchored_Dir& to,
                               const std::string& name) {
  if (callback_.link(old_path, to.path(name)) != MTF::E_OK) return false;
  // Something else may have been put under the old name in the last moment.
  struct stat there;
  if (::fstatat(to.fd(), name.c_str(), &there, AT_SYMLINK_NOFOLLOW) == 0 && is_same(there, source)) return true;
  (void)callback_.unlink(to.path(name));
  errno = ELOOP;
  return false;
}

void Restore_Finisher::failed(const Restore_Item& item, const char* why) {
  ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to restore %C: %C\n"), item.target.shown().c_str(), why));
  job_.tally.failed(item.entry, item.path, false);
}

}  // namespace MTF_BACKUP
