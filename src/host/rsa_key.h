#pragma once

#include <openssl/evp.h>

#include <cstddef>
#include <memory>

struct RSA_Key_Delete {
  void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
};
typedef std::unique_ptr<EVP_PKEY, RSA_Key_Delete> RSA_Key_ptr;

/// The RSA key in a PEM or DER text; null if there is none, or if a pass phrase is needed. Nothing is logged.
RSA_Key_ptr read_rsa_private_key(const unsigned char* text, std::size_t length);
RSA_Key_ptr read_rsa_public_key(const unsigned char* text, std::size_t length);

/// What the keys are used with.
enum RSA_Padding {
  RSA_PADDING_OAEP_SHA256 = 1  ///< OAEP, SHA-256 for both the digest and the mask
};

struct RSA_Context_Delete {
  void operator()(EVP_PKEY_CTX* context) const { EVP_PKEY_CTX_free(context); }
};
typedef std::unique_ptr<EVP_PKEY_CTX, RSA_Context_Delete> RSA_Context_ptr;

/// @param init  EVP_PKEY_encrypt_init or EVP_PKEY_decrypt_init.
/// @return null if the padding is no RSA_Padding, or OpenSSL fails.
RSA_Context_ptr make_rsa_context(EVP_PKEY* key, int (*init)(EVP_PKEY_CTX*), int padding);

/// Drops what OpenSSL has to say about failures while it lives: they are told in other ways.
class OpenSSL_Errors_Dropped {
 public:
  OpenSSL_Errors_Dropped();
  ~OpenSSL_Errors_Dropped();
  OpenSSL_Errors_Dropped(const OpenSSL_Errors_Dropped&) = delete;
  OpenSSL_Errors_Dropped& operator=(const OpenSSL_Errors_Dropped&) = delete;
};
