#include "json_spirit/escape.h"

#include <array>

namespace json_spirit {

namespace {

constexpr bool is_plain(unsigned char c) {
  return c >= 0x20 && c < 0x80 && c != '"' && c != '\\';
}

/// Whether a byte stands for itself whatever follows.
constexpr std::array<bool, 256> plain = [] {
  std::array<bool, 256> table{};
  for (std::size_t c = 0; c < table.size(); ++c) table[c] = is_plain(static_cast<unsigned char>(c));
  return table;
}();

constexpr bool continues(unsigned char c) {
  return (c & 0xC0) == 0x80;
}

/// Length of the valid UTF-8 sequence of two bytes or more at the start of @a text; 0 if there is none. Overlong forms,
/// surrogates and what lies beyond U+10FFFF are not valid; all of them show in the second byte.
std::size_t sequence_length(std::string_view text) {
  const auto byte = [text](std::size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0u; };
  const unsigned lead = byte(0), second = byte(1);
  if (!continues(second)) return 0;
  if (lead >= 0xC2 && lead <= 0xDF) return 2;
  if (!continues(byte(2))) return 0;
  if (lead >= 0xE0 && lead <= 0xEF) return (lead == 0xE0 && second < 0xA0) || (lead == 0xED && second > 0x9F) ? 0 : 3;
  if (!continues(byte(3)) || lead < 0xF0 || lead > 0xF4) return 0;
  return (lead == 0xF0 && second < 0x90) || (lead == 0xF4 && second > 0x8F) ? 0 : 4;
}

void append_control(unsigned char c, std::string& out) {
  static constexpr char hex[] = "0123456789abcdef";
  switch (c) {
    case '"':
      out += "\\\"";
      return;
    case '\\':
      out += "\\\\";
      return;
    case '\b':
      out += "\\b";
      return;
    case '\f':
      out += "\\f";
      return;
    case '\n':
      out += "\\n";
      return;
    case '\r':
      out += "\\r";
      return;
    case '\t':
      out += "\\t";
      return;
    default:
      out.append("\\u00").append(1, hex[c >> 4]).append(1, hex[c & 15]);
  }
}

}  // namespace

void append_escaped(std::string_view text, std::string& out) {
  std::size_t done = 0, at = 0;
  while (at < text.size()) {
    const auto c = static_cast<unsigned char>(text[at]);
    if (plain[c]) {
      ++at;
      continue;
    }
    const std::size_t length = c < 0x80 ? 0 : sequence_length(text.substr(at));
    if (length != 0) {
      at += length;
      continue;
    }
    out.append(text, done, at - done);
    if (c < 0x80)
      append_control(c, out);
    else
      out += "\xEF\xBF\xBD";
    done = ++at;
  }
  out.append(text, done);
}

}  // namespace json_spirit
