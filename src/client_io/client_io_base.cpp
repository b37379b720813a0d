#include "client_io/client_io_base.h"

#include <cerrno>

bool Client_IO_Base::Writer::settle(uint64_t) {
  return true;
}

int64_t Client_IO_Base::Writer::resume(uint64_t) {
  errno = ENOTSUP;
  return -1;
}
