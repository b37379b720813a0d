#include "host/rsa_decoder.h"

#include <limits>

#include "host/rsa_key.h"
#include "kolt/base64_decoder.h"

RSA_Decoder::RSA_Decoder(const unsigned char* data, unsigned long length, const unsigned char* key,
                         unsigned long key_length, bool base64, int padding) {
  if (!base64) {
    good_ = decode(data, length, key, key_length, padding);
    return;
  }
  Base64_Decoder bytes;
  if (length > static_cast<unsigned long>(std::numeric_limits<int>::max())) return;
  if (!bytes.set(data, static_cast<int>(length))) return;
  good_ = decode(bytes.get(), bytes.length(), key, key_length, padding);
}

bool RSA_Decoder::decode(const unsigned char* data, unsigned long length, const unsigned char* key,
                         unsigned long key_length, int padding) {
  const OpenSSL_Errors_Dropped errors;
  const RSA_Key_ptr private_key = read_rsa_private_key(key, key_length);
  if (!private_key) return false;
  const RSA_Context_ptr context = make_rsa_context(private_key.get(), EVP_PKEY_decrypt_init, padding);
  if (!context) return false;
  std::size_t size = static_cast<std::size_t>(EVP_PKEY_get_size(private_key.get()));
  result_.resize(size);
  const bool decoded = EVP_PKEY_decrypt(context.get(), result_.data(), &size, data, length) == 1;
  result_.resize(decoded ? size : 0);
  return decoded;
}
