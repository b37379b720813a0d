#include "mtf/core/text.h"

#include <cstdint>

#include "mtf/core/little_endian.h"

namespace MTF {

namespace {

constexpr uint32_t bad_character = 0xFFFFFFFF;

/// The character at @a at, which moves behind it; bad_character, with @a at anywhere, where there is none.
uint32_t next_character(std::string_view bytes, size_t& at) {
  const unsigned char first = static_cast<unsigned char>(bytes[at++]);
  if (first < 0x80) return first;
  const int more = first >= 0xF0 ? 3 : first >= 0xE0 ? 2 : 1;
  if (first < 0xC2 || first > 0xF4 || bytes.size() - at < static_cast<size_t>(more)) return bad_character;
  uint32_t character = first & (0x3Fu >> more);
  for (int i = 0; i < more; ++i) {
    const unsigned char byte = static_cast<unsigned char>(bytes[at++]);
    if ((byte & 0xC0) != 0x80) return bad_character;
    character = character << 6 | (byte & 0x3F);
  }
  constexpr uint32_t least[] = {0, 0x80, 0x800, 0x10000};
  const bool surrogate = character >= 0xD800 && character < 0xE000;
  return character < least[more] || surrogate || character > 0x10FFFF ? bad_character : character;
}

void append_utf8(std::string& text, uint32_t character) {
  if (character < 0x80) {
    text += static_cast<char>(character);
    return;
  }
  const int more = character < 0x800 ? 1 : character < 0x10000 ? 2 : 3;
  constexpr unsigned first[] = {0, 0xC0, 0xE0, 0xF0};
  text += static_cast<char>(first[more] | character >> 6 * more);
  for (int i = more - 1; i >= 0; --i) text += static_cast<char>(0x80 | (character >> 6 * i & 0x3F));
}

}  // namespace

bool is_utf8(std::string_view bytes) {
  for (size_t at = 0; at < bytes.size();)
    if (next_character(bytes, at) == bad_character) return false;
  return true;
}

size_t put_utf16(std::string_view text, char* out) {
  char* const start = out;
  for (size_t at = 0; at < text.size(); out += 2) {
    uint32_t character = next_character(text, at);
    if (character >= 0x10000) {
      character -= 0x10000;
      put_le(out, static_cast<uint16_t>(0xD800 | character >> 10));
      out += 2;
      character = 0xDC00 | (character & 0x3FF);
    }
    put_le(out, static_cast<uint16_t>(character));
  }
  return static_cast<size_t>(out - start);
}

std::string from_utf16(std::string_view bytes) {
  std::string text;
  text.reserve(bytes.size() / 2);
  for (size_t at = 0; at + 2 <= bytes.size(); at += 2) {
    uint32_t character = get_le<uint16_t>(&bytes[at]);
    if (character >= 0xD800 && character < 0xE000) {
      const uint32_t low = at + 4 <= bytes.size() ? get_le<uint16_t>(&bytes[at + 2]) : 0u;
      const bool pair = character < 0xDC00 && low >= 0xDC00 && low < 0xE000;
      character = pair ? 0x10000 + ((character & 0x3FF) << 10) + (low & 0x3FF) : 0xFFFD;
      if (pair) at += 2;
    }
    append_utf8(text, character);
  }
  return text;
}

std::string_view utf8_prefix(std::string_view text, size_t max) {
  if (text.size() <= max) return text;
  while (max > 0 && (static_cast<unsigned char>(text[max]) & 0xC0) == 0x80) --max;
  return text.substr(0, max);
}

}  // namespace MTF
