#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "mtf/core/restore_callback.h"
#include "mtf_backup/restore/selection.h"
#include "mtf_backup/restore/target_tree.h"
#include "mtf_backup/restore_settings.h"
#include "mtf_backup/run/run_state.h"
#include "mtf_backup/set/catalog_entry.h"
#include "mtf_backup/set/commit_record.h"
#include "mtf_backup/set/medium_set.h"

namespace MTF_BACKUP {

/// What has become of the entries of a restore. Threads: any.
class Restore_Tally {
 public:
  /// An entry that is not in place. Its line has been logged.
  /// @param path in the set.
  void failed(const Catalog_Entry& entry, const std::string& path, bool damaged);
  /// Whether the entry of this path, which has further names, has failed.
  bool has_failed(const std::string& path) const;

  uint64_t failed_count() const { return failed_; }
  uint64_t damaged_count() const { return damaged_; }

 private:
  std::atomic<uint64_t> failed_{0};
  std::atomic<uint64_t> damaged_{0};
  mutable std::mutex lock_;
  std::unordered_set<std::string> linked_;  // guarded by lock_: paths of failed entries with several names
};

/// What the stages of a restore have in common. Outlives them.
struct Restore_Job {
  const Restore_Settings& settings;
  const Commit_Record& record;
  Selection& selection;
  Target_Tree& targets;  ///< one stage at a time
  Medium_Set& media;
  Run_State& state;
  Restore_Tally tally{};
  std::set<std::pair<uint32_t, std::string>> blocked;  ///< directories that could not be made; one stage at a time
};

/// An entry to restore.
struct Restore_Item {
  Catalog_Entry entry;
  std::string path;  ///< in the set
  Target target;
};

typedef std::vector<Restore_Item> Restore_Batch;

}  // namespace MTF_BACKUP
