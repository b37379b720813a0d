#pragma once

#include <map>
#include <string>
#include <utility>

#include "json_spirit/json_spirit_value.h"

/// Chained writes: `insert(obj)("name", name)("size", 7)`, `Object_Maker()("kind", "Pod")("spec", spec)`.
namespace json_spirit {

/// Third argument of an inserter: leave out what is empty (a string or container without content, or null).
struct Skip_Empty_Helper {
  bool operator()(const Value& value) const;
};
/// Third argument of an inserter: leave out null.
struct Skip_NULL_Helper {
  bool operator()(const Value& value) const { return value.is_null(); }
};
inline constexpr Skip_Empty_Helper skip_empty;
inline constexpr Skip_NULL_Helper skip_null;

template <typename T>
concept Skip_Helper = std::is_same_v<T, Skip_Empty_Helper> || std::is_same_v<T, Skip_NULL_Helper>;

/// Adds members to the object that it is bound to, which outlives it.
class Object_Inserter {
 public:
  explicit Object_Inserter(Object& object) : obj(object) {}

  /// Stores under @a key, in place of what stood there.
  Object_Inserter& operator()(const String_type& key, Value value) & {
    obj[key] = std::move(value);
    return *this;
  }
  template <typename Key, typename Arg>
  Object_Inserter&& operator()(Key&& key, Arg&& arg) && {
    obj[String_type(std::forward<Key>(key))] = Value(std::forward<Arg>(arg));
    return std::move(*this);
  }

  /// The same, unless the value is one to be left out.
  template <Skip_Helper Skip>
  Object_Inserter& operator()(const String_type& key, Value value, Skip skip) & {
    return skip(value) ? *this : (*this)(key, std::move(value));
  }
  template <Skip_Helper Skip>
  Object_Inserter&& operator()(const String_type& key, Value value, Skip skip) && {
    return std::move((*this)(key, std::move(value), skip));
  }

  /// Adds all pairs whose keys the object doesn't have yet; what it has stays.
  Object_Inserter& operator()(const std::map<std::string, std::string>& members) & {
    obj.insert(members.begin(), members.end());
    return *this;
  }
  Object_Inserter&& operator()(const std::map<std::string, std::string>& members) && {
    return std::move((*this)(members));
  }

  operator Object&() { return obj; }
  operator const Object&() const { return obj; }
  operator Object*() { return &obj; }
  operator const Object*() const { return &obj; }

  Object& obj;
};

inline Object_Inserter insert(Object& object) {
  return Object_Inserter(object);
}

/// A value that is an object and takes its members in a chain: `Object_Maker()("a", 1)("b", x)`.
class Object_Maker : public Value, public Object_Inserter {
 public:
  Object_Maker() : Value(Object()), Object_Inserter(get_obj()) {}
  Object_Maker(const Object_Maker& other) : Value(other), Object_Inserter(get_obj()) {}
  Object_Maker(Object_Maker&& other) : Value(std::move(other)), Object_Inserter(get_obj()) {}
  Object_Maker& operator=(const Object_Maker&) = delete;

  template <typename... Args>
  Object_Maker& operator()(Args&&... args) & {
    static_cast<Object_Inserter&&> (*this)(std::forward<Args>(args)...);
    return *this;
  }
  template <typename... Args>
  Object_Maker&& operator()(Args&&... args) && {
    static_cast<Object_Inserter&&> (*this)(std::forward<Args>(args)...);
    return std::move(*this);
  }
};

/// Makes @a value a new empty object.
inline Object& to_new_object(Value& value) {
  return value.to_new_object();
}

/// Adds an empty object at the end of @a array.
inline Object& append_new_object(Array& array) {
  return array.emplace_back().to_new_object();
}

inline Array& operator<<(Array& array, Value value) {
  array.push_back(std::move(value));
  return array;
}

inline bool Skip_Empty_Helper::operator()(const Value& value) const {
  switch (value.type()) {
    case obj_type:
      return value.get_obj().empty();
    case array_type:
      return value.get_array().empty();
    case str_type:
      return value.get_str().empty();
    case secure_str_type:
      return value.get_secure_str().empty();
    default:
      return value.is_null();
  }
}

}  // namespace json_spirit
