#pragma once

#include <cstdint>
#include <stdexcept>
#include <string_view>

#include <boost/variant/variant.hpp>

#include "json_spirit/value_fwd.h"
#include "json_spirit/variant_box.h"
#include "kolt/export.h"
#include "kolt/secure_memory.h"

/**
 * The model of a JSON document, the plain lookups in it, and the readers.
 *
 * Nothing here locks: a Value may be read from many threads while nobody writes it.
 */
namespace json_spirit {

using ::secure_string;

enum Value_type { obj_type, array_type, str_type, secure_str_type, bool_type, int_type, real_type, null_type };

/// "object", "array", "string" and so on, for messages.
TESSARIN_API const char* type_name(Value_type type);

struct Null {
  friend bool operator==(const Null&, const Null&) { return true; }
};

/// A member or a value isn't there, or is of another kind than the caller wants.
class TESSARIN_API Type_Error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/**
 * A JSON value: an object, an array, a string, a secret string, a boolean, an integer, a real or null.
 *
 * It owns all that it holds, and a copy is deep. A move is cheap and never throws; what it leaves behind is a value of
 * the same kind, with nothing in it if it's a string or a container.
 * Integers are signed or unsigned 64-bit; both are of the kind int_type, and is_uint64() tells them apart.
 */
class TESSARIN_API Value {
 public:
  typedef boost::variant<boost::recursive_wrapper<Object>, boost::recursive_wrapper<Array>, String_type, secure_string,
                         bool, std::int64_t, double, Null, std::uint64_t>
      Variant;

  static constexpr Null null{};

  Value() noexcept : v_(Null()) {}
  Value(Null) noexcept : v_(Null()) {}
  /// A null pointer makes null.
  Value(const char* text);
  Value(const String_type& text);
  Value(String_type&& text) noexcept;
  Value(const secure_string& text);
  Value(secure_string&& text) noexcept;
  Value(const Object& object);
  Value(Object&& object);
  Value(const Array& array);
  Value(Array&& array);
  Value(bool value) noexcept : v_(value) {}
  Value(int value) noexcept : v_(std::int64_t{value}) {}
  Value(unsigned int value) noexcept : v_(std::uint64_t{value}) {}
  Value(long value) noexcept : v_(std::int64_t{value}) {}
  Value(unsigned long value) noexcept : v_(std::uint64_t{value}) {}
  Value(long long value) noexcept : v_(std::int64_t{value}) {}
  Value(unsigned long long value) noexcept : v_(std::uint64_t{value}) {}
  Value(double value) noexcept : v_(value) {}
  Value(const void*) = delete;  // else any pointer would make a boolean

  Value(const Value& other);
  Value(Value&& other) noexcept;
  Value& operator=(const Value& other);
  Value& operator=(Value&& other) noexcept;
  ~Value();

  /// Same kind, same content; a signed and an unsigned integer differ.
  bool operator==(const Value& other) const;
  /// Same content, however it is held: 1, 1u and 1.0 are the same, and so are a string and a secret string.
  bool compare_only_value(const Value& other) const;

  Value_type type() const noexcept;
  bool is_uint64() const noexcept { return v_.which() == uint64_index; }
  bool is_null() const noexcept { return v_.which() == null_type; }

  // The getters throw Type_Error when the value is of another kind. References are valid until the value is assigned
  // to.
  const String_type& get_str() const;
  String_type& get_str();
  const secure_string& get_secure_str() const;
  secure_string& get_secure_str();
  const Object& get_obj() const;
  Object& get_obj();
  const Array& get_array() const;
  Array& get_array();
  bool get_bool() const;
  double get_real() const;

  // Integers narrow to their low bits; nothing tests their range.
  int get_int() const { return static_cast<int>(get_uint64()); }
  unsigned int get_uint() const { return static_cast<unsigned int>(get_uint64()); }
  long get_long() const { return static_cast<long>(get_uint64()); }
  unsigned long get_ulong() const { return get_uint64(); }
  std::int64_t get_int64() const { return static_cast<std::int64_t>(get_uint64()); }
  std::uint64_t get_uint64() const;

  /// Replaces the content by an empty container, and returns that.
  Object& to_new_object();
  Array& to_new_array();
  /// Returns the container that the value holds; a value of another kind becomes an empty one first.
  Object& to_object();
  Array& to_array();

  Variant& data() noexcept { return v_; }
  const Variant& data() const noexcept { return v_; }

  /// @throw Type_Error "JSON value is ..., not ..." when the value isn't of the kind @a expected.
  void check_type(Value_type expected) const;

 private:
  static constexpr int uint64_index = 8;  // the one alternative that isn't numbered as its kind

  Variant v_;
};

// Lookups by key, in the object's own members. "A miss" is an absent key, or a member of another kind.

/// On a miss: false, and @a out is untouched.
TESSARIN_API bool object_get(const Object& obj, const String_type& key, String_type& out);
TESSARIN_API bool object_get(const Object& obj, const String_type& key, bool& out);
// Integers narrow to their low bits.
TESSARIN_API bool object_get(const Object& obj, const String_type& key, int& out);
TESSARIN_API bool object_get(const Object& obj, const String_type& key, unsigned int& out);
TESSARIN_API bool object_get(const Object& obj, const String_type& key, long& out);
TESSARIN_API bool object_get(const Object& obj, const String_type& key, unsigned long& out);

/// Pointer into the object, null on a miss.
TESSARIN_API const String_type* object_get_str(const Object& obj, const String_type& key);
TESSARIN_API String_type* object_get_str(Object& obj, const String_type& key);
TESSARIN_API const Object* object_get_object(const Object& obj, const String_type& key);
TESSARIN_API Object* object_get_object(Object& obj, const String_type& key);
TESSARIN_API const Array* object_get_array(const Object& obj, const String_type& key);
TESSARIN_API Array* object_get_array(Object& obj, const String_type& key);
TESSARIN_API const Value* object_get_value(const Object& obj, const String_type& key);
TESSARIN_API Value* object_get_value(Object& obj, const String_type& key);

/// @throw Type_Error on a miss; its text names the key.
TESSARIN_API const String_type& object_get_str_or_throw(const Object& obj, const String_type& key);
TESSARIN_API String_type& object_get_str_or_throw(Object& obj, const String_type& key);
TESSARIN_API const Object& object_get_object_or_throw(const Object& obj, const String_type& key);
TESSARIN_API Object& object_get_object_or_throw(Object& obj, const String_type& key);
TESSARIN_API const Array& object_get_array_or_throw(const Object& obj, const String_type& key);
TESSARIN_API Array& object_get_array_or_throw(Object& obj, const String_type& key);
TESSARIN_API bool object_get_bool_or_throw(const Object& obj, const String_type& key);
TESSARIN_API std::int64_t object_get_int64_or_throw(const Object& obj, const String_type& key);
TESSARIN_API std::uint64_t object_get_uint64_or_throw(const Object& obj, const String_type& key);

/**
 * Readers of JSON text as in RFC 8259: UTF-8 without a byte order mark, one value and nothing after it.
 *
 * Of members with the same key the last one stands. An integer becomes the signed alternative if it fits, else the
 * unsigned one, else a real. Refused are: more than 256 levels of containers, numbers beyond the range of a double, bad
 * UTF-8, and escapes of half a surrogate pair.
 *
 * @return whether @a out holds the document; when false it is untouched. Nothing is logged.
 */
TESSARIN_API bool loads_json(const char* text, Value& out);
/// The same for a text that may hold NUL bytes (which no JSON text can, outside of an escape).
TESSARIN_API bool loads_json(std::string_view text, Value& out);

/// @a flag of load_json: the text is strict JSON, in a regular file (or a link to one).
constexpr int LOAD_STRICT = 1;

/**
 * Reads the file @a path, in the same way.
 *
 * @param flag LOAD_STRICT; there is no other way yet.
 * @return false with errno set when the file can't be read (EINVAL: not a regular file, or an unknown flag) or its text
 *         is refused (EBADMSG).
 */
TESSARIN_API bool load_json(const char* path, Value& out, int flag);

}  // namespace json_spirit
