#include "mtf_backup/set/open_object.h"

#include <cerrno>

#include "mtf_backup/set/damage.h"

namespace MTF_BACKUP {

std::unique_ptr<Client_IO_Base::Reader> open_object(Client_IO_Base& storage, const std::string& key, uint64_t size) {
  std::unique_ptr<Client_IO_Base::Reader> reader = storage.open(key);
  if (!reader) {
    if (errno == ENOENT) tell_missing(key);
    return nullptr;
  }
  if (reader->size() == size) return reader;
  tell_damage(key, reader->size(),
              "it has " + std::to_string(reader->size()) + " bytes in place of " + std::to_string(size));
  return nullptr;
}

bool read_exactly(Client_IO_Base::Reader& reader, const std::string& key, uint64_t offset, char* to, size_t n) {
  const ssize_t got = reader.read(offset, to, n);
  if (got < 0) return false;
  if (static_cast<size_t>(got) == n) return true;
  return tell_damage(key, offset + static_cast<uint64_t>(got), "it ends too early");
}

}  // namespace MTF_BACKUP
