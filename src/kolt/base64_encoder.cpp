#include "kolt/base64_encoder.h"

std::string base64_encode(std::string_view bytes) {
  static constexpr char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  unsigned bits = 0, bit_count = 0;
  for (const char c : bytes) {
    bits = bits << 8 | static_cast<unsigned char>(c);
    for (bit_count += 8; bit_count >= 6;) {
      bit_count -= 6;
      text += alphabet[bits >> bit_count & 63];
    }
    bits &= (1u << bit_count) - 1;
  }
  if (bit_count != 0) text += alphabet[bits << (6 - bit_count)];
  while (text.size() % 4 != 0) text += '=';
  return text;
}
