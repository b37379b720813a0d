#pragma once

#include <type_traits>
#include <utility>

#include "json_spirit/json_spirit_helper.h"

/// How a value is read into a variable of a given type; the pointer engine and the extractors rest on it.
namespace json_spirit {

/// The kind of value that a T is read from, and the T in such a value.
template <typename T>
struct Content;

template <>
struct Content<Object> {
  static constexpr Value_type type = obj_type;
  static auto& in(auto& value) { return value.get_obj(); }
};
template <>
struct Content<Array> {
  static constexpr Value_type type = array_type;
  static auto& in(auto& value) { return value.get_array(); }
};
template <>
struct Content<String_type> {
  static constexpr Value_type type = str_type;
  static auto& in(auto& value) { return value.get_str(); }
};
template <>
struct Content<secure_string> {
  static constexpr Value_type type = secure_str_type;
  static auto& in(auto& value) { return value.get_secure_str(); }
};

/// What a Value holds by its own address, so that a pointer can lead to it.
template <typename T>
concept Addressable = requires {
  Content<T>::type;
};

template <typename T>
concept Scalar = Integral<T> || std::same_as<T, bool> || std::same_as<T, double>;

/// Each read_content() reads if the value is of the kind of @a dest, else returns false and leaves @a dest untouched.
template <Scalar T>
bool read_content(const Value& value, T& dest) {
  constexpr Value_type type = std::same_as<T, bool> ? bool_type : std::same_as<T, double> ? real_type : int_type;
  if (value.type() != type) return false;
  if constexpr (type == bool_type)
    dest = value.get_bool();
  else if constexpr (type == real_type)
    dest = value.get_real();
  else
    dest = static_cast<T>(value.get_uint64());
  return true;
}

template <Addressable T>
bool read_content(const Value& value, T& dest) {
  if (value.type() != Content<T>::type) return false;
  dest = Content<T>::in(value);
  return true;
}

inline bool read_content(const Value& value, Value& dest) {
  dest = value;
  return true;
}

/// From an rvalue the content is moved out, and null stays behind.
template <Addressable T>
bool read_content(Value&& value, T& dest) {
  if (value.type() != Content<T>::type) return false;
  Value taken(std::exchange(value, Value()));
  dest = std::move(Content<T>::in(taken));
  return true;
}

inline bool read_content(Value&& value, Value& dest) {
  Value taken(std::exchange(value, Value()));  // which dest may be a part of
  dest = std::move(taken);
  return true;
}

/// The address of the content; of a const value it is a pointer to const.
template <typename V, typename T>
requires Addressable<std::remove_const_t<T>> &&
    (std::is_const_v<T> || !std::is_const_v<V>)bool read_content(V& value, T*& dest) {
  if (value.type() != Content<std::remove_const_t<T>>::type) return false;
  dest = &Content<std::remove_const_t<T>>::in(value);
  return true;
}

template <typename V, typename T>
requires std::same_as<std::remove_const_t<T>, Value> &&
    (std::is_const_v<T> || !std::is_const_v<V>)bool read_content(V& value, T*& dest) {
  dest = &value;
  return true;
}

/// The text of a string.
template <typename V, typename T>
requires std::same_as < std::remove_const_t<T>,
char > &&(std::is_const_v<T> || !std::is_const_v<V>)bool read_content(V& value, T*& dest) {
  if (value.type() != str_type) return false;
  dest = value.get_str().data();
  return true;
}

}  // namespace json_spirit
