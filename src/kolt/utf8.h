#pragma once

#include <cstddef>
#include <string_view>

namespace kolt {

/// Whether a byte is one of a UTF-8 character but its first.
constexpr bool utf8_continues(char c) {
  return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

/// Bytes of the UTF-8 character at the start of @a text; 0 if there is none, or none that is well-formed: shortest
/// forms only, no surrogates, nothing above U+10FFFF. All of these show in the second byte.
constexpr std::size_t utf8_length(std::string_view text) {
  const auto byte = [text](std::size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0u; };
  const unsigned lead = byte(0), second = byte(1);
  if (lead < 0x80) return text.empty() ? 0 : 1;
  if ((second & 0xC0) != 0x80) return 0;
  if (lead >= 0xC2 && lead <= 0xDF) return 2;
  if ((byte(2) & 0xC0) != 0x80) return 0;
  if (lead >= 0xE0 && lead <= 0xEF) return (lead == 0xE0 && second < 0xA0) || (lead == 0xED && second > 0x9F) ? 0 : 3;
  if ((byte(3) & 0xC0) != 0x80 || lead < 0xF0 || lead > 0xF4) return 0;
  return (lead == 0xF0 && second < 0x90) || (lead == 0xF4 && second > 0x8F) ? 0 : 4;
}

/// Whether all of @a text is well-formed UTF-8. NUL is allowed.
constexpr bool is_utf8(std::string_view text) {
  while (!text.empty()) {
    const std::size_t length = utf8_length(text);
    if (length == 0) return false;
    text.remove_prefix(length);
  }
  return true;
}

/// The longest beginning of @a text that is no longer than @a max bytes and cuts no UTF-8 character.
constexpr std::string_view utf8_prefix(std::string_view text, std::size_t max) {
  if (text.size() <= max) return text;
  while (max > 0 && utf8_continues(text[max])) --max;
  return text.substr(0, max);
}

}  // namespace kolt
