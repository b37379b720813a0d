#pragma once

#include <string>
#include <vector>

#include "mtf_backup/restore/restore_job.h"
#include "mtf_backup/set/catalog_reader.h"

namespace MTF_BACKUP {

/**
 * Goes through the catalog and shows what the restore is about: what is selected, has a target, and lies in no
 * directory that could not be made. Parts of the catalog in which nothing is selected are passed over unread.
 * Threads: one at a time.
 */
class Entry_Scan {
 public:
  /// @param tell  whether entries that are refused for their names are logged and counted as failed.
  /// @param catalog  open, at its start.
  Entry_Scan(Restore_Job& job, Catalog_Reader& catalog, bool tell) : job_(job), catalog_(catalog), tell_(tell) {}

  /// @retval 1 in @a item.  @retval 0 the end.  @retval -1 failed or stopping; the run knows.
  [[nodiscard]] int next(Restore_Item& item);

  /// Leaves out all below the directory that next() gave last, in this pass and in later ones.
  void block(const Catalog_Entry& directory);

 private:
  /// A directory with all below it, or one entry of another kind.
  struct Range {
    uint32_t source = 0;
    std::string path;
    bool directory = true;

    bool contains(const Catalog_Entry& entry) const;
  };

  void begin();
  void add_range(const Range& range);
  int next_entry(Catalog_Entry& entry);
  bool wanted(Restore_Item& item);
  bool refuse(const Restore_Item& item, const std::string& path, const char* why);
  bool blocked(const Catalog_Entry& entry);

  Restore_Job& job_;
  Catalog_Reader& catalog_;
  const bool tell_;
  bool begun_ = false;
  bool whole_ = false;         // there are no ranges: all of the catalog is read
  std::vector<Range> ranges_;  // that are left, the next one last
  bool in_range_ = false;      // the catalog stands in the last one
  bool in_blocked_ = false;
  Catalog_Entry block_;  // the directory that in_blocked_ is about
};

/// What a failure to read the catalog means for the run.
void fail_by_catalog(Run_State& state);

}  // namespace MTF_BACKUP
