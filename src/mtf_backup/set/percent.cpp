#include "mtf_backup/set/percent.h"

namespace MTF_BACKUP {

namespace {

constexpr std::string_view hex_digits = "0123456789ABCDEF";

}  // namespace

std::string percent_encode(std::string_view bytes, std::string_view also) {
  std::string text;
  for (const char c : bytes) {
    const unsigned char byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte > 0x7e || c == '%' || also.find(c) != also.npos)
      text.append({'%', hex_digits[byte >> 4], hex_digits[byte & 15]});
    else
      text += c;
  }
  return text;
}

bool percent_decode(std::string_view text, std::string& bytes) {
  bytes.clear();
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      bytes += text[i];
      continue;
    }
    if (text.size() - i < 3) return false;
    const size_t high = hex_digits.find(text[i + 1]);
    const size_t low = hex_digits.find(text[i + 2]);
    if (high == hex_digits.npos || low == hex_digits.npos) return false;
    bytes += static_cast<char>(high * 16 + low);
    i += 2;
  }
  return true;
}

}  // namespace MTF_BACKUP
