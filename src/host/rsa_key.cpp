#include "host/rsa_key.h"

#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/decoder.h>
#include <openssl/err.h>
#include <openssl/rsa.h>

namespace {

// Nobody sits at a terminal to be asked.
int no_pass_phrase(char*, int, int, void*) {
  return -1;
}

RSA_Key_ptr read_rsa_key(const unsigned char* text, std::size_t length, int selection) {
  const OpenSSL_Errors_Dropped errors;
  EVP_PKEY* key = nullptr;
  OSSL_DECODER_CTX* const decoder =
      OSSL_DECODER_CTX_new_for_pkey(&key, nullptr, nullptr, "RSA", selection, nullptr, nullptr);
  if (decoder == nullptr) return nullptr;
  OSSL_DECODER_CTX_set_pem_password_cb(decoder, no_pass_phrase, nullptr);
  const bool read = OSSL_DECODER_from_data(decoder, &text, &length) == 1;
  OSSL_DECODER_CTX_free(decoder);
  RSA_Key_ptr result(key);
  return read ? std::move(result) : nullptr;
}

bool has_private_part(const EVP_PKEY* key) {
  BIGNUM* exponent = nullptr;
  const bool has = EVP_PKEY_get_bn_param(key, OSSL_PKEY_PARAM_RSA_D, &exponent) == 1;
  BN_clear_free(exponent);
  return has;
}

}  // namespace

OpenSSL_Errors_Dropped::OpenSSL_Errors_Dropped() {
  ERR_set_mark();
}

OpenSSL_Errors_Dropped::~OpenSSL_Errors_Dropped() {
  ERR_pop_to_mark();
}

RSA_Key_ptr read_rsa_private_key(const unsigned char* text, std::size_t length) {
  const OpenSSL_Errors_Dropped errors;
  RSA_Key_ptr key = read_rsa_key(text, length, EVP_PKEY_KEYPAIR);
  return key && has_private_part(key.get()) ? std::move(key) : nullptr;
}

RSA_Key_ptr read_rsa_public_key(const unsigned char* text, std::size_t length) {
  return read_rsa_key(text, length, EVP_PKEY_PUBLIC_KEY);
}

RSA_Context_ptr make_rsa_context(EVP_PKEY* key, int (*init)(EVP_PKEY_CTX*), int padding) {
  if (padding != RSA_PADDING_OAEP_SHA256) return nullptr;
  RSA_Context_ptr context(EVP_PKEY_CTX_new(key, nullptr));
  const bool ready = context && init(context.get()) == 1 &&
                     EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_OAEP_PADDING) == 1 &&
                     EVP_PKEY_CTX_set_rsa_oaep_md(context.get(), EVP_sha256()) == 1 &&
                     EVP_PKEY_CTX_set_rsa_mgf1_md(context.get(), EVP_sha256()) == 1;
  return ready ? std::move(context) : nullptr;
}
