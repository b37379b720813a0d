#pragma once

#include <concepts>
#include <cstdarg>
#include <string>

#include "kolt/export.h"

namespace kolt {

/// The body of string_vsprintf().
TESSARIN_API int string_vsprintf(std::string& out, const char* fmt, va_list ap, bool append);

}  // namespace kolt

/**
 * printf formatting into a string.
 *
 * @param out     gets the text, behind what it holds when @a append is true, else in its place. No argument may point
 *                into it. On failure it holds what it held before the text when @a append is true, else nothing.
 * @return the new size of @a out, or a negative number when formatting failed (errno is vsnprintf's, or ENOMEM).
 */
template <std::same_as<char> Char = char>
int string_vsprintf(std::string& out, const char* fmt, va_list ap, bool append) {
  return kolt::string_vsprintf(out, fmt, ap, append);
}

/// printf formatting. @return the text; empty when formatting failed.
template <std::same_as<char> Char = char>
__attribute__((format(printf, 1, 2))) std::string string_sprintf(const char* fmt, ...) {
  std::string out;
  va_list ap;
  va_start(ap, fmt);
  kolt::string_vsprintf(out, fmt, ap, false);
  va_end(ap);
  return out;
}
