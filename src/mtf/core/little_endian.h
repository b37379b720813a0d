#pragma once

#include <cstdint>
#include <cstring>

// Numbers of the format lie little-endian, as they do on the machines that we build for.

namespace MTF {

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__);

template <typename T>
void put_le(char* at, T value) {
  std::memcpy(at, &value, sizeof value);
}

template <typename T>
T get_le(const char* at) {
  T value;
  std::memcpy(&value, at, sizeof value);
  return value;
}

}  // namespace MTF
