#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "kolt/export.h"
#include "mtf/core/layout.h"

namespace MTF {

/// A descriptor block in the making: header, fixed part and string area. Setters take the offset of a field.
class TESSARIN_API Block {
 public:
  /// All fields zero but the type and the operating system.
  Block(uint32_t type, size_t fixed_end);

  void set8(size_t at, uint8_t value);
  void set16(size_t at, uint16_t value);
  void set32(size_t at, uint32_t value);
  void set64(size_t at, uint64_t value);
  /// @a sec seconds of the epoch, stored in UTC.
  void set_date(size_t at, int64_t sec);

  /// How the texts to come are stored. UTF-16 only for what kolt::is_utf8() approves.
  void string_type(String_Type type);
  String_Type string_type() const { return string_type_; }
  /// Adds @a text to the string area, its address at offset @a at. False, with nothing changed, where there is no room.
  bool text(size_t at, std::string_view text);
  /// The same with as much of the text as there is room for, up to @a max_bytes of the area.
  void cut_text(size_t at, std::string_view text, size_t max_bytes);

  /// The bytes of the finished block, up to where its first stream begins: sets that offset and the checksum.
  std::string_view finish();
  /// A soft filemark: no streams, so the finished block is a whole block_size.
  std::string_view finish_filemark();

 private:
  void seal(size_t first_event);
  void reserve(size_t size);

  size_t size_;
  String_Type string_type_ = STR_NONE;
  char bytes_[block_size];  // valid up to size_
};

}  // namespace MTF
