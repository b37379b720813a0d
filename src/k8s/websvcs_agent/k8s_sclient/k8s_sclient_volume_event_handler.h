#pragma once

#include <atomic>
#include <string>

#include "ace/Basic_Types.h"
#include "mtf/core/event_handler.h"

/**
 * Takes the data mover's reports on one volume of a job, leaves the job's progress in K8S_SClient_Toolkit and hands a
 * pending cancel on.
 *
 * The static members are the totals of the running job, in bytes. There is one job at a time in a process. They are
 * read and written one at a time: a reader may see one of them updated and the next not yet.
 */
class K8S_SClient_Volume_Event_Handler : public MTF::Event_Handler {
 public:
  explicit K8S_SClient_Volume_Event_Handler(std::string job_id);

  /// Stores the job's progress under the job id; always 0. The percentage is not used.
  int handle_progress(int progress, ACE_UINT64 total, ACE_UINT64 processed, ACE_UINT64 speed) override;
  /// Whether a cancel is pending, for whichever job.
  bool canceling() override;

  static std::atomic<ACE_UINT64> total_size;      ///< whole job, known at its start; 0: it is not known
  static std::atomic<ACE_UINT64> processed_size;  ///< volumes finished so far
  static std::atomic<ACE_UINT64> set_size;        ///< held by the sets written or read so far
  static std::atomic<ACE_UINT64> storage_size;    ///< taken by the sets in the storage, backup only

 private:
  std::string job_id_;
};
