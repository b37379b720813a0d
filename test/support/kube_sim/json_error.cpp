#include "support/kube_sim/json_error.h"

#include <cstdio>
#include <cstring>

namespace kube_sim {

namespace {

const char blanks[] = " \t\r\n";

/// The real server takes a byte for the code point of that number, and shows it as UTF-8 where it can be seen.
std::string visible(unsigned char c) {
  if (c >= ' ' && c <= '~') return std::string(1, static_cast<char>(c));
  if (c > 0xa0 && c != 0xad) return {static_cast<char>(0xc0 | c >> 6), static_cast<char>(0x80 | (c & 0x3f))};
  char escape[8];
  std::snprintf(escape, sizeof escape, "\\u%04x", c);
  return escape;
}

std::string invalid(char c, const char* where) {
  return "invalid character '" + visible(static_cast<unsigned char>(c)) + "' " + where;
}

bool starts_value(char c) {
  return std::strchr("{[\"-0123456789tfn", c);
}

/// The place behind the string whose opening quote stands at @a at.
std::size_t skip_string(const std::string& text, std::size_t at) {
  for (++at; at < text.size() && text[at] != '"'; ++at)
    if (text[at] == '\\') ++at;
  return at + 1;
}

/// The place behind the first value, found by its brackets; beyond the end when that is missing.
std::size_t skip_value(const std::string& text, std::size_t at) {
  for (int depth = 0; at < text.size();) {
    if (text[at] == '"') {
      at = skip_string(text, at);
    } else {
      if (text[at] == '{' || text[at] == '[') ++depth;
      if (text[at] == '}' || text[at] == ']') --depth;
      ++at;
    }
    if (depth == 0 && (at >= text.size() || std::strchr(" \t\r\n{}[],:", text[at]))) return at;
  }
  return std::string::npos;
}

}  // namespace

std::string json_error(const std::string& text) {
  const std::size_t begin = text.find_first_not_of(blanks);
  if (begin == std::string::npos) return "unexpected end of JSON input";
  if (!starts_value(text[begin])) return invalid(text[begin], "looking for beginning of value");
  const std::size_t behind = skip_value(text, begin);
  if (behind >= text.size()) return "unexpected end of JSON input";
  const std::size_t rest = text.find_first_not_of(blanks, behind);
  if (rest == std::string::npos) return "unexpected end of JSON input";
  return invalid(text[rest], "after top-level value");
}

std::string body_excerpt(const std::string& text) {
  constexpr std::size_t shown = 30;
  if (text.empty()) return "<empty>";
  const std::string more = text.size() > shown ? " ..." : "";
  if (text.front() == '{') return text.substr(0, shown) + more;
  std::string digits;
  for (const char c : text.substr(0, shown))
    for (const int half : {static_cast<unsigned char>(c) >> 4, c & 15}) digits += "0123456789abcdef"[half];
  return digits + more;
}

}  // namespace kube_sim
