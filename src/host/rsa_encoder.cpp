#include "host/rsa_encoder.h"

#include <openssl/sha.h>

#include <string>
#include <string_view>

#include "host/rsa_key.h"
#include "kolt/base64_encoder.h"

RSA_Encoder::RSA_Encoder(const unsigned char* data, unsigned long length, const unsigned char* key,
                         unsigned long key_length, bool base64, int padding) {
  good_ = encode(data, length, key, key_length, padding);
  if (!good_ || !base64) return;
  const std::string text =
      base64_encode(std::string_view(reinterpret_cast<const char*>(result_.data()), result_.size()));
  result_.assign(text.begin(), text.end());
}

long RSA_Encoder::capacity(const unsigned char* key, unsigned long key_length) {
  const RSA_Key_ptr public_key = read_rsa_public_key(key, key_length);
  const long overhead = 2 * SHA256_DIGEST_LENGTH + 2;
  const long size = public_key ? EVP_PKEY_get_size(public_key.get()) : 0;
  return size < overhead ? -1 : size - overhead;
}

bool RSA_Encoder::encode(const unsigned char* data, unsigned long length, const unsigned char* key,
                         unsigned long key_length, int padding) {
  const OpenSSL_Errors_Dropped errors;
  const RSA_Key_ptr public_key = read_rsa_public_key(key, key_length);
  if (!public_key) return false;
  const RSA_Context_ptr context = make_rsa_context(public_key.get(), EVP_PKEY_encrypt_init, padding);
  if (!context) return false;
  std::size_t size = static_cast<std::size_t>(EVP_PKEY_get_size(public_key.get()));
  result_.resize(size);
  const bool encoded = EVP_PKEY_encrypt(context.get(), result_.data(), &size, data, length) == 1;
  result_.resize(encoded ? size : 0);
  return encoded;
}
