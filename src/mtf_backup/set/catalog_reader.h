#pragma once

#include <memory>
#include <string>

#include "client_io/client_io_base.h"
#include "kolt/export.h"
#include "mtf_backup/set/catalog_entry.h"

namespace MTF_BACKUP {

/**
 * Reads the catalog of a set, from the start or from a path on. Nothing in it is trusted: damage and malice give
 * EBADMSG. Paths and texts are given out as they are, so that one evil name does not hide the other entries: whoever
 * makes files of them has to look at each name.
 *
 * Errors: errno with one line at LM_ERROR that names the object and the offset.
 * Memory: one block, and one path per block once seek() or find() was called.
 * Ownership: borrows the storage, which outlives it. Threads: one at a time.
 */
class TESSARIN_API Catalog_Reader {
 public:
  /// @param size  of the catalog, as the commit record tells it.
  Catalog_Reader(Client_IO_Base& storage, const std::string& set_dir, const std::string& set_uuid, uint64_t size);
  ~Catalog_Reader();

  /// Opens the object and checks its two ends. Here a missing object is logged.
  [[nodiscard]] bool open();

  /// The next entry. @retval 1 in @a entry.  @retval 0 the end.  @retval -1 failed, so does every later call until
  /// seek();
  /// @a entry is undefined but for 1.
  [[nodiscard]] int next(Catalog_Entry& entry);

  /// Makes next() go on with the first entry that does not come before this one. @a directory: what kind of entry it
  /// names, since the order depends on it. The path "" of a source is its root, a directory.
  [[nodiscard]] bool seek(uint32_t source, const std::string& path, bool directory);

  /// The entry of exactly this path, of whatever kind. @retval as next(); the reader then stands behind it.
  [[nodiscard]] int find(uint32_t source, const std::string& path, Catalog_Entry& entry);

  /// Number of entries. 0 before open().
  uint64_t entries() const;

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace MTF_BACKUP
