#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <unordered_set>

#include "mtf_backup/restore/target_tree.h"
#include "mtf_backup/set/catalog_entry.h"

namespace MTF_BACKUP {

/// What has become of the entries of a restore. Threads: any.
class Restore_Tally {
 public:
  /// An entry that is not in place. Its line has been logged.
  /// @param path in the set.
  void failed(const Catalog_Entry& entry, const std::string& path, bool damaged);
  /// Whether the entry of this path, which has further names, has failed.
  bool has_failed(const std::string& path) const;
  /// An entry that is in place. What the set lacks of it is told as by differs(), and is no loss of the restore.
  void restored(const Catalog_Entry& entry, const Target& target);
  /// An entry that the set does not have. Its line has been logged.
  void missing() { ++missing_; }
  /// An entry that is in place, but not in all as it was. Logs it at LM_ERROR; from the 1,001st on it is only counted,
  /// if it is a loss from the 10,001st on: what is lost is not hidden by what merely differs.
  /// @param shown  its path, for log lines.  @param what  the differences.  @param loss  content is missing.
  void differs(const std::string& shown, const std::string& what, bool loss);
  /// Names of one file go to several targets, so that it became one more file.
  void splits_link() { ++split_; }
  /// To be called once at the end: a line each at LM_ERROR about the entries that had none, and about links that are
  /// none any more.
  void tell_rest() const;

  uint64_t failed_count() const { return failed_; }
  uint64_t damaged_count() const { return damaged_; }
  /// How many entries lack some of their content.
  uint64_t lossy_count() const { return lossy_; }
  /// How many the set does not have, or not in all.
  uint64_t missing_count() const { return missing_; }
  /// Bytes of the entries that are in place.
  uint64_t restored_size() const { return restored_size_; }

 private:
  static void tell(const std::string& shown, const std::string& what, bool has_line);

  std::atomic<uint64_t> failed_{0};
  std::atomic<uint64_t> damaged_{0};
  std::atomic<uint64_t> differing_{0};
  std::atomic<uint64_t> lossy_{0};
  std::atomic<uint64_t> loss_lines_{0};
  std::atomic<uint64_t> missing_{0};
  std::atomic<uint64_t> restored_size_{0};
  std::atomic<uint64_t> split_{0};
  mutable std::mutex lock_;
  std::unordered_set<std::string> linked_;  // guarded by lock_: paths of failed entries with several names
};

}  // namespace MTF_BACKUP
