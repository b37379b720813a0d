#pragma once

#include <cstddef>
#include <string>

#include "ace/Log_Msg.h"
#include "ace/Log_Record.h"
#include "json_spirit/dump.h"
#include "kolt/string_sprintf.h"

namespace json_spirit {

/// A dump in at most @a room bytes: one that is longer is cut between two characters and ends in "...".
TESSARIN_API std::string shortened(const JSON_Dump& dump, std::size_t room);

namespace log_argument {

template <typename T>
T fitted(T value, std::size_t) {
  return value;
}
inline std::string fitted(const JSON_Dump& dump, std::size_t room) {
  return shortened(dump, room);
}

template <typename T>
T plain(T value) {
  return value;
}
inline const char* plain(const std::string& text) {
  return text.c_str();
}

}  // namespace log_argument

/**
 * Logs a line with a JSON_Dump among its arguments, for "%s". The log cuts what is longer than one of its lines; here
 * the dump gives way, and only as far as it must, so that what stands behind it is told:
 * @code
 *   log_with_dump(LM_ERROR, "Failed to get version\n%s\n type=%d, response=%d\n", JSON_Dump(val, true), type, status);
 * @endcode
 *
 * @param format  with conversions that mean the same to printf and to the log.
 * @param args  one JSON_Dump; all others are C strings or numbers.
 */
template <typename... Args>
void log_with_dump(ACE_Log_Priority priority, const char* format, const Args&... args) {
  constexpr std::size_t longest = ACE_Log_Record::MAXLOGMSGLEN - 1;
  using log_argument::fitted;
  using log_argument::plain;
  const std::size_t others = string_sprintf(format, plain(fitted(args, 0))...).size();
  ACE_ERROR((priority, format, plain(fitted(args, longest > others ? longest - others : 0))...));
}

}  // namespace json_spirit
