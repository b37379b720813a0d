#include "json_spirit/json_spirit_helper.h"

namespace json_spirit {

namespace {

/// The member of @a obj, const as the object is; null on a miss.
template <typename Obj>
auto find(Obj& obj, const String_type& key, Value_type type) -> decltype(&obj.begin()->second) {
  const auto member = object_get_value(obj, key);
  return member && member->type() == type ? member : nullptr;
}

/// The same, or throws.
template <typename Obj>
auto& require(Obj& obj, const String_type& key, Value_type type) {
  const auto member = object_get_value(obj, key);
  if (!member) throw Type_Error("JSON member '" + key + "' is missing");
  if (member->type() != type)
    throw Type_Error("JSON member '" + key + "' is " + type_name(member->type()) + ", not " + type_name(type));
  return *member;
}

template <typename T>
bool get_integer(const Object& obj, const String_type& key, T& out) {
  const Value* member = find(obj, key, int_type);
  if (!member) return false;
  out = static_cast<T>(member->get_uint64());
  return true;
}

}  // namespace

const Value* object_get_value(const Object& obj, const String_type& key) {
  const auto at = obj.find(key);
  return at == obj.end() ? nullptr : &at->second;
}
Value* object_get_value(Object& obj, const String_type& key) {
  const auto at = obj.find(key);
  return at == obj.end() ? nullptr : &at->second;
}

bool object_get(const Object& obj, const String_type& key, String_type& out) {
  const String_type* text = object_get_str(obj, key);
  if (text) out = *text;
  return text;
}
bool object_get(const Object& obj, const String_type& key, bool& out) {
  const Value* member = find(obj, key, bool_type);
  if (member) out = member->get_bool();
  return member;
}
bool object_get(const Object& obj, const String_type& key, int& out) {
  return get_integer(obj, key, out);
}
bool object_get(const Object& obj, const String_type& key, unsigned int& out) {
  return get_integer(obj, key, out);
}
bool object_get(const Object& obj, const String_type& key, long& out) {
  return get_integer(obj, key, out);
}
bool object_get(const Object& obj, const String_type& key, unsigned long& out) {
  return get_integer(obj, key, out);
}

const String_type* object_get_str(const Object& obj, const String_type& key) {
  const Value* member = find(obj, key, str_type);
  return member ? &member->get_str() : nullptr;
}
String_type* object_get_str(Object& obj, const String_type& key) {
  Value* member = find(obj, key, str_type);
  return member ? &member->get_str() : nullptr;
}
const Object* object_get_object(const Object& obj, const String_type& key) {
  const Value* member = find(obj, key, obj_type);
  return member ? &member->get_obj() : nullptr;
}
Object* object_get_object(Object& obj, const String_type& key) {
  Value* member = find(obj, key, obj_type);
  return member ? &member->get_obj() : nullptr;
}
const Array* object_get_array(const Object& obj, const String_type& key) {
  const Value* member = find(obj, key, array_type);
  return member ? &member->get_array() : nullptr;
}
Array* object_get_array(Object& obj, const String_type& key) {
  Value* member = find(obj, key, array_type);
  return member ? &member->get_array() : nullptr;
}

const String_type& object_get_str_or_throw(const Object& obj, const String_type& key) {
  return require(obj, key, str_type).get_str();
}
String_type& object_get_str_or_throw(Object& obj, const String_type& key) {
  return require(obj, key, str_type).get_str();
}
const Object& object_get_object_or_throw(const Object& obj, const String_type& key) {
  return require(obj, key, obj_type).get_obj();
}
Object& object_get_object_or_throw(Object& obj, const String_type& key) {
  return require(obj, key, obj_type).get_obj();
}
const Array& object_get_array_or_throw(const Object& obj, const String_type& key) {
  return require(obj, key, array_type).get_array();
}
Array& object_get_array_or_throw(Object& obj, const String_type& key) {
  return require(obj, key, array_type).get_array();
}
bool object_get_bool_or_throw(const Object& obj, const String_type& key) {
  return require(obj, key, bool_type).get_bool();
}
std::int64_t object_get_int64_or_throw(const Object& obj, const String_type& key) {
  return require(obj, key, int_type).get_int64();
}
std::uint64_t object_get_uint64_or_throw(const Object& obj, const String_type& key) {
  return require(obj, key, int_type).get_uint64();
}

}  // namespace json_spirit
