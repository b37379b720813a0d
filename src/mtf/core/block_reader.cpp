#include "mtf/core/block_reader.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>

#include "mtf/core/byte_source.h"
#include "mtf/core/checksum.h"
#include "mtf/core/date_time.h"
#include "mtf/core/layout.h"
#include "mtf/core/little_endian.h"
#include "mtf/core/text.h"

namespace MTF {

namespace {

/// Holds a block, its own streams and the header of its data, for nearly all files.
constexpr size_t window_capacity = 8192;

/// Other writers may use blocks of this size.
constexpr size_t least_block_size = 512;

/// Where the fixed part of a block ends.
size_t fixed_end(uint32_t type) {
  switch (type) {
    case block_tape:
      return tape_end;
    case block_sset:
      return sset_end;
    case block_volb:
      return volb_end;
    case block_dirb:
      return dirb_end;
    case block_file:
      return file_end;
    case block_cfil:
      return cfil_end;
    case block_eset:
      return eset_end;
    default:
      return header_size;
  }
}

}  // namespace

Block_Reader::Block_Reader(Byte_Source& source) : source_(source), window_(new char[window_capacity]) {}

bool Block_Reader::fail(uint64_t offset, const char* what) {
  error_ = "offset " + std::to_string(offset) + ": " + what;
  return false;
}

const char* Block_Reader::bytes(uint64_t offset, size_t size) {
  const bool inside = offset >= window_offset_ && offset - window_offset_ <= window_size_ &&
                      window_size_ - (offset - window_offset_) >= size;
  if (!inside) {
    window_size_ = 0;
    const ssize_t n = source_.read(offset, window_.get(), window_capacity);
    if (n < 0) {
      fail(offset, std::strerror(errno));
      return nullptr;
    }
    window_offset_ = offset;
    window_size_ = std::min(static_cast<size_t>(n), window_capacity);
    if (window_size_ < size) {
      fail(offset, "the medium ends");
      return nullptr;
    }
  }
  return window_.get() + (offset - window_offset_);
}

bool Block_Reader::block(uint64_t offset) {
  if (offset % least_block_size != 0) return fail(offset, "no place for a block");
  const char* header = bytes(offset, header_size);
  if (header == nullptr) return false;
  if (header_checksum(header, header_size) != 0) return fail(offset, "wrong checksum of a block header");
  const size_t size = get_le<uint16_t>(header + at_first_event);
  if (size < fixed_end(get_le<uint32_t>(header))) return fail(offset, "block too short for its type");
  const size_t kept = std::min(size, sizeof block_);
  const char* whole = bytes(offset, kept);
  if (whole == nullptr) return false;
  std::memcpy(block_, whole, kept);
  std::memset(block_ + kept, 0, sizeof block_ - kept);
  offset_ = offset;
  size_ = size;
  return true;
}

uint16_t Block_Reader::get16(size_t at) const {
  return get_le<uint16_t>(block_ + at);
}
uint32_t Block_Reader::get32(size_t at) const {
  return get_le<uint32_t>(block_ + at);
}
uint64_t Block_Reader::get64(size_t at) const {
  return get_le<uint64_t>(block_ + at);
}

int64_t Block_Reader::date(size_t at) const {
  int64_t sec = 0;
  return get_date_time(block_ + at, sec) ? sec : 0;
}

bool Block_Reader::text(size_t at, std::string& text) {
  const size_t size = get16(at);
  const size_t start = get16(at + 2);
  text.clear();
  if (size == 0) return true;
  if (start + size > std::min(size_, sizeof block_)) return fail(offset_, "text outside its block");
  text = decoded(std::string(block_ + start, size));
  return true;
}

std::string Block_Reader::decoded(std::string bytes) const {
  return block_[at_string_type] == STR_UTF16 ? from_utf16(bytes) : bytes;
}

bool Block_Reader::stream(uint64_t at, Stream& stream) {
  at += -at % stream_alignment;
  const char* header = bytes(at, stream_header_size);
  if (header == nullptr) return false;
  if (header_checksum(header, stream_header_size) != 0) return fail(at, "wrong checksum of a stream header");
  stream.id = get_le<uint32_t>(header);
  stream.system_attributes = get_le<uint16_t>(header + 4);
  stream.media_attributes = get_le<uint16_t>(header + 6);
  stream.length = get_le<uint64_t>(header + 8);
  stream.offset = at + stream_header_size;
  // Leaves room for the alignment, so that no sum of a stream's end wraps and every step goes forward.
  if (stream.length > std::numeric_limits<int64_t>::max() - stream.offset) return fail(at, "impossible stream length");
  return true;
}

bool Block_Reader::data(const Stream& stream, size_t max, std::string& bytes) {
  if (stream.length > max) return fail(stream.offset, "stream too long for its kind");
  const size_t size = static_cast<size_t>(stream.length);
  bytes.resize(size);
  if (size <= window_capacity) {
    const char* at = this->bytes(stream.offset, size);
    if (at != nullptr) std::memcpy(bytes.data(), at, size);
    return at != nullptr;
  }
  const ssize_t n = source_.read(stream.offset, bytes.data(), size);
  if (n < 0) return fail(stream.offset, std::strerror(errno));
  return static_cast<size_t>(n) == size || fail(stream.offset, "the medium ends");
}

}  // namespace MTF
