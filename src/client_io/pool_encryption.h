#pragma once

#include "client_io/client_io_base.h"
#include "kolt/encryption.h"
#include "kolt/export.h"
#include "kolt/secure_memory.h"

struct Pool_Info;

namespace client_io {

/// What the objects of a pool are encrypted with. The memory of the key is wiped when it goes.
struct Pool_Encryption {
  Encryption_Algorithm cipher = ENCRYPT_NONE;
  secure_string key;  ///< raw bytes
  secure_string iv;   ///< raw bytes, may be empty
};

/**
 * Takes cipher, key and iv from the pool where it has a cipher, otherwise from the options: how objects are stored is
 * the pool's matter, and options cannot take its encryption away. A key without a cipher has no effect.
 *
 * @retval false  after one line at LM_ERROR, which never shows a key: the cipher is not known (errno ENOTSUP), or the
 * key or the iv has not the length that it must have (EINVAL).
 */
[[nodiscard]] TESSARIN_API bool read_encryption(const Pool_Info& pool, const Client_IO_Base::Options& options,
                                                Pool_Encryption& encryption);

}  // namespace client_io
