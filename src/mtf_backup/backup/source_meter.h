#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

#include "mtf_backup/backup/work_batch.h"
#include "mtf_backup/run/run_state.h"

namespace MTF_BACKUP {

/**
 * Adds up the sources beside a backup, so that reports can tell how much there is in all: the walk itself is never far
 * ahead of the data. Works only for runs that last long enough for a report, in the time of processors that nobody else
 * wants, and ends with the object at the latest.
 *
 * Logs nothing: what it cannot read shows in the backup itself. Threads: the one that made it.
 */
class Source_Meter {
 public:
  /// Both are borrowed. The sum goes to Run_State::expected when it is complete.
  Source_Meter(const std::vector<Source>& sources, Run_State& state);
  ~Source_Meter();
  Source_Meter(const Source_Meter&) = delete;
  Source_Meter& operator=(const Source_Meter&) = delete;

 private:
  void run();
  bool add_up(const Source& source, uint64_t& sum);
  bool ended();

  const std::vector<Source>& sources_;
  Run_State& state_;
  std::mutex lock_;
  std::condition_variable end_;
  bool ending_ = false;  // guarded by lock_
  std::thread thread_;
};

}  // namespace MTF_BACKUP
