#include "kolt/printable.h"

#include "kolt/string_sprintf.h"

namespace {

bool is_tail(char c) {
  return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

// The length of the UTF-8 sequence of a printable character at the start of text; 0 if there is none.
std::size_t sequence_length(std::string_view text) {
  const auto lead = static_cast<unsigned char>(text[0]);
  if (lead < 0x80) return lead < 0x20 || lead == 0x7F || lead == '\\' ? 0 : 1;
  const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
  if (lead < 0xC2 || lead > 0xF4 || text.size() < length) return 0;
  for (std::size_t i = 1; i < length; ++i)
    if (!is_tail(text[i])) return 0;
  const auto second = static_cast<unsigned char>(text[1]);
  const bool control = lead == 0xC2 && second < 0xA0;
  const bool overlong = (lead == 0xE0 && second < 0xA0) || (lead == 0xF0 && second < 0x90);
  const bool no_character = (lead == 0xED && second > 0x9F) || (lead == 0xF4 && second > 0x8F);
  return control || overlong || no_character ? 0 : length;
}

}  // namespace

std::string printable(std::string_view name) {
  std::string text;
  while (!name.empty()) {
    const std::size_t length = sequence_length(name);
    if (length != 0)
      text += name.substr(0, length);
    else
      text += string_sprintf("\\x%02X", static_cast<unsigned char>(name[0]));
    name.remove_prefix(length != 0 ? length : 1);
  }
  return text;
}
