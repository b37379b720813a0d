#pragma once

#include <sys/stat.h>

#include <string>
#include <vector>

#include "mtf/core/restore_callback.h"
#include "mtf_backup/restore/entry_dresser.h"
#include "mtf_backup/restore/entry_scan.h"
#include "mtf_backup/restore/link_plan.h"
#include "mtf_backup/restore/restore_job.h"
#include "mtf_backup/run/anchored_dir.h"
#include "mtf_backup/set/entry_reader.h"

namespace MTF_BACKUP {

/// The last pass of a restore, when all files are in place: makes the hard links, and gives each directory its owner,
/// mode and times once all below it is done. Memory: the entries of the directories from the root to the current one,
/// and one path. Threads: one.
class Restore_Finisher {
 public:
  /// @param callback  borrowed.
  Restore_Finisher(Restore_Job& job, Catalog_Reader& catalog, Link_Plan& links, MTF::IRestore_Callback& callback)
      : job_(job),
        scan_(job, catalog, false),
        links_(links),
        callback_(callback),
        dresser_(callback, job.tally),
        reader_(job.media) {}

  void run();

 private:
  /// A directory that is not done yet.
  struct Open_Directory {
    Catalog_Entry entry;  // without its path
    size_t path_size;
  };

  void link(const Restore_Item& item);
  bool make_link(const Target& old, const Target& target, unsigned mode);
  void enter(Catalog_Entry& entry);
  bool link_to(const struct stat& source, const char* old_path, Anchored_Dir& to, const std::string& name);
  void leave_until(const Catalog_Entry& entry);
  void leave();
  void attributes_lost(Restore_Item& item, int error);
  void failed(const Restore_Item& item, const char* why);

  Restore_Job& job_;
  Entry_Scan scan_;
  Link_Plan& links_;
  MTF::IRestore_Callback& callback_;
  Entry_Dresser dresser_;
  Entry_Reader reader_;
  std::vector<Open_Directory> open_;  // each below the one before
  std::string path_;                  // of the last of them: all others' paths are the front of it
};

}  // namespace MTF_BACKUP
