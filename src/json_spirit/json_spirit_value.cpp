#include "json_spirit/json_spirit_value.h"

#include <algorithm>
#include <utility>

#include <boost/variant/apply_visitor.hpp>
#include <boost/variant/get.hpp>
#include <boost/variant/static_visitor.hpp>

namespace json_spirit {

namespace {

const char* const type_names[] = {"an object", "an array",   "a string", "a secret string",
                                  "a boolean", "an integer", "a real",   "null"};

/// The texts of two strings of whatever kind, or of no string.
std::pair<bool, std::string_view> text_of(const Value& value) {
  if (value.type() == str_type) return {true, value.get_str()};
  if (value.type() == secure_str_type) return {true, value.get_secure_str()};
  return {false, {}};
}

bool same_number(const Value& a, const Value& b) {
  if (a.type() == real_type && b.type() == real_type) return a.get_real() == b.get_real();
  if (a.type() == real_type) return same_number(b, a);
  if (b.type() == real_type)
    return b.get_real() == (a.is_uint64() ? static_cast<double>(a.get_uint64()) : static_cast<double>(a.get_int64()));
  const bool differ_in_sign = (!a.is_uint64() && a.get_int64() < 0) != (!b.is_uint64() && b.get_int64() < 0);
  return !differ_in_sign && a.get_uint64() == b.get_uint64();
}

bool is_number(const Value& value) {
  return value.type() == int_type || value.type() == real_type;
}

bool same_members(const Object& a, const Object& b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](const auto& x, const auto& y) {
    return x.first == y.first && x.second.compare_only_value(y.second);
  });
}

bool same_elements(const Array& a, const Array& b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](const Value& x, const Value& y) { return x.compare_only_value(y); });
}

/// Where the container of a value lies. An empty one is made by looking at it, for which there may be no memory;
/// boost::get() would end the process then.
template <typename T>
struct Address_Of : boost::static_visitor<T*> {
  T* operator()(T& container) const { return &container; }
  template <typename Other>
  T* operator()(Other&) const {
    return nullptr;
  }
};

}  // namespace

const char* type_name(Value_type type) {
  return type_names[type];
}

Value::Value(const char* text) : v_(Null()) {
  if (text) v_ = String_type(text);
}
Value::Value(const String_type& text) : v_(text) {}
Value::Value(String_type&& text) noexcept : v_(std::move(text)) {}
Value::Value(const secure_string& text) : v_(text) {}
Value::Value(secure_string&& text) noexcept : v_(std::move(text)) {}
Value::Value(const Object& object) : v_(object) {}
Value::Value(Object&& object) : v_(std::move(object)) {}
Value::Value(const Array& array) : v_(array) {}
Value::Value(Array&& array) : v_(std::move(array)) {}

Value::Value(const Value& other) = default;
Value::~Value() = default;

Value::Value(Value&& other) noexcept = default;

Value& Value::operator=(const Value& other) {
  return *this = Value(other);
}

Value& Value::operator=(Value&& other) noexcept {
  Variant taken(std::move(other.v_));  // the other one may be a part of this one
  v_ = std::move(taken);
  return *this;
}

bool Value::operator==(const Value& other) const {
  return v_ == other.v_;
}

bool Value::compare_only_value(const Value& other) const {
  if (type() == obj_type && other.type() == obj_type) return same_members(get_obj(), other.get_obj());
  if (type() == array_type && other.type() == array_type) return same_elements(get_array(), other.get_array());
  if (is_number(*this) && is_number(other)) return same_number(*this, other);
  const auto text = text_of(*this);
  return text.first ? text == text_of(other) : v_ == other.v_;
}

Value_type Value::type() const noexcept {
  return is_uint64() ? int_type : static_cast<Value_type>(v_.which());
}

const String_type& Value::get_str() const {
  check_type(str_type);
  return boost::strict_get<String_type>(v_);
}
String_type& Value::get_str() {
  check_type(str_type);
  return boost::strict_get<String_type>(v_);
}
const secure_string& Value::get_secure_str() const {
  check_type(secure_str_type);
  return boost::strict_get<secure_string>(v_);
}
secure_string& Value::get_secure_str() {
  check_type(secure_str_type);
  return boost::strict_get<secure_string>(v_);
}
const Object& Value::get_obj() const {
  check_type(obj_type);
  return *boost::apply_visitor(Address_Of<const Object>(), v_);
}
Object& Value::get_obj() {
  check_type(obj_type);
  return *boost::apply_visitor(Address_Of<Object>(), v_);
}
const Array& Value::get_array() const {
  check_type(array_type);
  return *boost::apply_visitor(Address_Of<const Array>(), v_);
}
Array& Value::get_array() {
  check_type(array_type);
  return *boost::apply_visitor(Address_Of<Array>(), v_);
}
bool Value::get_bool() const {
  check_type(bool_type);
  return boost::strict_get<bool>(v_);
}
double Value::get_real() const {
  check_type(real_type);
  return boost::strict_get<double>(v_);
}
std::uint64_t Value::get_uint64() const {
  check_type(int_type);
  return is_uint64() ? boost::strict_get<std::uint64_t>(v_)
                     : static_cast<std::uint64_t>(boost::strict_get<std::int64_t>(v_));
}

Object& Value::to_new_object() {
  v_ = Object();
  return *boost::apply_visitor(Address_Of<Object>(), v_);
}
Array& Value::to_new_array() {
  v_ = Array();
  return *boost::apply_visitor(Address_Of<Array>(), v_);
}
Object& Value::to_object() {
  return type() == obj_type ? get_obj() : to_new_object();
}
Array& Value::to_array() {
  return type() == array_type ? get_array() : to_new_array();
}

void Value::check_type(Value_type expected) const {
  if (type() != expected) [[unlikely]]
    throw Type_Error(String_type("JSON value is ") + type_name(type()) + ", not " + type_name(expected));
}

}  // namespace json_spirit
