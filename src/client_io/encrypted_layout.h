#pragma once

#include <cstddef>
#include <cstdint>

#include "kolt/encryption.h"
#include "kolt/export.h"

// How the plain bytes of an object lie in the encrypted one, as doc/encryption.md tells.
namespace client_io {

/// An object is encrypted in chunks of this many plain bytes; only the last one may be shorter.
constexpr size_t plain_chunk_size = size_t(1) << 16;
constexpr size_t encrypted_header_size = 64;
constexpr char encrypted_magic[8] = {'T', 'E', 'S', 'S', 'E', 'N', 'C', '1'};
constexpr size_t gcm_tag_size = 16;
constexpr size_t cbc_iv_size = 16;
constexpr size_t hmac_size = 32;
constexpr size_t max_chunk_overhead = cbc_iv_size + hmac_size;

/// Bytes of a key of @a cipher; 0 where there is no such cipher.
TESSARIN_API size_t key_size(Encryption_Algorithm cipher);

/// Whether an object begins like an encrypted one. @a n bytes are at hand.
TESSARIN_API bool looks_encrypted(const char* bytes, size_t n);

/// The chunks of one object.
class TESSARIN_API Encrypted_Layout {
 public:
  /// @param stored_size  bytes of the encrypted object.
  Encrypted_Layout(Encryption_Algorithm cipher, uint64_t stored_size);

  /// Whether an object of this cipher can have that size; the rest holds only then.
  bool is_valid() const { return valid_; }
  uint64_t plain_size() const { return plain_size_; }
  /// At least 1.
  uint64_t chunks() const { return chunks_; }
  uint64_t stored_offset(uint64_t chunk) const {
    return encrypted_header_size + chunk * (plain_chunk_size + overhead_);
  }
  size_t plain_length(uint64_t chunk) const;
  size_t stored_length(uint64_t chunk) const { return plain_length(chunk) + overhead_; }
  bool is_last(uint64_t chunk) const { return chunk + 1 == chunks_; }

 private:
  const size_t overhead_;
  uint64_t chunks_ = 1;
  uint64_t plain_size_ = 0;
  bool valid_ = false;
};

/// What a chunk takes beyond its plain bytes.
TESSARIN_API size_t chunk_overhead(Encryption_Algorithm cipher);

}  // namespace client_io
