#pragma once

#include <map>
#include <string>

#include "ace/Basic_Types.h"
#include "ace/RW_Thread_Mutex.h"

/**
 * The progress of the jobs, for whoever polls: written by the data mover's thread, read and pruned by the RPC threads.
 *
 * An entry is made by a job's first report and stays until it is removed or the plug-in is unloaded.
 * Threads: any, at any time. If the lock can't be taken an operation gives up without a log line.
 */
class K8S_SClient_Toolkit {
 public:
  /// In bytes; `speed` in bytes per second. What the data mover last reported.
  struct Progress {
    ACE_UINT64 speed;
    ACE_UINT64 total;
    ACE_UINT64 processed;
  };

  static K8S_SClient_Toolkit* instance();
  static void close_instance();

  /// @retval false  nothing is stored: @a job_id is empty, or the lock could not be taken.
  bool set_job_progress(const std::string& job_id, ACE_UINT64 speed, ACE_UINT64 total, ACE_UINT64 processed);
  /// Three zeros for a job that has not reported.
  Progress get_job_progress(const std::string& job_id);
  /// An unknown id is fine.
  void remove_job_progress(const std::string& job_id);

 private:
  typedef ACE_RW_Thread_Mutex Progress_Lock_Type;

  std::map<std::string, Progress> jobs_progress_;  // guarded by progress_lock_
  Progress_Lock_Type progress_lock_;
};
