#pragma once

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

#include <memory>
#include <stdexcept>
#include <string>

namespace test_support {

/// A fresh RSA key pair, as PEM texts (PKCS#8 and SubjectPublicKeyInfo). The program that includes this links
/// libcrypto.
struct RSA_Key_Pair {
  explicit RSA_Key_Pair(unsigned bits = 2048) {
    const std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(EVP_RSA_gen(bits), EVP_PKEY_free);
    if (!key) throw std::runtime_error("no RSA key was made");
    const Bio private_text(BIO_new(BIO_s_mem()), BIO_free), public_text(BIO_new(BIO_s_mem()), BIO_free);
    PEM_write_bio_PrivateKey(private_text.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr);
    PEM_write_bio_PUBKEY(public_text.get(), key.get());
    private_pem = text_of(private_text);
    public_pem = text_of(public_text);
  }

  std::string private_pem;
  std::string public_pem;

 private:
  typedef std::unique_ptr<BIO, decltype(&BIO_free)> Bio;

  static std::string text_of(const Bio& bio) {
    char* text = nullptr;
    const long length = BIO_get_mem_data(bio.get(), &text);
    return std::string(text, static_cast<size_t>(length));
  }
};

}  // namespace test_support
