#include "client_io/s3_signer.h"

#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <array>

#include "kolt/http_util.h"

namespace client_io {

namespace {

constexpr char s3_algorithm[] = "AWS4-HMAC-SHA256";

typedef std::array<unsigned char, 32> S3_Hash;

std::string s3_hex(const S3_Hash& hash) {
  std::string text;
  for (const unsigned char byte : hash) {
    text += "0123456789abcdef"[byte >> 4];
    text += "0123456789abcdef"[byte & 15];
  }
  return text;
}

std::string_view s3_view(const S3_Hash& hash) {
  return {reinterpret_cast<const char*>(hash.data()), hash.size()};
}

S3_Hash s3_hmac(std::string_view key, std::string_view text) {
  S3_Hash hash{};
  HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()), reinterpret_cast<const unsigned char*>(text.data()),
       text.size(), hash.data(), nullptr);
  return hash;
}

// The secret itself never signs, only what is derived from it for a day, a region and the service.
std::string s3_signature(const S3_Credentials& credentials, const std::string& day, const std::string& region,
                         const std::string& text) {
  const secure_string secret = "AWS4" + credentials.secret_access_key;
  S3_Hash key = s3_hmac(secret, day);
  for (const std::string_view step :
       {std::string_view(region), std::string_view("s3"), std::string_view("aws4_request")})
    key = s3_hmac(s3_view(key), step);
  const std::string signature = s3_hex(s3_hmac(s3_view(key), text));
  secure_memset(key.data(), 0, key.size());
  return signature;
}

std::string s3_signed_names(const S3_Headers& headers) {
  std::string names;
  for (const auto& [name, value] : headers) names += (names.empty() ? "" : ";") + name;
  return names;
}

std::string s3_canonical_request(const S3_Signed_Parts& parts) {
  std::string text = parts.method + '\n' + parts.path + '\n' + s3_query_string(parts.query) + '\n';
  for (const auto& [name, value] : parts.headers) text += name + ':' + value + '\n';
  return text + '\n' + s3_signed_names(parts.headers) + '\n' + parts.payload_hash;
}

}  // namespace

std::string s3_encode_path(std::string_view name) {
  std::string path;
  http_encode_string(std::string(name).c_str(), HUT_FLAG_UPPERCASE, path);
  return path;
}

std::string s3_query_string(const S3_Query& query) {
  std::string text;
  for (const auto& [name, value] : query) {
    text += (text.empty() ? "" : "&") + name + '=';
    http_encode_string(value.c_str(), HUT_FLAG_UPPERCASE | HUT_FLAG_SLASH, text);
  }
  return text;
}

std::string s3_payload_hash(std::string_view body) {
  S3_Hash hash{};
  EVP_Digest(body.data(), body.size(), hash.data(), nullptr, EVP_sha256(), nullptr);
  return s3_hex(hash);
}

std::string s3_timestamp(time_t time) {
  struct tm parts;
  char text[32];
  gmtime_r(&time, &parts);
  return std::string(text, strftime(text, sizeof text, "%Y%m%dT%H%M%SZ", &parts));
}

std::string s3_authorization(const S3_Signed_Parts& parts, const std::string& region,
                             const S3_Credentials& credentials) {
  const std::string& time = parts.headers.at("x-amz-date");
  const std::string day = time.substr(0, 8);
  const std::string scope = day + '/' + region + "/s3/aws4_request";
  const std::string text =
      std::string(s3_algorithm) + '\n' + time + '\n' + scope + '\n' + s3_payload_hash(s3_canonical_request(parts));
  return std::string(s3_algorithm) + " Credential=" + credentials.access_key_id + '/' + scope +
         ", SignedHeaders=" + s3_signed_names(parts.headers) +
         ", Signature=" + s3_signature(credentials, day, region, text);
}

}  // namespace client_io
