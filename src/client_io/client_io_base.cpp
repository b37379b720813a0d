#include "client_io/client_io_base.h"

#include <cerrno>

#include "kolt/secure_memory.h"

Client_IO_Base::Options::~Options() {
  secure_memset(key, 0, sizeof key);
  secure_wipe(access_key);
  secure_wipe(secret_key);
  secure_wipe(extra_options);
}

bool Client_IO_Base::Writer::settle(uint64_t) {
  return true;
}

int64_t Client_IO_Base::Writer::resume(uint64_t) {
  errno = ENOTSUP;
  return -1;
}
