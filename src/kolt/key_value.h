#pragma once

#include <cstddef>
#include <cstring>
#include <type_traits>

/// One row of a name table. A table is an array that ends in a row with a null key, a length of 0 and the value that
/// stands for "unknown".
template <typename T>
struct Key2_Value_T {
  const char* key;
  std::size_t len;
  T value;
};

/// A row whose text is a literal.
template <typename T, std::size_t N>
constexpr Key2_Value_T<T> make_key_value(const char (&key)[N], T value) {
  return {key, N - 1, value};
}

/// The first row with exactly this text, else the terminating row, also for a null text. Never null.
template <typename T>
const Key2_Value_T<T>* get_key_value_entry(const Key2_Value_T<T>* table, const char* key) {
  while (table->key != nullptr && (key == nullptr || std::strcmp(table->key, key) != 0)) ++table;
  return table;
}

/// The first row with this value, else the terminating row. Never null.
template <typename T>
const Key2_Value_T<T>* get_key_value_entry(const Key2_Value_T<T>* table, std::type_identity_t<T> value) {
  while (table->key != nullptr && table->value != value) ++table;
  return table;
}
