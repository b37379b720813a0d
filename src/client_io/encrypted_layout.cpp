#include "client_io/encrypted_layout.h"

#include <cstring>

namespace client_io {

size_t key_size(Encryption_Algorithm cipher) {
  switch (cipher) {
    case ENCRYPT_AES_128_CBC:
      return 16;
    case ENCRYPT_AES_192_CBC:
      return 24;
    case ENCRYPT_AES_256_CBC:
      return 32;
    case ENCRYPT_AES_256_GCM:
      return 32;
    default:
      return 0;
  }
}

size_t chunk_overhead(Encryption_Algorithm cipher) {
  return cipher == ENCRYPT_AES_256_GCM ? gcm_tag_size : cbc_iv_size + hmac_size;
}

bool looks_encrypted(const char* bytes, size_t n) {
  return n >= sizeof encrypted_magic && std::memcmp(bytes, encrypted_magic, sizeof encrypted_magic) == 0;
}

Encrypted_Layout::Encrypted_Layout(Encryption_Algorithm cipher, uint64_t stored_size)
    : overhead_(chunk_overhead(cipher)) {
  if (stored_size < encrypted_header_size + overhead_) return;
  const uint64_t body = stored_size - encrypted_header_size;
  const uint64_t full = plain_chunk_size + overhead_;
  chunks_ = (body + full - 1) / full;
  const uint64_t last = body - (chunks_ - 1) * full;
  // Only the one chunk of an empty object holds nothing.
  valid_ = last > overhead_ || (last == overhead_ && chunks_ == 1);
  if (valid_) plain_size_ = body - chunks_ * overhead_;
}

size_t Encrypted_Layout::plain_length(uint64_t chunk) const {
  return is_last(chunk) ? static_cast<size_t>(plain_size_ - chunk * plain_chunk_size) : plain_chunk_size;
}

}  // namespace client_io
