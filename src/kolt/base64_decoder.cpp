#include "kolt/base64_decoder.h"

#include <cstring>
#include <string_view>

namespace {

constexpr int bad_char = -1;

int sextet(char c) {
  if (c >= 'A' && c <= 'Z') return c - 'A';
  if (c >= 'a' && c <= 'z') return c - 'a' + 26;
  if (c >= '0' && c <= '9') return c - '0' + 52;
  if (c == '+') return 62;
  if (c == '/') return 63;
  return bad_char;
}

bool is_blank(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

template <typename Bytes>
bool decode(std::string_view text, Bytes& bytes) {
  unsigned bits = 0;       // what has been read and not yet given out
  unsigned bit_count = 0;  // below 8 between two characters
  std::size_t count = 0, padding = 0;
  bytes.reserve(text.size() / 4 * 3 + 3);
  for (const char c : text) {
    if (is_blank(c)) continue;
    if (c == '=') {
      ++padding;
      continue;
    }
    const int value = sextet(c);
    if (value == bad_char || padding != 0) return false;
    ++count;
    bits = bits << 6 | static_cast<unsigned>(value);
    bit_count += 6;
    if (bit_count < 8) continue;
    bit_count -= 8;
    bytes.push_back(static_cast<unsigned char>(bits >> bit_count));
    bits &= (1u << bit_count) - 1;
  }
  const bool whole = padding == 0 || (padding <= 2 && (count + padding) % 4 == 0);
  return whole && count % 4 != 1 && bits == 0;
}

}  // namespace

bool Base64_Decoder::set(const void* data, int length) {
  decltype(bytes_) bytes;
  const char* text = static_cast<const char*>(data);
  const bool good =
      text != nullptr && decode({text, length < 0 ? std::strlen(text) : static_cast<std::size_t>(length)}, bytes);
  if (!good) bytes = {};
  bytes_.swap(bytes);
  return good;
}

const unsigned char* Base64_Decoder::get() const {
  static const unsigned char nothing = 0;
  return bytes_.empty() ? &nothing : bytes_.data();
}
