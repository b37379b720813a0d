#pragma once

#include <list>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "mtf/core/backup_callback.h"
#include "mtf_backup/backup/base_merge.h"
#include "mtf_backup/backup/link_table.h"
#include "mtf_backup/backup/read_ahead.h"
#include "mtf_backup/backup/work_batch.h"
#include "mtf_backup/run/anchored_dir.h"
#include "mtf_backup/run/bounded_queue.h"
#include "mtf_backup/run/disk_waits.h"
#include "mtf_backup/run/run_state.h"

namespace MTF_BACKUP {

/**
 * Lists all sources in catalog order and hands what it finds on in batches.
 *
 * Memory: the names of the directories that wait at each level of the way down. An entry that vanishes meanwhile is
 * left out with a line at LM_WARNING; a directory that cannot be listed or lies too deep, and an entry whose status
 * cannot be read, is handed on with its problem after a line at LM_ERROR. Threads: one.
 */
class Source_Walker {
 public:
  /// @param base  borrowed; null: everything is to be read.
  Source_Walker(const std::vector<Source>& sources, MTF::IBackup_Callback_Factory_var factory, Base_Merge* base,
                Bounded_Queue_T<Work_Batch_var>& queue, Read_Ahead& read_ahead, Run_State& state);

  /// Walks; at the end the queue is closed, unless the run is stopping.
  void run();

 private:
  /// What a directory holds.
  struct Listing {
    std::list<Directory_Entry> entries;
    std::map<std::string, int> errors;  // by name: of those without a status
  };
  struct Subdirectory {
    std::string name;
    MTF::Entry_Stat stat;
  };
  struct Level {
    size_t path_size;                   // of the directory whose subdirectories these are
    std::vector<Subdirectory> waiting;  // the next one is the last
    size_t told = 0;                    // how many of the next ones are being read ahead
  };

  bool walk(uint32_t source);
  void tell_next(uint32_t source);
  bool visit(uint32_t source, const MTF::Entry_Stat& stat);
  bool read_directory(uint32_t source, Listing& listing, std::string& problem);
  bool open_directory(uint32_t source);
  bool list(Listing& listing);
  bool list_one_by_one(Listing& listing);
  bool add_files(uint32_t source, Listing& listing, const std::shared_ptr<const std::string>& directory,
                 std::vector<Subdirectory>& subdirectories);
  std::string problem_of(const Work_Item& item, const Listing& listing) const;
  std::optional<MTF::Timestamp> birth_of(const Work_Item& item) const;
  bool add(Work_Item item);
  bool flush();

  const std::vector<Source>& sources_;
  MTF::IBackup_Callback_Factory_var factory_;
  Base_Merge* const base_;
  Bounded_Queue_T<Work_Batch_var>& queue_;
  Read_Ahead& read_ahead_;
  Run_State& state_;

  MTF::IBackup_Callback_var callback_;
  Link_Table links_;
  std::string path_;  // of the directory being visited, relative to its source
  Anchored_Dir dir_;  // ... and itself
  std::vector<Level> levels_;
  Disk_Waits waits_;
  Work_Batch_var batch_;
  uint64_t batch_size_ = 0;  // bytes of file data to be read for it, and of its names
};

}  // namespace MTF_BACKUP
