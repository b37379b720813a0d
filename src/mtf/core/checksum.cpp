#include "mtf/core/checksum.h"

#include <bit>

#include "mtf/core/little_endian.h"

namespace MTF {

uint16_t header_checksum(const char* bytes, size_t size) {
  uint16_t sum = 0;
  for (size_t at = 0; at + 2 <= size; at += 2) sum = static_cast<uint16_t>(sum ^ get_le<uint16_t>(bytes + at));
  return sum;
}

void Xor_Checksum::add(const char* bytes, size_t size) {
  // Sums the piece as if it began a word, in four lanes that do not wait for each other, and turns the sum into place.
  uint64_t lanes[4] = {};
  size_t at = 0;
  for (; at + sizeof lanes <= size; at += sizeof lanes)
    for (size_t lane = 0; lane < 4; ++lane) lanes[lane] ^= get_le<uint64_t>(bytes + at + 8 * lane);
  const uint64_t wide = lanes[0] ^ lanes[1] ^ lanes[2] ^ lanes[3];
  uint32_t sum = static_cast<uint32_t>(wide) ^ static_cast<uint32_t>(wide >> 32);
  for (; at < size; ++at) sum ^= static_cast<uint32_t>(static_cast<unsigned char>(bytes[at])) << 8 * (at % 4);
  value_ ^= std::rotl(sum, static_cast<int>(8 * phase_));
  phase_ = static_cast<unsigned>((phase_ + size) % 4);
}

}  // namespace MTF
