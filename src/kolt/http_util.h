#pragma once

#include <iterator>
#include <map>
#include <string>

#include "ace/Basic_Types.h"
#include "kolt/export.h"
#include "kolt/snprintf_t.h"

/// How a text goes into a URL. A KEEP flag leaves that character as it is.
enum HTTP_Util_Flag : unsigned long {
  HUT_FLAG_SLASH = 1,      ///< '/' is encoded too
  HUT_FLAG_SPACE = 2,      ///< a space becomes '+'
  HUT_FLAG_UPPERCASE = 4,  ///< hexadecimal digits in upper case
  HUT_FLAG_KEEP_COLON = 8,
  HUT_FLAG_KEEP_LEFT_PAREN = 16,
  HUT_FLAG_KEEP_RIGHT_PAREN = 32,
  HUT_FLAG_KEEP_SINGLE_QUOTE = 64,
  HUT_FLAG_KEEP_ASTERISK = 128,
  HUT_FLAG_KEEP_EXCLAMATION = 512,
  HUT_FLAG_KEEP_POUND = 1024,
  HUT_FLAG_KEEP_DOLLAR = 2048,
  HUT_FLAG_KEEP_AMPERSAND = 4096,
  HUT_FLAG_KEEP_PLUS = 8192,
  HUT_FLAG_KEEP_COMMA = 16384,
  HUT_FLAG_KEEP_SEMICOLON = 32768,
  HUT_FLAG_KEEP_EQUAL = 65536,
  HUT_FLAG_KEEP_QUESTION = 131072,
  HUT_FLAG_KEEP_AT = 262144,

  /// ECMAScript's encodeURIComponent
  HUT_FLAG_JS_ENCODE_URI_COMPONENT = HUT_FLAG_SLASH | HUT_FLAG_UPPERCASE | HUT_FLAG_KEEP_LEFT_PAREN |
                                     HUT_FLAG_KEEP_RIGHT_PAREN | HUT_FLAG_KEEP_SINGLE_QUOTE | HUT_FLAG_KEEP_ASTERISK |
                                     HUT_FLAG_KEEP_EXCLAMATION,
  /// ECMAScript's encodeURI
  HUT_FLAG_JS_ENCODE_URI = HUT_FLAG_UPPERCASE | HUT_FLAG_KEEP_COLON | HUT_FLAG_KEEP_LEFT_PAREN |
                           HUT_FLAG_KEEP_RIGHT_PAREN | HUT_FLAG_KEEP_SINGLE_QUOTE | HUT_FLAG_KEEP_ASTERISK |
                           HUT_FLAG_KEEP_EXCLAMATION | HUT_FLAG_KEEP_POUND | HUT_FLAG_KEEP_DOLLAR |
                           HUT_FLAG_KEEP_AMPERSAND | HUT_FLAG_KEEP_PLUS | HUT_FLAG_KEEP_COMMA |
                           HUT_FLAG_KEEP_SEMICOLON | HUT_FLAG_KEEP_EQUAL | HUT_FLAG_KEEP_QUESTION | HUT_FLAG_KEEP_AT
};

namespace kolt {

/// Whether a byte goes into a URL as it is.
TESSARIN_API bool is_url_literal(char c, unsigned long flags);

/// Writes a text, null or empty included, in the encoding of @a flags. @return where the text ends.
template <typename Iter>
Iter url_encode(const char* text, unsigned long flags, Iter out) {
  const char* const digits = flags & HUT_FLAG_UPPERCASE ? "0123456789ABCDEF" : "0123456789abcdef";
  for (; text != nullptr && *text != '\0'; ++text) {
    const unsigned char byte = static_cast<unsigned char>(*text);
    if (is_url_literal(*text, flags)) {
      *out++ = *text;
    } else if (byte == ' ' && (flags & HUT_FLAG_SPACE)) {
      *out++ = '+';
    } else {
      *out++ = '%';
      *out++ = digits[byte >> 4];
      *out++ = digits[byte & 15];
    }
  }
  return out;
}

}  // namespace kolt

/// Writes a text, byte by byte up to its NUL, in the encoding of @a flags.
/// @return false if the text is null or empty: nothing is written.
template <typename Iter>
bool http_encode_string_i(const char* text, unsigned long flags, Iter out) {
  if (text == nullptr || *text == '\0') return false;
  kolt::url_encode(text, flags, out);
  return true;
}

/// http_encode_string_i() to the end of a string.
TESSARIN_API bool http_encode_string(const char* text, unsigned long flags, std::string& out);

/**
 * Writes the parameters of a query string, one after the other; the "?" before them is the caller's.
 *
 * @code
 *   std::string url = "/search?";
 *   HTTP_Query_String_Builder_string(std::back_inserter(url), false)("q", "a b")("page", 2);
 *   // "/search?q=a+b&page=2"
 * @endcode
 */
template <typename Iter>
class HTTP_Query_String_Builder_T {
 public:
  /// '/' is encoded, a space becomes '+', digits are in lower case.
  static constexpr unsigned long ENCODE_FLAGS = HUT_FLAG_SLASH | HUT_FLAG_SPACE;

  /// @param sep  whether an '&' is due before the first parameter.
  HTTP_Query_String_Builder_T(Iter iter, bool sep) : iter_(iter), sep_(sep) {}

  /**
   * @param name    null or empty: the whole parameter is dropped.
   * @param value   null: the name stands alone; empty: "name=".
   * @param prefix  written before the name, in the same way; may be null.
   */
  HTTP_Query_String_Builder_T& operator()(const char* name, const char* value, bool encode_name = true,
                                          bool encode_value = true, const char* prefix = nullptr) {
    if (name == nullptr || *name == '\0') return *this;
    if (sep_) *iter_++ = '&';
    sep_ = true;
    put(prefix, encode_name);
    put(name, encode_name);
    if (value == nullptr) return *this;
    *iter_++ = '=';
    put(value, encode_value);
    return *this;
  }

  HTTP_Query_String_Builder_T& operator()(const char* name, ACE_UINT64 value, bool encode_name = true,
                                          const char* prefix = nullptr) {
    const snprintf_t<64, char> digits("%llu", static_cast<unsigned long long>(value));
    return (*this)(name, digits.c_str(), encode_name, false, prefix);
  }

  /// All parameters, in the map's order.
  HTTP_Query_String_Builder_T& operator()(const std::map<std::string, std::string>& params, bool encode_name = true,
                                          bool encode_value = true, const char* prefix = nullptr) {
    for (const auto& [name, value] : params) (*this)(name.c_str(), value.c_str(), encode_name, encode_value, prefix);
    return *this;
  }

  HTTP_Query_String_Builder_T& offset(ACE_UINT64 first) { return (*this)("offset", first); }
  HTTP_Query_String_Builder_T& limit(ACE_UINT64 count) { return (*this)("limit", count); }
  /// @param key  what to sort by; null or empty: no parameter.
  HTTP_Query_String_Builder_T& sort(const char* key) {
    return key == nullptr || *key == '\0' ? *this : (*this)("sort", key);
  }
  HTTP_Query_String_Builder_T& desc(bool descending) { return (*this)("desc", descending ? "true" : "false"); }

 private:
  void put(const char* text, bool encode) {
    if (encode)
      iter_ = kolt::url_encode(text, ENCODE_FLAGS, iter_);
    else
      for (; text != nullptr && *text != '\0'; ++text) *iter_++ = *text;
  }

  Iter iter_;
  bool sep_;
};

typedef HTTP_Query_String_Builder_T<std::back_insert_iterator<std::string>> HTTP_Query_String_Builder_string;
