#include "json_spirit/log_with_dump.h"

#include <algorithm>
#include <string_view>

namespace json_spirit {

namespace {

bool continues_character(char c) {
  return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

}  // namespace

std::string shortened(const JSON_Dump& dump, std::size_t room) {
  constexpr std::string_view mark = "...";
  const std::string_view text = dump.str();
  if (text.size() <= room) return std::string(text);
  std::size_t end = room - std::min(room, mark.size());
  while (end > 0 && continues_character(text[end])) --end;
  return std::string(text.substr(0, end)).append(mark.substr(0, room));
}

}  // namespace json_spirit
