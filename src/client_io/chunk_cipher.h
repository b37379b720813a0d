#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "client_io/key_source.h"
#include "kolt/export.h"

struct evp_cipher_ctx_st;
struct evp_mac_ctx_st;

namespace client_io {

/// Encrypts, or decrypts, the chunks of one object, as doc/encryption.md tells. Logs nothing. Threads: one.
class TESSARIN_API Chunk_Cipher {
 public:
  enum Direction { SEAL, OPEN };

  /// @param source  borrowed, outlives the object.
  Chunk_Cipher(const Key_Source& source, Direction direction);
  ~Chunk_Cipher();

  /// To be called once, and first. @a keys may go afterwards. False: no memory.
  [[nodiscard]] bool start(const Object_Keys& keys);

  /// Encrypts @a n bytes, at most plain_chunk_size, to n + chunk_overhead() bytes. False: OpenSSL failed.
  [[nodiscard]] bool seal(uint64_t number, bool last, const char* plain, size_t n, char* stored);

  /// Decrypts n + chunk_overhead() bytes to @a n. False: they are not what seal() made for this object, number and
  /// flag;
  /// @a plain may then hold anything.
  [[nodiscard]] bool open(uint64_t number, bool last, const char* stored, size_t n, char* plain);

 private:
  bool seal_gcm(const unsigned char* position, const char* plain, size_t n, char* stored);
  bool open_gcm(const unsigned char* position, const char* stored, size_t n, char* plain);
  bool seal_cbc(const unsigned char* position, const char* plain, size_t n, char* stored);
  bool open_cbc(const unsigned char* position, const char* stored, size_t n, char* plain);
  bool cbc(const char* stored, const char* from, size_t n, char* to);
  bool cbc_tail(const char* stored, const char* from, size_t n, char* to);
  bool authenticate(const unsigned char* position, const char* stored, size_t n, unsigned char* code);

  struct Free {
    void operator()(evp_cipher_ctx_st* context) const;
    void operator()(evp_mac_ctx_st* context) const;
  };

  const Key_Source& source_;
  const Direction direction_;
  std::unique_ptr<evp_cipher_ctx_st, Free> aes_;
  std::unique_ptr<evp_cipher_ctx_st, Free> tail_;  // of CBC: encrypts, whatever the direction
  std::unique_ptr<evp_mac_ctx_st, Free> hmac_;     // of CBC
};

}  // namespace client_io
