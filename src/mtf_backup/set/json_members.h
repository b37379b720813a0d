#pragma once

#include <concepts>
#include <string>
#include <utility>

#include "json_spirit/json_spirit_value.h"
#include "mtf_backup/set/percent.h"

namespace MTF_BACKUP {

/**
 * Reads the members of an object strictly: each has to be there, of its kind and in the range of its destination, and
 * there are no others. (The extractors of json_spirit cut numbers to their destination.)
 */
class Json_Members {
 public:
  explicit Json_Members(const json_spirit::Object& object) : object_(object) {}

  template <std::integral Number>
  Json_Members& number(const char* key, Number& to) {
    const json_spirit::Value* value = member(key, json_spirit::int_type);
    if (value == nullptr) return *this;
    if (value->is_uint64())
      store(value->get_uint64(), to);
    else
      store(value->get_int64(), to);
    return *this;
  }

  Json_Members& plain_text(const char* key, std::string& to) {
    if (const json_spirit::Value* value = member(key, json_spirit::str_type)) to = value->get_str();
    return *this;
  }
  /// Of raw bytes, percent-encoded.
  Json_Members& text(const char* key, std::string& to) {
    const json_spirit::Value* value = member(key, json_spirit::str_type);
    if (value != nullptr && !percent_decode(value->get_str(), to)) ok_ = false;
    return *this;
  }
  Json_Members& array(const char* key, const json_spirit::Array*& to) {
    if (const json_spirit::Value* value = member(key, json_spirit::array_type)) to = &value->get_array();
    return *this;
  }
  Json_Members& object(const char* key, const json_spirit::Object*& to) {
    if (const json_spirit::Value* value = member(key, json_spirit::obj_type)) to = &value->get_obj();
    return *this;
  }

  /// Whether all were read and the object has no others.
  bool complete() const { return ok_ && count_ == object_.size(); }

 private:
  const json_spirit::Value* member(const char* key, json_spirit::Value_type type) {
    ++count_;
    const auto found = object_.find(key);
    if (found != object_.end() && found->second.type() == type) return &found->second;
    ok_ = false;
    return nullptr;
  }

  template <typename From, typename To>
  void store(From value, To& to) {
    if (std::in_range<To>(value))
      to = static_cast<To>(value);
    else
      ok_ = false;
  }

  const json_spirit::Object& object_;
  size_t count_ = 0;
  bool ok_ = true;
};

}  // namespace MTF_BACKUP
