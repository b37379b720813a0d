#include "mtf_backup/set/entry_reader.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "mtf/core/little_endian.h"
#include "mtf_backup/set/damage.h"

namespace MTF_BACKUP {

ssize_t Entry_Reader::Source::read(uint64_t offset, char* to, size_t n) {
  const ssize_t got = medium->read(offset, to, n);
  if (got < 0) error = errno;
  return got;
}

/// @a why counts where the medium itself has not failed.
bool Entry_Reader::failed(uint64_t offset, const char* why) {
  if (source_.error == 0) return tell_damage(media_.name(entry_->set, entry_->channel), offset, why);
  errno = source_.error;
  return false;
}

bool Entry_Reader::open(const Catalog_Entry& entry) {
  entry_ = &entry;
  Medium_Reader_var medium = media_.get(entry.set, entry.channel);
  if (!medium) return false;
  if (source_.medium != medium) reader_.emplace(source_);
  source_.medium = std::move(medium);
  source_.error = 0;
  const char* problem = read_block();
  return !problem || failed(entry.offset, problem);
}

/// Null, or what is wrong with the block.
const char* Entry_Reader::read_block() {
  if (!reader_->read_entry(entry_->offset, block_, data_)) return reader_->error().c_str();
  left_ = entry_->data_size;
  hash_.reset();
  extent_ = MTF::File_Extent();
  if ((block_.stat.mode & S_IFMT) != (entry_->stat.mode & S_IFMT) ||
      (data_.sparse ? data_.file_size != entry_->stat.size : data_.size != left_))
    return "the block there is another one than the catalog tells";
  if (xattr_hash(block_.xattrs) != entry_->xattr_hash) return "the extended attributes are not those of the catalog";
  const uint64_t end = source_.medium->size();
  if (data_.size > end || data_.offset > end - data_.size) return "the medium ends in the data";
  if (data_.sparse) return next_extent();
  extent_ = {0, data_.offset, data_.size};
  return nullptr;
}

/// Goes to the extent behind the one that is used up. As read_block().
const char* Entry_Reader::next_extent() {
  const uint64_t end = extent_.at;
  if (!reader_->read_extent(data_, extent_)) return reader_->error().c_str();
  if (extent_.size > left_ || (extent_.size == 0 && left_ > 0)) return "the data is not as long as the catalog tells";
  if (extent_.size > 0 && (extent_.at < end || extent_.at + extent_.size > data_.file_size))
    return "an extent lies behind its place or outside of its file";
  char place[sizeof extent_.at];
  MTF::put_le(place, extent_.at);
  if (extent_.size > 0) hash_.update(place, sizeof place);
  return nullptr;
}

const char* Entry_Reader::end_of_data() const {
  const bool has_hash = data_.sparse || entry_->data_size > 0;
  return has_hash && hash_.value() != entry_->data_hash ? "the data is not what was backed up" : nullptr;
}

bool Entry_Reader::damage(MTF::File_Damage& damage, uint64_t& valid_size) {
  MTF::File_End end;
  if (reader_->read_end(data_, end) && reader_->read_damage(end, damage, valid_size)) return true;
  return failed(entry_->offset, reader_->error().c_str());
}

int Entry_Reader::next(uint64_t& at, Frame_View& bytes) {
  bytes = Frame_View();
  if (left_ == 0) {
    // Where there was data, its last piece was checked.
    const char* problem = entry_->data_size == 0 ? end_of_data() : nullptr;
    return !problem || failed(entry_->offset, problem) ? 0 : -1;
  }
  const uint64_t place = extent_.offset;
  const size_t most = static_cast<size_t>(std::min<uint64_t>(extent_.size, frame_size));
  if (!source_.medium->view(place, most, bytes)) return -1;
  at = extent_.at;
  const char* problem = take(bytes);
  if (!problem) return 1;
  bytes = Frame_View();
  (void)failed(place, problem);
  return -1;
}

/// Counts a piece as read. Null, or what is wrong with it or behind it.
const char* Entry_Reader::take(const Frame_View& bytes) {
  if (bytes.size() == 0) return "the medium ends in the data";
  hash_.update(bytes.data(), bytes.size());
  left_ -= bytes.size();
  extent_.at += bytes.size();
  extent_.offset += bytes.size();
  extent_.size -= bytes.size();
  const char* problem = extent_.size == 0 && data_.sparse ? next_extent() : nullptr;
  return problem || left_ > 0 ? problem : end_of_data();
}

}  // namespace MTF_BACKUP
