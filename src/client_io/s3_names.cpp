#include "client_io/s3_names.h"

#include "kolt/utf8.h"

namespace client_io {

namespace {

int s3_hex_digit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

}  // namespace

std::string s3_name_of(std::string_view key) {
  std::string name;
  name.reserve(key.size());
  for (const char c : key) {
    const unsigned char byte = static_cast<unsigned char>(c);
    if (byte < 0x80) {
      name += c;
    } else {
      name += static_cast<char>(0xc0 | (byte >> 6));
      name += static_cast<char>(0x80 | (byte & 0x3f));
    }
  }
  return name;
}

bool s3_key_of(std::string_view name, std::string& key) {
  key.clear();
  for (size_t at = 0; at < name.size(); ++at) {
    const unsigned char byte = static_cast<unsigned char>(name[at]);
    if (byte < 0x80) {
      key += name[at];
      continue;
    }
    const char next = at + 1 < name.size() ? name[at + 1] : '\0';
    if ((byte != 0xc2 && byte != 0xc3) || !kolt::utf8_continues(next)) return false;
    key += static_cast<char>((byte << 6) | (next & 0x3f));
    ++at;
  }
  return true;
}

std::string s3_url_decoded(std::string_view text) {
  std::string decoded;
  decoded.reserve(text.size());
  for (size_t at = 0; at < text.size(); ++at) {
    const int high = text[at] == '%' && at + 2 < text.size() ? s3_hex_digit(text[at + 1]) : -1;
    const int low = high >= 0 ? s3_hex_digit(text[at + 2]) : -1;
    if (low >= 0) {
      decoded += static_cast<char>(high * 16 + low);
      at += 2;
    } else {
      decoded += text[at] == '+' ? ' ' : text[at];
    }
  }
  return decoded;
}

}  // namespace client_io
