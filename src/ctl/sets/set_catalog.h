#pragma once

#include <memory>
#include <string>
#include <vector>

#include "ctl/sets/pool.h"
#include "mtf_backup/set/catalog_reader.h"

namespace ctl {

/// The catalog of a set, open. Threads: one at a time.
class Set_Catalog {
 public:
  /// @throws Failure (exit_pool).
  Set_Catalog(const Pool& pool, const Pool_Set& set);

  MTF_BACKUP::Catalog_Reader& reader() { return *reader_; }
  /// The next entry; false at the end. @throws Failure (exit_pool).
  bool next(MTF_BACKUP::Catalog_Entry& entry);
  /// Its path in the set.
  std::string path(const MTF_BACKUP::Catalog_Entry& entry) const;
  /// @throws Failure (exit_pool): it cannot be read, why has been logged.
  [[noreturn]] void fail() const;

 private:
  const Pool_Set& set_;
  std::shared_ptr<Client_IO_Base> storage_;
  std::unique_ptr<MTF_BACKUP::Catalog_Reader> reader_;
};

/// A place in a set.
struct Set_Path {
  uint32_t source = 0;
  std::string below;  ///< relative to the source; empty: its root
};

/// Where @a path, as a person tells it, may lie: with a '/' in front it is a path in the set, else it is relative to
/// any of the sources. A '/' at its end and "." count for nothing.
std::vector<Set_Path> places_of_path(const MTF_BACKUP::Commit_Record& record, const std::string& path);

}  // namespace ctl
