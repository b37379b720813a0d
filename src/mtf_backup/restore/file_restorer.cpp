#include "mtf_backup/restore/file_restorer.h"

#include <fcntl.h>
#include <sys/stat.h>

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

}  // namespace

void File_Restorer::run() {
  callback_ = job_.settings.callback_factory->make();
  if (!callback_) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to make a restore callback: %m\n")));
    return job_.state.fail(MTF::E_FAILED);
  }
  dresser_ = std::make_unique<Entry_Dresser>(*callback_);
  Restore_Batch batch;
  while (queue_.pop(batch)) {
    for (const Restore_Item& item : batch) {
      if (job_.state.stopping()) return;
      if (!restore(item)) failed(item, errno);
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
  if (!enter(item.target)) return false;
  On_Medium block;
  const Catalog_Entry& entry = item.entry;
  const bool regular = S_ISREG(entry.stat.mode);
  if (((regular && entry.data_size > 0) || entry.xattr_hash != 0) && !read_block(entry, block)) return false;
  if (regular) return put_file(item, block);
  job_.state.processed += entry.stat.size;
  return put_special(item, block);
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

MTF::Set_Reader* File_Restorer::reader_of(unsigned channel, Medium_Reader*& medium) {
  medium = job_.media.get(channel);
  if (!medium) return nullptr;
  if (readers_.size() <= channel) readers_.resize(channel + 1);
  if (!readers_[channel]) readers_[channel] = std::make_unique<MTF::Set_Reader>(*medium);
  return readers_[channel].get();
}

bool File_Restorer::read_block(const Catalog_Entry& entry, On_Medium& block) {
  Medium_Reader* medium;
  MTF::Set_Reader* reader = reader_of(entry.channel, medium);
  if (!reader) return false;
  errno = 0;
  const char* problem = nullptr;
  if (!reader->read_entry(entry.offset, block.entry, block.data)) {
    if (errno != 0 && errno != EBADMSG) return false;
    problem = reader->error().c_str();
  } else if ((block.entry.stat.mode & S_IFMT) != (entry.stat.mode & S_IFMT) || block.data.size != entry.data_size) {
    problem = "the block there is another one than the catalog tells";
  } else if (xattr_hash(block.entry.xattrs) != entry.xattr_hash) {
    problem = "the extended attributes are not those of the catalog";
  }
  if (!problem) return true;
  ACE_ERROR(
      (LM_ERROR, ACE_TEXT("%C is damaged at %Q: %C\n"), job_.media.name(entry.channel).c_str(), entry.offset, problem));
  errno = EBADMSG;
  return false;
}

/// The data behind the first @a done bytes, as far as it lies in one piece. With the last one the whole is checked.
bool File_Restorer::next_piece(const Catalog_Entry& entry, const On_Medium& block, uint64_t done, Frame_View& piece) {
  Medium_Reader* medium = job_.media.get(entry.channel);
  const size_t left = static_cast<size_t>(block.data.size - done);
  piece = Frame_View();
  if (!medium || !medium->view(block.data.offset + done, left, piece)) return false;
  hash_.update(piece.data(), piece.size());
  const bool last = piece.size() == left;
  if (piece.size() > 0 && (!last || hash_.value() == entry.data_hash)) return true;
  ACE_ERROR((LM_ERROR, ACE_TEXT("%C is damaged at %Q: the data is not what was backed up\n"),
             job_.media.name(entry.channel).c_str(), block.data.offset));
  errno = EBADMSG;
  return false;
}

bool File_Restorer::put_file(const Restore_Item& item, const On_Medium& block) {
  // A file of one piece is known to be right before anything is made.
  Frame_View piece;
  hash_.reset();
  if (block.data.size > 0 && !next_piece(item.entry, block, 0, piece)) return false;
  const std::string name = item.target.name();
  std::string temp;
  if (callback_->mktemp(dir_.path(name), temp) != MTF::E_OK) return false;
  const std::string temp_name = temp.substr(temp.rfind('/') + 1);
  if (write_temp(item, block, temp, piece) &&
      dresser_->dress(dir_, temp_name, item.entry.stat, block.entry.xattrs, item.target.shown()) &&
      callback_->rename(temp.c_str(), dir_.path(name)) == MTF::E_OK)
    return true;
  const int error = errno;
  callback_->unlink(temp.c_str());
  errno = error;
  return false;
}

bool File_Restorer::write_temp(const Restore_Item& item, const On_Medium& block, const std::string& temp,
                               Frame_View& piece) {
  const uint64_t size = block.data.size;
  if (size == 0) return true;
  MTF::IFile_Writer_var writer = callback_->make_file_writer();
  if (!writer || writer->open(temp.c_str(), size) != MTF::E_OK) return false;
  for (uint64_t done = 0;;) {
    if (writer->write(piece.data(), piece.size()) != MTF::E_OK) return false;
    done += piece.size();
    job_.state.processed += piece.size();
    if (done == size) break;
    if (job_.state.stopping()) {
      errno = ECANCELED;
      return false;
    }
    if (!next_piece(item.entry, block, done, piece)) return false;
  }
  // close() keeps errors to itself.
  return writer->flush() == MTF::E_OK && writer->close() == MTF::E_OK;
}

/// Links, FIFOs, sockets and devices are never seen half made, so they are made under their own names.
bool File_Restorer::put_special(const Restore_Item& item, const On_Medium& block) {
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
  return made == MTF::E_OK && dresser_->dress(dir_, name, stat, block.entry.xattrs, item.target.shown());
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
