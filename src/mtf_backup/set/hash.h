#pragma once

#include <xxhash.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace MTF_BACKUP {

/// XXH3-64 with a seed.
inline uint64_t hash64(std::string_view bytes, uint64_t seed) {
  return XXH3_64bits_withSeed(bytes.data(), bytes.size(), seed);
}

/// 32 lowercase hexadecimal digits, the high half first.
std::string hash_text(XXH128_hash_t hash);

}  // namespace MTF_BACKUP
