#pragma once

#include <cstddef>
#include <memory>
#include <string_view>

#include "client_io/pool_encryption.h"
#include "kolt/encryption.h"
#include "kolt/export.h"
#include "kolt/secure_memory.h"

struct evp_cipher_st;
struct evp_kdf_st;
struct evp_mac_st;

namespace client_io {

/// The keys of one object, wiped when they go.
struct Object_Keys {
  unsigned char cipher[32];  ///< the first bytes, as many as the cipher takes
  unsigned char mac[32];     ///< of CBC

  ~Object_Keys() { secure_memset(this, 0, sizeof *this); }
};

/// Makes headers of encrypted objects and derives the keys of single objects, as doc/encryption.md tells. Logs nothing.
/// Threads: after open(), any.
class TESSARIN_API Key_Source {
 public:
  /// @param encryption  with a cipher that is known and a key that fits it.
  explicit Key_Source(Pool_Encryption encryption);
  ~Key_Source();

  /// Gets the algorithms. False with errno ENOMEM, or ENOTSUP where the process's OpenSSL does not have them.
  [[nodiscard]] bool open();

  Encryption_Algorithm cipher() const { return encryption_.cipher; }

  /// A new header of encrypted_header_size bytes, with fresh random bytes. False: OpenSSL failed.
  [[nodiscard]] bool make_header(char* header) const;
  /// Whether a header that names the pool's cipher was made with the pool's key.
  bool owns_header(const char* header) const;
  /// The keys of the object @a key with that header. False: OpenSSL failed.
  [[nodiscard]] bool derive(const char* header, std::string_view key, Object_Keys& keys) const;

  const evp_cipher_st* aes() const { return aes_.get(); }
  evp_mac_st* hmac() const { return hmac_.get(); }

 private:
  bool hkdf(const char* header, std::string_view purpose, std::string_view key, void* to, size_t n) const;

  struct Free {
    void operator()(evp_cipher_st* cipher) const;
    void operator()(evp_kdf_st* kdf) const;
    void operator()(evp_mac_st* mac) const;
  };

  const Pool_Encryption encryption_;
  std::unique_ptr<evp_cipher_st, Free> aes_;
  std::unique_ptr<evp_kdf_st, Free> hkdf_;
  std::unique_ptr<evp_mac_st, Free> hmac_;
};

/// The cipher that a header names; ENCRYPT_NONE where it is no header of an encrypted object that this version knows.
TESSARIN_API Encryption_Algorithm cipher_of_header(const char* header);

}  // namespace client_io
