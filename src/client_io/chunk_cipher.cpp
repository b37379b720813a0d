#include "client_io/chunk_cipher.h"

#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/params.h>
#include <openssl/rand.h>

#include <cstring>

#include "client_io/encrypted_layout.h"

namespace client_io {

namespace {

constexpr size_t block_size = 16;
constexpr size_t position_size = 12;
static_assert(cbc_iv_size == block_size);

// Where a chunk stands. GCM takes it as the nonce, which no other chunk of the object has.
struct Position {
  Position(uint64_t number, bool last) {
    for (int i = 0; i < 8; ++i) bytes[i] = static_cast<unsigned char>(number >> (8 * i));
    bytes[8] = last;
  }
  unsigned char bytes[position_size] = {};
};

const unsigned char* in(const char* bytes) {
  return reinterpret_cast<const unsigned char*>(bytes);
}
unsigned char* out(char* bytes) {
  return reinterpret_cast<unsigned char*>(bytes);
}

bool update(EVP_CIPHER_CTX* aes, const char* from, size_t n, char* to) {
  int done = 0;
  return n == 0 ||
         (EVP_CipherUpdate(aes, out(to), &done, in(from), static_cast<int>(n)) == 1 && done == static_cast<int>(n));
}

// Begins anew with the key that is set.
bool begin(EVP_CIPHER_CTX* aes, const unsigned char* iv) {
  return EVP_CipherInit_ex2(aes, nullptr, nullptr, iv, -1, nullptr) == 1;
}

}  // namespace

void Chunk_Cipher::Free::operator()(evp_cipher_ctx_st* context) const {
  EVP_CIPHER_CTX_free(context);
}
void Chunk_Cipher::Free::operator()(evp_mac_ctx_st* context) const {
  EVP_MAC_CTX_free(context);
}

Chunk_Cipher::Chunk_Cipher(const Key_Source& source, Direction direction) : source_(source), direction_(direction) {}
Chunk_Cipher::~Chunk_Cipher() = default;

bool Chunk_Cipher::start(const Object_Keys& keys) {
  const auto set_key = [&](auto& context, int encrypt) {
    context.reset(EVP_CIPHER_CTX_new());
    return context && EVP_CipherInit_ex2(context.get(), source_.aes(), keys.cipher, nullptr, encrypt, nullptr) == 1 &&
           EVP_CIPHER_CTX_set_padding(context.get(), 0) == 1;
  };
  if (!set_key(aes_, direction_ == SEAL)) return false;
  if (source_.cipher() == ENCRYPT_AES_256_GCM) return true;
  if (!set_key(tail_, 1)) return false;
  hmac_.reset(EVP_MAC_CTX_new(source_.hmac()));
  char sha256[] = "SHA256";
  const OSSL_PARAM params[] = {OSSL_PARAM_construct_utf8_string(OSSL_MAC_PARAM_DIGEST, sha256, 0),
                               OSSL_PARAM_construct_end()};
  return hmac_ && EVP_MAC_init(hmac_.get(), keys.mac, sizeof keys.mac, params) == 1;
}

bool Chunk_Cipher::seal(uint64_t number, bool last, const char* plain, size_t n, char* stored) {
  const Position position(number, last);
  return hmac_ ? seal_cbc(position.bytes, plain, n, stored) : seal_gcm(position.bytes, plain, n, stored);
}

bool Chunk_Cipher::open(uint64_t number, bool last, const char* stored, size_t n, char* plain) {
  const Position position(number, last);
  return hmac_ ? open_cbc(position.bytes, stored, n, plain) : open_gcm(position.bytes, stored, n, plain);
}

bool Chunk_Cipher::seal_gcm(const unsigned char* position, const char* plain, size_t n, char* stored) {
  int none = 0;
  unsigned char end[block_size];
  return begin(aes_.get(), position) && update(aes_.get(), plain, n, stored) &&
         EVP_CipherFinal_ex(aes_.get(), end, &none) == 1 &&
         EVP_CIPHER_CTX_ctrl(aes_.get(), EVP_CTRL_AEAD_GET_TAG, gcm_tag_size, stored + n) == 1;
}

bool Chunk_Cipher::open_gcm(const unsigned char* position, const char* stored, size_t n, char* plain) {
  int none = 0;
  unsigned char end[block_size];
  char tag[gcm_tag_size];
  std::memcpy(tag, stored + n, gcm_tag_size);
  return begin(aes_.get(), position) && update(aes_.get(), stored, n, plain) &&
         EVP_CIPHER_CTX_ctrl(aes_.get(), EVP_CTRL_AEAD_SET_TAG, gcm_tag_size, tag) == 1 &&
         EVP_CipherFinal_ex(aes_.get(), end, &none) == 1;
}

bool Chunk_Cipher::seal_cbc(const unsigned char* position, const char* plain, size_t n, char* stored) {
  char* const text = stored + cbc_iv_size;
  return RAND_bytes(out(stored), cbc_iv_size) == 1 && cbc(stored, plain, n, text) && cbc_tail(stored, plain, n, text) &&
         authenticate(position, stored, cbc_iv_size + n, out(text + n));
}

bool Chunk_Cipher::open_cbc(const unsigned char* position, const char* stored, size_t n, char* plain) {
  const char* const text = stored + cbc_iv_size;
  unsigned char code[hmac_size];
  return authenticate(position, stored, cbc_iv_size + n, code) && CRYPTO_memcmp(code, text + n, hmac_size) == 0 &&
         cbc(stored, text, n, plain) && cbc_tail(stored, text, n, plain);
}

// The whole blocks. @a stored begins with the IV.
bool Chunk_Cipher::cbc(const char* stored, const char* from, size_t n, char* to) {
  return begin(aes_.get(), in(stored)) && update(aes_.get(), from, n - n % block_size, to);
}

// What is left behind the last whole block goes by XOR with the encrypted block that stands before it, or the IV: so
// the lengths are equal. Encryption and decryption are the same.
bool Chunk_Cipher::cbc_tail(const char* stored, const char* from, size_t n, char* to) {
  const size_t whole = n - n % block_size;
  if (whole == n) return true;
  const char zero[block_size] = {};
  char mask[block_size];
  if (!begin(tail_.get(), in(stored + whole)) || !update(tail_.get(), zero, block_size, mask)) return false;
  for (size_t i = whole; i < n; ++i) to[i] = static_cast<char>(from[i] ^ mask[i - whole]);
  return true;
}

bool Chunk_Cipher::authenticate(const unsigned char* position, const char* stored, size_t n, unsigned char* code) {
  size_t size = 0;
  return EVP_MAC_init(hmac_.get(), nullptr, 0, nullptr) == 1 &&
         EVP_MAC_update(hmac_.get(), position, position_size) == 1 && EVP_MAC_update(hmac_.get(), in(stored), n) == 1 &&
         EVP_MAC_final(hmac_.get(), code, &size, hmac_size) == 1 && size == hmac_size;
}

}  // namespace client_io
