#include "mtf_backup/set/medium_index.h"

#include <algorithm>
#include <cerrno>

#include "mtf_backup/set/damage.h"
#include "mtf_backup/set/frame.h"
#include "mtf_backup/set/hash.h"
#include "mtf_backup/set/open_object.h"
#include "mtf_backup/set/wire.h"

namespace MTF_BACKUP {

namespace {

constexpr char index_magic[] = "TESSIDX1";
constexpr size_t check_size = sizeof(uint64_t);
constexpr size_t page_records = 256;
constexpr size_t flush_size = 64 * 1024;

// The checks of header and trailer are seeded with the identity, those of the records with what follows it.
uint64_t record_seed(uint64_t identity, uint64_t number) {
  return identity + 1 + number;
}

void seal(std::string& block, uint64_t seed) {
  put(block, hash64(block, seed));
}

bool is_sealed(std::string_view block, uint64_t seed) {
  const std::string_view content = block.substr(0, block.size() - check_size);
  return get_at<uint64_t>(block, content.size()) == hash64(content, seed);
}

}  // namespace

bool Index_Writer::open(Client_IO_Base& storage, const Medium_Id& id) {
  identity_ = object_identity(id.set_uuid, id.set_dir, index_name(id));
  std::string header(index_magic, sizeof index_magic - 1);
  put(header, static_cast<uint32_t>(frame_size));
  put(header, static_cast<uint32_t>(stored_form(id.compression)));
  put(header, uint64_t(0));
  seal(header, identity_);
  buffer_ = header;
  return writer_.open(storage, id.set_dir, index_name(id));
}

bool Index_Writer::append(const Frame_Record& record) {
  std::string block;
  put(block, record.stored_offset);
  put(block, record.stored_size);
  put(block, record.plain_size);
  put(block, record.hash);
  seal(block, record_seed(identity_, frames_));
  buffer_ += block;
  ++frames_;
  stored_size_ += record.stored_size;
  plain_size_ += record.plain_size;
  return buffer_.size() < flush_size || flush();
}

bool Index_Writer::flush() {
  if (!writer_.write(buffer_.data(), buffer_.size())) return false;
  buffer_.clear();
  return true;
}

bool Index_Writer::finish(Stored_Object& object) {
  std::string trailer;
  put(trailer, frames_);
  put(trailer, plain_size_);
  put(trailer, stored_size_);
  seal(trailer, identity_);
  buffer_ += trailer;
  return flush() && writer_.commit(object);
}

bool Index_Reader::open(Client_IO_Base& storage, const Medium_Id& id, uint64_t size, uint64_t medium_size) {
  key_ = id.set_dir + "/" + index_name(id);
  form_ = stored_form(id.compression);
  identity_ = object_identity(id.set_uuid, id.set_dir, index_name(id));
  medium_size_ = medium_size;
  reader_ = open_object(storage, key_, size);
  return reader_ && check_header() && check_trailer();
}

bool Index_Reader::read_exactly(uint64_t offset, char* to, size_t n) {
  return MTF_BACKUP::read_exactly(*reader_, key_, offset, to, n);
}

bool Index_Reader::check_header() {
  if (reader_->size() < index_header_size + index_trailer_size)
    return tell_damage(key_, 0, "it is too short for an index");
  char bytes[index_header_size];
  if (!read_exactly(0, bytes, sizeof bytes)) return false;
  const std::string_view header(bytes, sizeof bytes);
  if (!header.starts_with(index_magic)) return tell_damage(key_, 0, "it does not begin like an index");
  if (!is_sealed(header, identity_)) return tell_damage(key_, 0, "its header is not that of this set's index");
  if (get_at<uint32_t>(header, 8) != frame_size) return tell_damage(key_, 8, "it is made for frames of another size");
  if (get_at<uint32_t>(header, 12) != static_cast<uint32_t>(form_))
    return tell_damage(key_, 12, "it is made for a medium of another compression");
  return true;
}

bool Index_Reader::check_trailer() {
  const uint64_t at = reader_->size() - index_trailer_size;
  char bytes[index_trailer_size];
  if (!read_exactly(at, bytes, sizeof bytes)) return false;
  const std::string_view trailer(bytes, sizeof bytes);
  if (!is_sealed(trailer, identity_)) return tell_damage(key_, at, "its trailer is not that of this set's index");
  const uint64_t frames = get_at<uint64_t>(trailer, 0);
  const uint64_t plain_size = get_at<uint64_t>(trailer, 8);
  const uint64_t records_size = at - index_header_size;
  if (records_size % index_record_size != 0 || records_size / index_record_size != frames)
    return tell_damage(key_, at, "it has not as many records as it says");
  if (plain_size / frame_size + (plain_size % frame_size != 0) != frames)
    return tell_damage(key_, at + 8, "the size of its medium does not fit its frames");
  if (get_at<uint64_t>(trailer, 16) != medium_size_)
    return tell_damage(key_, at + 16, "it belongs to a medium of another size");
  frames_ = frames;
  plain_size_ = plain_size;
  return true;
}

bool Index_Reader::load_page(uint64_t page) {
  if (!page_.empty() && page_number_ == page) return true;
  const uint64_t first = page * page_records;
  const size_t records = static_cast<size_t>(std::min<uint64_t>(page_records, frames_ - first));
  std::string bytes(records * index_record_size, '\0');
  if (!read_exactly(index_header_size + first * index_record_size, bytes.data(), bytes.size())) return false;
  page_ = std::move(bytes);
  page_number_ = page;
  return true;
}

bool Index_Reader::record(uint64_t number, Frame_Record& record, Damage& damage) {
  std::lock_guard<std::mutex> guard(lock_);
  if (!load_page(number / page_records)) return false;
  const std::string_view block =
      std::string_view(page_).substr(number % page_records * index_record_size, index_record_size);
  const uint64_t at = index_header_size + number * index_record_size;
  if (!is_sealed(block, record_seed(identity_, number)))
    return damage.set(key_, at, "a record is not what was written");
  const Frame_Record found{get_at<uint64_t>(block, 0), get_at<uint32_t>(block, 8), get_at<uint32_t>(block, 12),
                           get_at<uint64_t>(block, 16)};
  if (const char* reason = fault(number, found)) return damage.set(key_, at, reason);
  record = found;
  return true;
}

// A record may be as written and still lie: whoever made it may have made its check too.
const char* Index_Reader::fault(uint64_t number, const Frame_Record& record) const {
  const uint64_t plain = std::min<uint64_t>(frame_size, plain_size_ - number * frame_size);
  if (record.plain_size != plain) return "a frame has not the plain size that its place asks for";
  if (record.stored_size > frame_capacity) return "a frame is longer than any frame can be";
  if (record.stored_offset > medium_size_ || record.stored_size > medium_size_ - record.stored_offset)
    return "a frame lies outside of the medium";
  if (form_ == COMPR_NONE && (record.stored_size != plain || record.stored_offset != number * frame_size))
    return "a frame is not in its place";
  return nullptr;
}

}  // namespace MTF_BACKUP
