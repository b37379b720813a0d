#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ctl/agent.h"
#include "ctl/failure.h"
#include "ctl/interrupt.h"
#include "ctl/progress_view.h"
#include "json_spirit/json_spirit_value.h"

namespace ctl {

/// A job as "agent.tasks" tells it. Times are milliseconds since 1970, 0: not yet.
struct Job {
  std::string id;
  std::string kind;  ///< "backup" or "restore"
  std::string state;
  int64_t created = 0;
  int64_t started = 0;
  int64_t finished = 0;
  uint64_t size = 0;  ///< bytes, as the next two
  uint64_t set_size = 0;
  uint64_t storage_size = 0;
  std::vector<std::string> errors;
  uint64_t errors_left_out = 0;
  json_spirit::Object document;  ///< all of it, as the agent sent it

  bool ended() const { return state != "queued" && state != "running"; }
  Exit_Code exit_code() const;
  /// Seconds that it has run, up to now if it still runs.
  uint64_t seconds() const;
};

/// The agent's jobs, newest first, at most @a limit, 0 for all.
std::vector<Job> list_jobs(Agent& agent, size_t limit);

/// @throws Failure (exit_usage): the agent knows no such job.
Job find_job(Agent& agent, const std::string& id);

/// How far a job has got. @throws Failure: as Agent::call(), exit_refused for an unknown job.
Progress job_progress(Agent& agent, const std::string& id);

/**
 * Shows a job's progress until it has ended.
 *
 * An interrupt asks the agent to cancel, again every second until the job has ended, since a request that comes before
 * the job is under way is lost. While the job waits behind another one there is nothing to cancel: a request would hit
 * the other.
 * @throws Failure (exit_interrupted) at the second interrupt.
 */
Job watch_job(Agent& agent, const std::string& id, Progress_View& view, const Interrupt& interrupt);

}  // namespace ctl
