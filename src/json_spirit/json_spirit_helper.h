#pragma once

#include <concepts>

#include "json_spirit/dump.h"
#include "json_spirit/json_spirit_value.h"

namespace json_spirit {

template <typename T>
concept Integral = std::integral<T> && !std::same_as<T, bool>;

/// Reads an integer into any integral type, by its low bits: 65537 read into an unsigned short is 1.
/// @return false on a miss, and @a out is untouched.
template <Integral T>
bool object_get(const Object& obj, const String_type& key, T& out) {
  long wide;
  if (!object_get(obj, key, wide)) return false;
  out = static_cast<T>(wide);
  return true;
}

}  // namespace json_spirit
