#include "kolt/http_util.h"

namespace kolt {

namespace {

/// The flag that keeps a character; 0 if none does.
unsigned long keep_flag(char c) {
  switch (c) {
    case ':':
      return HUT_FLAG_KEEP_COLON;
    case '(':
      return HUT_FLAG_KEEP_LEFT_PAREN;
    case ')':
      return HUT_FLAG_KEEP_RIGHT_PAREN;
    case '\'':
      return HUT_FLAG_KEEP_SINGLE_QUOTE;
    case '*':
      return HUT_FLAG_KEEP_ASTERISK;
    case '!':
      return HUT_FLAG_KEEP_EXCLAMATION;
    case '#':
      return HUT_FLAG_KEEP_POUND;
    case '$':
      return HUT_FLAG_KEEP_DOLLAR;
    case '&':
      return HUT_FLAG_KEEP_AMPERSAND;
    case '+':
      return HUT_FLAG_KEEP_PLUS;
    case ',':
      return HUT_FLAG_KEEP_COMMA;
    case ';':
      return HUT_FLAG_KEEP_SEMICOLON;
    case '=':
      return HUT_FLAG_KEEP_EQUAL;
    case '?':
      return HUT_FLAG_KEEP_QUESTION;
    case '@':
      return HUT_FLAG_KEEP_AT;
    default:
      return 0;
  }
}

bool is_unreserved(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_' ||
         c == '.' || c == '~';
}

}  // namespace

bool is_url_literal(char c, unsigned long flags) {
  return is_unreserved(c) || (c == '/' && !(flags & HUT_FLAG_SLASH)) || (keep_flag(c) & flags);
}

}  // namespace kolt

bool http_encode_string(const char* text, unsigned long flags, std::string& out) {
  return http_encode_string_i(text, flags, std::back_inserter(out));
}
