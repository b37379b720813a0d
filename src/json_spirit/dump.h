#pragma once

#include "json_spirit/json_spirit_value.h"

namespace json_spirit {

/**
 * The JSON text of a value: a temporary made to be printed or stored.
 *
 * With @a pretty the text is for people: indented by two blanks, and each secure_string stands as "******". Without, it
 * is compact and exact: what a reader makes of it equals the value (a secure_string as a string).
 *
 * Both are always valid JSON, in UTF-8: control characters are escaped, a byte that isn't part of valid UTF-8 is
 * written as U+FFFD, a real always shows a fraction or an exponent and as many digits as it takes to read the same
 * number back, and a real that JSON can't hold (infinite, not a number) is written as null.
 */
class TESSARIN_API JSON_Dump {
 public:
  JSON_Dump(const Value& value, bool pretty);
  JSON_Dump(const Object& object, bool pretty);
  JSON_Dump(const Array& array, bool pretty);

  const char* c_str() const noexcept { return val_.c_str(); }
  const String_type& str() const& noexcept { return val_; }
  String_type str() && noexcept { return std::move(val_); }
  std::size_t size() const noexcept { return val_.size(); }

 private:
  String_type val_;
};

}  // namespace json_spirit
