#pragma once

#include <memory>
#include <string>

#include "mtf_backup/restore/entry_scan.h"
#include "mtf_backup/restore/link_plan.h"
#include "mtf_backup/restore/restore_job.h"
#include "mtf_backup/run/bounded_queue.h"

namespace MTF_BACKUP {

/// The first pass of a restore: makes the directories and hands the files out in batches. Threads: one.
class Restore_Planner {
 public:
  Restore_Planner(Restore_Job& job, Catalog_Reader& catalog, Link_Plan& links, Bounded_Queue_T<Restore_Batch>& queue)
      : job_(job), scan_(job, catalog, true), links_(links), queue_(queue) {}

  /// At the end the queue is closed, unless the run is stopping.
  void run();

  /// How many entries the restore is about.
  uint64_t planned_count() const { return planned_; }
  /// Bytes of all of them, and of those that this very set holds.
  uint64_t total_size() const { return total_size_; }
  uint64_t held_size() const { return held_size_; }

 private:
  bool put(Restore_Item& item);
  void tell_missing(const Restore_Item& item);
  bool put_directory(const Restore_Item& item);
  bool put_file(Restore_Item& item);
  bool make_parent(const Restore_Item& item);
  bool failed(const Restore_Item& item, const char* why);
  bool flush();

  Restore_Job& job_;
  Entry_Scan scan_;
  Link_Plan& links_;
  Bounded_Queue_T<Restore_Batch>& queue_;
  Restore_Batch batch_;
  uint64_t batch_size_ = 0;
  const Target_Root* made_root_ = nullptr;  // of the directory made last
  std::string made_;
  uint64_t planned_ = 0;
  uint64_t total_size_ = 0;
  uint64_t held_size_ = 0;
};

}  // namespace MTF_BACKUP
