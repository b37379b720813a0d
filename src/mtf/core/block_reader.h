#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "kolt/export.h"

namespace MTF {

class Byte_Source;

/// The header of a stream and where its data lies.
struct Stream {
  uint32_t id = 0;
  uint16_t system_attributes = 0;
  uint16_t media_attributes = 0;
  uint64_t offset = 0;  ///< of its data
  uint64_t length = 0;  ///< of its data

  uint64_t end() const { return offset + length; }
};

/**
 * Reads the blocks and streams of a medium, one block at a time, and believes nothing: checksums, bounds and sums of
 * lengths are checked. An operation that fails returns false and leaves a line with the offset in error().
 */
class TESSARIN_API Block_Reader {
 public:
  explicit Block_Reader(Byte_Source& source);

  /// Reads the block at @a offset. What follows, up to stream(), is about this block.
  bool block(uint64_t offset);
  uint64_t offset() const { return offset_; }
  uint32_t type() const { return get32(0); }
  /// Where its first stream begins; for a filemark, where the next block does.
  uint64_t streams_at() const { return offset_ + size_; }

  /// Fields, for offsets inside the fixed part of the block's type.
  uint16_t get16(size_t at) const;
  uint32_t get32(size_t at) const;
  uint64_t get64(size_t at) const;
  /// Seconds of the epoch; 0 for an unknown date.
  int64_t date(size_t at) const;
  /// The text whose address is at @a at, in the block's encoding made UTF-8, or raw where it has single bytes; empty
  /// where there is none.
  bool text(size_t at, std::string& text);
  /// The same for bytes from a stream of the block.
  std::string decoded(std::string bytes) const;

  /// Reads the header of the stream at or next behind @a at.
  bool stream(uint64_t at, Stream& stream);
  /// Reads all data of a stream that may have up to @a max bytes.
  bool data(const Stream& stream, size_t max, std::string& bytes);

  bool fail(uint64_t offset, const char* what);
  const std::string& error() const { return error_; }

 private:
  const char* bytes(uint64_t offset, size_t size);

  Byte_Source& source_;
  std::unique_ptr<char[]> window_;
  uint64_t window_offset_ = 0;
  size_t window_size_ = 0;

  uint64_t offset_ = 0;
  size_t size_ = 0;  // up to its first stream
  char block_[1024] = {};
  std::string error_;
};

}  // namespace MTF
