#include "client_io/s3_md5.h"

#include <openssl/evp.h>

#include <algorithm>

#include "kolt/base64_encoder.h"

namespace client_io {

namespace {

bool is_s3_md5_text(std::string_view text) {
  return text.size() == 32 &&
         std::all_of(text.begin(), text.end(), [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); });
}

std::string header_of(const HTTP_Headers& headers, const char* name) {
  const char* const value = headers.get(name, true);
  return value == nullptr ? std::string() : value;
}

}  // namespace

S3_Md5 s3_md5(std::string_view body) {
  unsigned char hash[16] = {};
  EVP_Digest(body.data(), body.size(), hash, nullptr, EVP_md5(), nullptr);
  S3_Md5 md5;
  md5.base64 = base64_encode({reinterpret_cast<const char*>(hash), sizeof hash});
  for (const unsigned char byte : hash) {
    md5.hex += "0123456789abcdef"[byte >> 4];
    md5.hex += "0123456789abcdef"[byte & 15];
  }
  return md5;
}

bool s3_etag_fits(const HTTP_Headers& headers, const S3_Md5& md5) {
  std::string etag = header_of(headers, "etag");
  if (etag.empty()) return false;
  std::erase(etag, '"');
  const std::string cipher = header_of(headers, "x-amz-server-side-encryption");
  const bool stored_as_it_is = cipher.empty() || cipher == "AES256";
  const bool own_key = !header_of(headers, "x-amz-server-side-encryption-customer-algorithm").empty();
  return !stored_as_it_is || own_key || !is_s3_md5_text(etag) || etag == md5.hex;
}

}  // namespace client_io
