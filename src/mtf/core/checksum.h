#pragma once

#include <cstddef>
#include <cstdint>

#include "kolt/export.h"

namespace MTF {

/// XOR of the little-endian 16-bit words of a header; @a size is even.
TESSARIN_API uint16_t header_checksum(const char* bytes, size_t size);

/// The checksum of a stream's data: byte i goes by XOR into bits 8 * (i mod 4) and up, however the data is cut.
class TESSARIN_API Xor_Checksum {
 public:
  void add(const char* bytes, size_t size);
  uint32_t value() const { return value_; }
  void reset() { *this = Xor_Checksum(); }

 private:
  uint32_t value_ = 0;
  unsigned phase_ = 0;  // bytes so far, modulo 4
};

}  // namespace MTF
