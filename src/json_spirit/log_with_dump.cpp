#include "json_spirit/log_with_dump.h"

#include <algorithm>
#include <string_view>

#include "kolt/utf8.h"

namespace json_spirit {

std::string shortened(const JSON_Dump& dump, std::size_t room) {
  constexpr std::string_view mark = "...";
  const std::string_view text = dump.str();
  if (text.size() <= room) return std::string(text);
  const std::size_t kept = room - std::min(room, mark.size());
  return std::string(kolt::utf8_prefix(text, kept)).append(mark.substr(0, room));
}

}  // namespace json_spirit
