#include "json_spirit/escape.h"

#include <array>

#include "kolt/utf8.h"

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
    const std::size_t length = c < 0x80 ? 0 : kolt::utf8_length(text.substr(at));
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
