#pragma once

#include <stdexcept>
#include <string>

namespace ctl {

/// What the program ends with; told in doc/tessarinctl.md.
enum Exit_Code {
  exit_ok = 0,
  exit_job_failed = 1,    ///< the job failed or was canceled, or what was run or checked failed
  exit_usage = 2,         ///< the command line, or what it names, is wrong
  exit_unreachable = 3,   ///< no agent or API server answers
  exit_refused = 4,       ///< the agent or API server answered with an error
  exit_pool = 5,          ///< the pool cannot be read, or the set is not in it
  exit_not_ended = 6,     ///< `status` of a job that is queued or running
  exit_interrupted = 130  ///< interrupted; of a job: a second time, and it goes on
};

/// Ends the command: main() prints the text and exits with the code.
class Failure : public std::runtime_error {
 public:
  Failure(Exit_Code code, const std::string& text) : std::runtime_error(text), code_(code) {}
  Exit_Code code() const { return code_; }

 private:
  Exit_Code code_;
};

}  // namespace ctl
