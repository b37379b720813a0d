#include "mtf_backup/restore/file_restorer.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "ace/Log_Msg.h"
#include "kolt/printable.h"

namespace MTF_BACKUP {

namespace {

/// Errors that every further file would meet as well.
bool is_hopeless(int error) {
  return is_resource_error(error) || error == ENOSPC || error == EDQUOT || error == EROFS;
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
  if (is_hopeless(error)) job_.state.fail(MTF::E_FAILED);
}

/// False with errno, here and below; EBADMSG: damaged.
bool File_Restorer::restore(const Restore_Item& item) {
  static const MTF::Xattrs none;
  if (!enter(item.target)) return false;
  const Catalog_Entry& entry = item.entry;
  const bool needs_block = has_data(entry) || entry.xattr_hash != 0;
  if (needs_block && !reader_.open(entry)) return false;
  const MTF::Xattrs& attrs = needs_block ? reader_.block().xattrs : none;
  if (S_ISREG(entry.stat.mode)) return put_file(item, attrs);
  job_.state.processed += entry.stat.size;
  return put_special(item, attrs);
}

bool File_Restorer::enter(const Target& target) {
  std::string directory = target.directory();
  if (dir_ && root_ == target.root && directory_ == directory) return true;
  if (!dir_.open(target.root->fd.get(), directory)) return false;
  dir_.enter();
  root_ = target.root;
  directory_ = std::move(directory);
  return true;
}

bool File_Restorer::put_file(const Restore_Item& item, const MTF::Xattrs& attrs) {
  // A file of one piece is known to be right before anything is made.
  uint64_t at = 0;
  Frame_View piece;
  const int got = has_data(item.entry) ? reader_.next(at, piece) : 0;
  if (got < 0) return false;
  const std::string name = item.target.name();
  std::string temp;
  if (callback_->mktemp(dir_.path(name), temp) != MTF::E_OK) return false;
  const std::string temp_name = temp.substr(temp.rfind('/') + 1);
  if ((!has_data(item.entry) || write_temp(temp, got, at, piece)) &&
      dresser_->dress(dir_, temp_name, item.entry.stat, attrs, item.target.shown()) &&
      callback_->rename(temp.c_str(), dir_.path(name)) == MTF::E_OK)
    return true;
  const int error = errno;
  callback_->unlink(temp.c_str());
  errno = error;
  return false;
}

/// @param got, at, piece  the first answer of the reader.
bool File_Restorer::write_temp(const std::string& temp, int got, uint64_t at, Frame_View& piece) {
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

/// Links, FIFOs, sockets and devices are never seen half made, so they are made under their own names.
bool File_Restorer::put_special(const Restore_Item& item, const MTF::Xattrs& attrs) {
  const MTF::Entry_Stat& stat = item.entry.stat;
  const std::string name = item.target.name();
  if (!clear_way(name)) return false;
  MTF::Error_Code made;
  if (S_ISLNK(stat.mode)) {
    made = callback_->symlink(item.entry.link_target.c_str(), dir_.path(name));
  } else {
    MTF::Callback_Stat st = MTF::callback_stat(stat);
    st.mode = (stat.mode & S_IFMT) | 0600;
    made = callback_->mknod(dir_.path(name), st);
  }
  return made == MTF::E_OK && dresser_->dress(dir_, name, stat, attrs, item.target.shown());
}

bool File_Restorer::clear_way(const std::string& name) {
  struct stat st;
  if (::fstatat(dir_.fd(), name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) return errno == ENOENT;
  if (S_ISDIR(st.st_mode)) {
    errno = EISDIR;
    return false;
  }
  return callback_->unlink(dir_.path(name)) == MTF::E_OK;
}

}  // namespace MTF_BACKUP
