#include "mtf/core/text.h"

#include <cstdint>

#include "mtf/core/little_endian.h"

namespace MTF {

namespace {

/// The character at @a at, which moves behind it.
uint32_t next_character(std::string_view utf8, size_t& at) {
  const unsigned char first = static_cast<unsigned char>(utf8[at++]);
  if (first < 0x80) return first;
  const int more = first >= 0xF0 ? 3 : first >= 0xE0 ? 2 : 1;
  uint32_t character = first & (0x3Fu >> more);
  for (int i = 0; i < more && at < utf8.size(); ++i) character = character << 6 | (utf8[at++] & 0x3F);
  return character;
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

}  // namespace MTF
