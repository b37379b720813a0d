#pragma once

#include <signal.h>

#include <chrono>
#include <string>

namespace ctl {

/// Counts SIGINT and SIGTERM while it lives, in place of ending the program. One at a time in a process, which has one
/// thread.
class Interrupt {
 public:
  Interrupt();
  ~Interrupt();
  Interrupt(const Interrupt&) = delete;
  Interrupt& operator=(const Interrupt&) = delete;

  int count() const;
  /// Sleeps; a signal ends it early.
  void sleep(std::chrono::milliseconds time) const;

  /// From now on the first signal is answered by @a first on the standard error, and the second one by @a second and
  /// the end of the program at once, with exit_interrupted.
  void answer(std::string first, std::string second);

 private:
  struct sigaction previous_int_;
  struct sigaction previous_term_;
};

}  // namespace ctl
