#include "mtf_backup/restore/file_restorer.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "ace/Log_Msg.h"
#include "kolt/printable.h"

namespace MTF_BACKUP {

namespace {

bool is_about_filesystem(int error) {
  return error == ENOSPC || error == EDQUOT || error == EROFS;
}

/// No directory and not of an unknown type, and without a NUL that would cut a link short.
bool is_makeable(const Catalog_Entry& entry) {
  switch (entry.stat.mode & S_IFMT) {
    case S_IFREG:
    case S_IFIFO:
    case S_IFSOCK:
    case S_IFCHR:
    case S_IFBLK:
      return true;
    case S_IFLNK:
      return entry.link_target.find('\0') == std::string::npos;
    default:
      return false;
  }
}

bool has_data(const Catalog_Entry& entry) {
  return S_ISREG(entry.stat.mode) && entry.stat.size > 0;
}

}  // namespace

void File_Restorer::run() {
  callback_ = job_.settings.callback_factory->make();
  if (!callback_) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to make a restore callback: %m\n")));
    return job_.state.fail(MTF::E_FAILED);
  }
  dresser_ = std::make_unique<Entry_Dresser>(*callback_, job_.tally);
  Restore_Batch batch;
  while (queue_.pop(batch)) {
    for (const Restore_Item& item : batch) {
      if (job_.state.stopping()) return;
      if (!restore(item)) {
        failed(item, errno);
        continue;
      }
      ++job_.state.files;
      job_.tally.restored(item.entry, item.target);
    }
  }
}

void File_Restorer::failed(const Restore_Item& item, int error) {
  if (error == ECANCELED && job_.state.stopping()) return;
  const bool damaged = error == EBADMSG;
  const char* why = damaged ? "its data in the set is damaged" : std::strerror(error);
  ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to restore %C: %C\n"), item.target.shown().c_str(), why));
  job_.tally.failed(item.entry, item.path, damaged);
  if (is_hopeless(item, error)) job_.state.fail(MTF::E_FAILED);
}

/// Whether every further file would meet the error as well. Another filesystem that is mounted somewhere in the target
/// may be full or read-only by itself.
bool File_Restorer::is_hopeless(const Restore_Item& item, int error) const {
  if (!is_about_filesystem(error)) return is_resource_error(error);
  struct stat root;
  struct stat here;
  return ::fstat(item.target.root->fd.get(), &root) != 0 || ::fstat(dir_.fd(), &here) != 0 ||
         root.st_dev == here.st_dev;
}

/// False with errno, here and below; EBADMSG: damaged.
bool File_Restorer::restore(const Restore_Item& item) {
  static const MTF::Xattrs none;
  const Catalog_Entry& entry = item.entry;
  if (!is_makeable(entry)) {
    errno = EBADMSG;
    return false;
  }
  if (!enter(item.target)) return false;
  const bool needs_block = has_data(entry) || entry.xattr_hash != 0;
  if (needs_block && !reader_.open(entry)) return false;
  return put(item, needs_block ? reader_.block().xattrs : none);
}

bool File_Restorer::enter(const Target& target) {
  std::string directory = target.directory();
  if (dir_ && root_ == target.root && directory_ == directory) return true;
  place_.remove();
  if (!dir_.open(target.root->fd.get(), directory)) return false;
  root_ = target.root;
  directory_ = std::move(directory);
  return true;
}

/// Makes the entry in the private directory, where it gets all that it has, and only then its name.
bool File_Restorer::put(const Restore_Item& item, const MTF::Xattrs& attrs) {
  // A file of one piece is known to be right before anything is made.
  uint64_t at = 0;
  Frame_View piece;
  const int got = has_data(item.entry) ? reader_.next(at, piece) : 0;
  if (got < 0 || !enter_place()) return false;
  const bool is_file = S_ISREG(item.entry.stat.mode);
  std::string temp = place_.dir().path(Private_Dir::entry);
  if (is_file && callback_->mktemp(place_.dir().path(Private_Dir::entry), temp) != MTF::E_OK) return false;
  const std::string temp_name = temp.substr(temp.rfind('/') + 1);
  if ((is_file ? !has_data(item.entry) || write_file(temp, got, at, piece) : make_special(item.entry, temp_name)) &&
      dresser_->dress(place_.dir(), temp_name, item.entry.stat, attrs, item.target.shown()) &&
      callback_->rename(temp.c_str(), dir_.path(item.target.name())) == MTF::E_OK)
    return true;
  const int error = errno;
  callback_->unlink(temp.c_str());
  errno = error;
  return false;
}

bool File_Restorer::enter_place() {
  // Whoever may write to the target can take an empty directory away.
  struct stat st;
  if (place_ && ::fstat(place_.dir().fd(), &st) == 0 && st.st_nlink > 0) return true;
  if (!place_.make(dir_.fd())) return false;
  place_.dir().enter();
  return true;
}

/// @param got, at, piece  the first answer of the reader.
bool File_Restorer::write_file(const std::string& temp, int got, uint64_t at, Frame_View& piece) {
  const uint64_t size = reader_.file_size();
  MTF::IFile_Writer_var writer = callback_->make_file_writer();
  if (!writer || writer->open(temp.c_str(), size) != MTF::E_OK) return false;
  uint64_t done = 0;
  for (; got > 0; got = reader_.next(at, piece)) {
    if (!skip_to(*writer, done, at) || writer->write(piece.data(), piece.size()) != MTF::E_OK) return false;
    job_.state.processed += at + piece.size() - done;
    done = at + piece.size();
    if (job_.state.stopping()) {
      errno = ECANCELED;
      return false;
    }
  }
  if (got < 0 || !skip_to(*writer, done, size)) return false;
  job_.state.processed += size - done;
  // close() keeps errors to itself.
  return writer->flush() == MTF::E_OK && writer->close() == MTF::E_OK;
}

/// Leaves a hole, or zeros where the writer knows no holes.
bool File_Restorer::skip_to(MTF::IFile_Writer& writer, uint64_t done, uint64_t to) {
  static const char zeros[65536] = {};
  if (done == to || writer.skip_to(to) == MTF::E_OK) return true;
  if (errno != ENOTSUP) return false;
  for (; done < to && !job_.state.stopping(); done += std::min<uint64_t>(to - done, sizeof zeros))
    if (writer.write(zeros, static_cast<size_t>(std::min<uint64_t>(to - done, sizeof zeros))) != MTF::E_OK)
      return false;
  errno = ECANCELED;
  return done == to;
}

/// A link, FIFO, socket or device.
bool File_Restorer::make_special(const Catalog_Entry& entry, const std::string& name) {
  Anchored_Dir& dir = place_.dir();
  job_.state.processed += entry.stat.size;
  if (S_ISLNK(entry.stat.mode)) {
    if (callback_->symlink(entry.link_target.c_str(), dir.path(name)) != MTF::E_OK) return false;
  } else {
    MTF::Callback_Stat st = MTF::callback_stat(entry.stat);
    st.mode = (entry.stat.mode & S_IFMT) | 0600;
    if (callback_->mknod(dir.path(name), st) != MTF::E_OK) return false;
  }
  if (is_as_told(entry, name)) return true;
  errno = EIO;
  return false;
}

/// Whether the link or device that was made is the one of the catalog: there are filesystems that change them.
bool File_Restorer::is_as_told(const Catalog_Entry& entry, const std::string& name) const {
  const int dir = place_.dir().fd();
  if (S_ISLNK(entry.stat.mode)) {
    std::string target(entry.link_target.size() + 1, '\0');
    const ssize_t size = ::readlinkat(dir, name.c_str(), target.data(), target.size());
    return size >= 0 && target.substr(0, static_cast<size_t>(size)) == entry.link_target;
  }
  struct stat st;
  const bool is_device = S_ISCHR(entry.stat.mode) || S_ISBLK(entry.stat.mode);
  return !is_device || (::fstatat(dir, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0 && st.st_rdev == entry.stat.rdev);
}

}  // namespace MTF_BACKUP
