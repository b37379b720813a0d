#pragma once

#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <unordered_set>
#include <vector>

#include "mtf/core/cat_summary.h"
#include "mtf_backup/run/run_state.h"
#include "mtf_backup/set/catalog_writer.h"

namespace MTF_BACKUP {

/// What became of one batch.
struct Batch_Result {
  uint64_t number = 0;
  std::vector<Catalog_Entry> entries;
  std::vector<std::string> lost;  ///< paths in the set of files with several names, as Catalog_Entry::hard_link_target,
                                  ///< whose data is not there
};

/**
 * Puts the entries of all channels into the catalog in the order of the walk, and adds them up.
 *
 * Memory: a channel that is far ahead of the slowest one waits.
 * Threads: deliver() and abort() from any; summary() once all are done.
 */
class Entry_Collector {
 public:
  /// @param catalog  open; borrowed.  @param sources  paths by number, for log lines; borrowed.
  Entry_Collector(Catalog_Writer& catalog, const std::vector<std::string>& sources, Run_State& state)
      : catalog_(catalog), sources_(sources), state_(state) {}

  /// Takes a result. Waits while too many are ahead of one that is still to come.
  /// @retval false  the run is stopping.
  [[nodiscard]] bool deliver(Batch_Result result);
  /// Ends all waits.
  void abort();

  /// Of all that is in the catalog; without storage_size.
  const MTF::Cat_Summary& summary() const { return summary_; }
  /// Whether some entries, or the attributes of some, could not be read.
  bool has_losses() const { return has_losses_; }
  /// Whether the catalog holds anything but the roots of the sources.
  bool has_files() const { return summary_.file_count + summary_.dir_count > sources_.size(); }

 private:
  bool append(Batch_Result& result);
  void check_link(Catalog_Entry& entry);
  void add_up(const Catalog_Entry& entry);

  Catalog_Writer& catalog_;
  const std::vector<std::string>& sources_;
  Run_State& state_;

  std::mutex lock_;
  std::condition_variable advanced_;
  std::map<uint64_t, Batch_Result> waiting_;  // guarded by lock_
  size_t waiting_size_ = 0;                   // guarded by lock_
  uint64_t next_ = 0;                         // guarded by lock_
  bool aborted_ = false;                      // guarded by lock_
  std::unordered_set<std::string> lost_;      // guarded by lock_
  MTF::Cat_Summary summary_;                  // guarded by lock_
  bool has_losses_ = false;                   // guarded by lock_
};

}  // namespace MTF_BACKUP
