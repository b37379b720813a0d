#pragma once

#include <memory>
#include <string>

#include "client_io/client_io_base.h"
#include "kolt/export.h"
#include "mtf_backup/set/catalog_entry.h"
#include "mtf_backup/set/medium.h"

namespace MTF_BACKUP {

/**
 * Writes the catalog of a set: entries in catalog order, in compressed blocks, with an index of their first entries.
 *
 * Life: open(); append() per entry; finish(). Destroyed without a successful finish() it leaves nothing in the pool.
 * Errors: sticky; false with errno, logged where found.
 * Memory: one block, and one path per block written.
 * Ownership: borrows the storage, which outlives it. Threads: one at a time.
 */
class TESSARIN_API Catalog_Writer {
 public:
  Catalog_Writer(Client_IO_Base& storage, const std::string& set_dir, const std::string& set_uuid);
  ~Catalog_Writer();

  [[nodiscard]] bool open();
  /// Adds an entry, which comes behind all others in catalog order. False, errno EINVAL, one line at LM_ERROR, where it
  /// does not, or where no reader would take the catalog with it: it is too long, or there are too many long paths.
  [[nodiscard]] bool append(const Catalog_Entry& entry);
  /// Makes the catalog durable and visible. Called once.
  [[nodiscard]] bool finish();

  uint64_t entries() const;
  /// The catalog itself; without name before finish().
  const Stored_Object& object() const;

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace MTF_BACKUP
