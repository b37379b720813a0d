#include "client_io/pool_encryption.h"

#include <cerrno>

#include "ace/Log_Msg.h"
#include "client_io/encrypted_layout.h"
#include "kolt/pool_info.h"

namespace client_io {

namespace {

bool is_good(Encryption_Algorithm cipher, size_t key_length) {
  const size_t wanted = key_size(cipher);
  if (wanted == 0) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("The storage pool has an unknown cipher: %d.\n"), static_cast<int>(cipher)));
    errno = ENOTSUP;
  } else if (key_length != wanted) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("The storage pool's key has %B bytes, but its cipher %d takes %B.\n"), key_length,
               static_cast<int>(cipher), wanted));
    errno = EINVAL;
  }
  return wanted != 0 && key_length == wanted;
}

secure_string bytes(const void* from, size_t n) {
  return secure_string(static_cast<const char*>(from), n);
}

}  // namespace

bool read_encryption(const Pool_Info& pool, const Client_IO_Base::Options& options, Pool_Encryption& encryption) {
  if (pool.cipher != ENCRYPT_NONE) {
    if (!is_good(pool.cipher, pool.key.size())) return false;
    encryption = {pool.cipher, bytes(pool.key.data(), pool.key.size()), bytes(pool.iv.data(), pool.iv.size())};
  } else if (options.encryption_algorithm != ENCRYPT_NONE) {
    if (!is_good(options.encryption_algorithm, options.key_len)) return false;
    if (options.iv_len > sizeof options.iv) {
      ACE_ERROR((LM_ERROR, ACE_TEXT("The iv of the storage options has %B bytes, at most %B are allowed.\n"),
                 options.iv_len, sizeof options.iv));
      errno = EINVAL;
      return false;
    }
    encryption = {options.encryption_algorithm, bytes(options.key, options.key_len), bytes(options.iv, options.iv_len)};
  }
  return true;
}

}  // namespace client_io
