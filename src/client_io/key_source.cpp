#include "client_io/key_source.h"

#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/kdf.h>
#include <openssl/params.h>
#include <openssl/rand.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>

#include "client_io/encrypted_layout.h"

namespace client_io {

namespace {

// Of the header: magic 8, cipher 4, plain bytes of a chunk 4, salt 32, check 16.
constexpr size_t cipher_at = 8;
constexpr size_t chunk_at = 12;
constexpr size_t salt_at = 16;
constexpr size_t salt_size = 32;
constexpr size_t check_at = 48;
constexpr size_t check_size = 16;
static_assert(check_at + check_size == encrypted_header_size);

void put_u32(char* to, uint32_t value) {
  for (int i = 0; i < 4; ++i) to[i] = static_cast<char>(value >> (8 * i));
}

uint32_t get_u32(const char* from) {
  uint32_t value = 0;
  for (int i = 0; i < 4; ++i) value |= static_cast<uint32_t>(static_cast<unsigned char>(from[i])) << (8 * i);
  return value;
}

const char* aes_name(Encryption_Algorithm cipher) {
  switch (cipher) {
    case ENCRYPT_AES_128_CBC:
      return "AES-128-CBC";
    case ENCRYPT_AES_192_CBC:
      return "AES-192-CBC";
    case ENCRYPT_AES_256_CBC:
      return "AES-256-CBC";
    default:
      return "AES-256-GCM";
  }
}

OSSL_PARAM octets(const char* name, const void* bytes, size_t n) {
  return OSSL_PARAM_construct_octet_string(name, const_cast<void*>(bytes), n);
}

}  // namespace

void Key_Source::Free::operator()(evp_cipher_st* cipher) const {
  EVP_CIPHER_free(cipher);
}
void Key_Source::Free::operator()(evp_kdf_st* kdf) const {
  EVP_KDF_free(kdf);
}
void Key_Source::Free::operator()(evp_mac_st* mac) const {
  EVP_MAC_free(mac);
}

Key_Source::Key_Source(Pool_Encryption encryption) : encryption_(std::move(encryption)) {}
Key_Source::~Key_Source() = default;

bool Key_Source::open() {
  aes_.reset(EVP_CIPHER_fetch(nullptr, aes_name(encryption_.cipher), nullptr));
  hkdf_.reset(EVP_KDF_fetch(nullptr, "HKDF", nullptr));
  hmac_.reset(EVP_MAC_fetch(nullptr, "HMAC", nullptr));
  if (aes_ && hkdf_ && hmac_) return true;
  errno = ENOTSUP;
  return false;
}

bool Key_Source::make_header(char* header) const {
  std::memcpy(header, encrypted_magic, sizeof encrypted_magic);
  put_u32(header + cipher_at, static_cast<uint32_t>(encryption_.cipher));
  put_u32(header + chunk_at, plain_chunk_size);
  return RAND_bytes(reinterpret_cast<unsigned char*>(header) + salt_at, salt_size) == 1 &&
         hkdf(header, "tessarin header", {}, header + check_at, check_size);
}

bool Key_Source::owns_header(const char* header) const {
  char check[check_size];
  return hkdf(header, "tessarin header", {}, check, check_size) &&
         CRYPTO_memcmp(check, header + check_at, check_size) == 0;
}

bool Key_Source::derive(const char* header, std::string_view key, Object_Keys& keys) const {
  return hkdf(header, "tessarin keys", key, &keys, sizeof keys);
}

// HKDF-SHA256 with the pool's key. Salt: the pool's iv and that of the object. Info: what it is for, a NUL, the front
// of the header, the object's key.
bool Key_Source::hkdf(const char* header, std::string_view purpose, std::string_view key, void* to, size_t n) const {
  std::string salt(encryption_.iv.begin(), encryption_.iv.end());
  salt.append(header + salt_at, salt_size);
  std::string info(purpose);
  info.append(1, '\0').append(header, salt_at).append(key);
  char sha256[] = "SHA256";
  const OSSL_PARAM params[] = {OSSL_PARAM_construct_utf8_string(OSSL_KDF_PARAM_DIGEST, sha256, 0),
                               octets(OSSL_KDF_PARAM_KEY, encryption_.key.data(), encryption_.key.size()),
                               octets(OSSL_KDF_PARAM_SALT, salt.data(), salt.size()),
                               octets(OSSL_KDF_PARAM_INFO, info.data(), info.size()), OSSL_PARAM_construct_end()};
  const std::unique_ptr<EVP_KDF_CTX, void (*)(EVP_KDF_CTX*)> context(EVP_KDF_CTX_new(hkdf_.get()), EVP_KDF_CTX_free);
  return context && EVP_KDF_derive(context.get(), static_cast<unsigned char*>(to), n, params) == 1;
}

Encryption_Algorithm cipher_of_header(const char* header) {
  if (!looks_encrypted(header, encrypted_header_size) || get_u32(header + chunk_at) != plain_chunk_size)
    return ENCRYPT_NONE;
  const auto cipher = static_cast<Encryption_Algorithm>(get_u32(header + cipher_at));
  return key_size(cipher) == 0 ? ENCRYPT_NONE : cipher;
}

}  // namespace client_io
