#pragma once

#include <cstdint>
#include <string>

/// How far a job is, in bytes.
struct Job_Progress {
  uint64_t processed = 0;
  uint64_t total = 0;
  uint64_t speed = 0;  ///< per second
};

/// Asks the plug-in by "k8s.process", as any requester would. Threads: any.
/// @retval false  there is no plug-in, or it does not know the job; @a progress is untouched, nothing is logged here.
bool ask_progress(const std::string& job_id, Job_Progress& progress);
