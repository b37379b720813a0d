#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "kolt/export.h"

namespace MTF {

class Byte_Sink;

/**
 * Puts blocks, streams and bytes into a sink and keeps to the alignment of the format; what they mean is the caller's.
 *
 * Every operation that returns bool returns false when the sink did. Filled memory is handed to the sink when a piece
 * of it is full, and at flush(). One thread at a time.
 */
class TESSARIN_API Block_Writer {
 public:
  explicit Block_Writer(Byte_Sink& sink);

  /// Where the next byte goes.
  uint64_t offset() const { return offset_; }
  bool put(std::string_view bytes);
  bool zeros(size_t n);
  /// The header of a stream, behind zeros up to its alignment. @a attributes are the media format attributes.
  bool stream(uint32_t id, uint16_t attributes, uint64_t length, uint16_t system_attributes = 0);
  /// The last stream of a block: up to the next block boundary.
  bool pad();

  /// The sink's memory, at least 1 byte, to be filled in place.
  bool room(char*& at, size_t& avail);
  /// The first @a n bytes of it are.
  bool filled(size_t n);
  bool flush();

 private:
  Byte_Sink& sink_;
  uint64_t offset_;     // in the medium, of at_
  char* at_ = nullptr;  // the sink's memory from the first free byte on
  size_t avail_ = 0;    // free bytes there
  size_t pending_ = 0;  // filled and not yet advanced
};

}  // namespace MTF
