#pragma once

#include <cstddef>
#include <vector>

#include "kolt/export.h"
#include "kolt/secure_memory.h"

/**
 * Decodes base64 (RFC 4648, the ordinary alphabet). The decoded bytes are wiped when they are replaced or die.
 *
 * Blanks and line ends are passed over, and the padding at the end may be missing. Anything else that is not base64 (a
 * foreign character, text behind the padding, a single last character, bits set behind the last byte) makes the whole
 * text bad.
 */
class TESSARIN_API Base64_Decoder {
 public:
  Base64_Decoder() = default;

  /// @param data    the text; null is bad.
  /// @param length  its length, or -1: up to the NUL.
  /// @return whether the text is good. If not, nothing is decoded: length() is 0. Nothing is logged.
  bool set(const void* data, int length);

  /// The decoded bytes, never null, valid until the next set().
  const unsigned char* get() const;
  std::size_t length() const { return bytes_.size(); }

 private:
  std::vector<unsigned char, secure_allocator<unsigned char>> bytes_;
};
