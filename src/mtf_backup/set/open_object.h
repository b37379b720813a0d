#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "client_io/client_io_base.h"

namespace MTF_BACKUP {

/// Opens an object that a set needs. Null with errno after one line at LM_ERROR, also where the object is missing or
/// its size is not @a size (then EBADMSG).
std::unique_ptr<Client_IO_Base::Reader> open_object(Client_IO_Base& storage, const std::string& key, uint64_t size);

/// Reads exactly @a n bytes. False with errno: the storage's failure, or EBADMSG, logged, where the object ends too
/// early.
bool read_exactly(Client_IO_Base::Reader& reader, const std::string& key, uint64_t offset, char* to, size_t n);

}  // namespace MTF_BACKUP
