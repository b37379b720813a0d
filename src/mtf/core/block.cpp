#include "mtf/core/block.h"

#include <algorithm>
#include <cstring>

#include "kolt/utf8.h"
#include "mtf/core/checksum.h"
#include "mtf/core/date_time.h"
#include "mtf/core/little_endian.h"
#include "mtf/core/text.h"

namespace MTF {

Block::Block(uint32_t type, size_t fixed_end) : size_(0) {
  reserve(fixed_end);
  set32(at_type, type);
  set8(at_os_id, os_unix);
}

void Block::set8(size_t at, uint8_t value) {
  put_le(bytes_ + at, value);
}
void Block::set16(size_t at, uint16_t value) {
  put_le(bytes_ + at, value);
}
void Block::set32(size_t at, uint32_t value) {
  put_le(bytes_ + at, value);
}
void Block::set64(size_t at, uint64_t value) {
  put_le(bytes_ + at, value);
}
void Block::set_date(size_t at, int64_t sec) {
  put_date_time(bytes_ + at, sec);
}

void Block::string_type(String_Type type) {
  string_type_ = type;
  set8(at_string_type, type);
}

bool Block::text(size_t at, std::string_view text) {
  if (text.empty()) return true;
  // Two thirds of its UTF-8 size is the least that UTF-16 takes, so no longer text can fit.
  char utf16[4 * block_size];
  if (text.size() > sizeof utf16 / 2) return false;
  std::string_view stored = text;
  if (string_type_ == STR_UTF16) stored = {utf16, put_utf16(text, utf16)};
  const size_t start = (size_ + 3) / 4 * 4;
  if (start + stored.size() > block_size) return false;
  reserve(start + stored.size());
  std::memcpy(bytes_ + start, stored.data(), stored.size());
  set16(at, static_cast<uint16_t>(stored.size()));
  set16(at + 2, static_cast<uint16_t>(start));
  return true;
}

void Block::cut_text(size_t at, std::string_view text, size_t max_bytes) {
  const size_t room = std::min(max_bytes, block_size - (size_ + 3) / 4 * 4);
  if (string_type_ == STR_UTF16)
    this->text(at, kolt::utf8_prefix(text, room / 2));
  else
    this->text(at, text.substr(0, room));
}

std::string_view Block::finish() {
  reserve((size_ + stream_alignment - 1) / stream_alignment * stream_alignment);
  seal(size_);
  return {bytes_, size_};
}

std::string_view Block::finish_filemark() {
  reserve(block_size);
  seal(block_size);
  return {bytes_, block_size};
}

void Block::seal(size_t first_event) {
  set16(at_first_event, static_cast<uint16_t>(first_event));
  set16(at_header_checksum, header_checksum(bytes_, at_header_checksum));
}

void Block::reserve(size_t size) {
  std::memset(bytes_ + size_, 0, size - size_);
  size_ = size;
}

}  // namespace MTF
