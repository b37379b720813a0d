#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "kolt/posix_fd.h"
#include "mtf/core/entry.h"
#include "mtf_backup/set/catalog_entry.h"
#include "mtf_backup/set/set_path.h"

namespace MTF_BACKUP {

/// What lies in a directory whose path in its source is longer is left out: it costs memory in all stages and whoever
/// reads the set. No program that opens files by their paths gets a quarter as far.
constexpr size_t max_path_size = 16 * 1024;

/// A directory to back up, held open for the whole run.
struct Source {
  std::string path;  ///< as it was given; the path of its root in the set
  Posix_Fd root;
  MTF::Entry_Stat stat;
};

/// An entry that the walk has found.
struct Work_Item {
  uint32_t source = 0;
  std::shared_ptr<const std::string> directory;  ///< relative to the source: where it lies
  std::string name;                              ///< empty: the directory itself
  MTF::Entry_Stat stat;
  std::string hard_link_target;         ///< path in the set of an earlier name of the same file
  bool may_have_holes = false;          ///< of a file: takes less room than its size
  std::string problem;                  ///< why it could not be listed, or its status not be read
  std::unique_ptr<Catalog_Entry> kept;  ///< where it lies already, in an older set; null: it is to be read

  std::string path() const { return join_names(*directory, name); }
  /// Of all its paths.
  size_t path_size() const { return directory->size() + name.size() + hard_link_target.size(); }
};

/// A stretch of the walk: what goes to one medium in one piece. Numbered from 0 without gaps. One channel works on it;
/// of what others look at it changes `reached` only.
struct Work_Batch {
  uint64_t number = 0;
  std::vector<Work_Item> items;
  std::atomic<size_t> reached{0};  ///< where the channel stands; before it all is done
};
typedef std::shared_ptr<Work_Batch> Work_Batch_var;

}  // namespace MTF_BACKUP
