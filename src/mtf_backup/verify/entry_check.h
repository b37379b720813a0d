#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "mtf_backup/mtf_verify.h"
#include "mtf_backup/run/bounded_queue.h"
#include "mtf_backup/run/run_state.h"
#include "mtf_backup/set/commit_record.h"
#include "mtf_backup/set/entry_reader.h"
#include "mtf_backup/set/medium_set.h"
#include "mtf_backup/verify/finding_log.h"

namespace MTF_BACKUP {

typedef std::vector<Catalog_Entry> Entry_Batch;

/// What the threads of a verification share. Outlives them.
struct Verify_Job {
  const Verify_Settings& settings;
  const Commit_Record& record;
  Medium_Set& media;
  Run_State& state;
  Finding_Log& findings;
};

/**
 * One of the threads that read entries with their data, and all frames of some media of the set itself: also those that
 * no entry leads to. A medium belongs to one thread, so that each is read once, from its beginning to its end.
 */
class Entry_Check {
 public:
  /// @param channels  of the set itself, whose media this thread reads whole.
  Entry_Check(Verify_Job& job, Bounded_Queue_T<Entry_Batch>& queue, std::vector<uint32_t> channels)
      : job_(job), queue_(queue), channels_(std::move(channels)), reader_(job.media) {}

  /// Works until the queue ends or the run is stopping.
  void run();

 private:
  void check(const Catalog_Entry& entry);
  bool read(const Catalog_Entry& entry);
  void read_frames(uint32_t channel, uint64_t end);
  bool go_on(int error);

  Verify_Job& job_;
  Bounded_Queue_T<Entry_Batch>& queue_;
  const std::vector<uint32_t> channels_;
  Entry_Reader reader_;
  std::map<uint32_t, uint64_t> next_frames_;  // by channel: behind the last one that was read
};

/// Path in the set, also of an entry whose source there is none of.
std::string shown_path(const Commit_Record& record, const Catalog_Entry& entry);

}  // namespace MTF_BACKUP
