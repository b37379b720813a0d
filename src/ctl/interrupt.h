#pragma once

#include <signal.h>

#include <chrono>

namespace ctl {

/// Counts SIGINT and SIGTERM while it lives, in place of ending the program. One at a time in a process.
class Interrupt {
 public:
  Interrupt();
  ~Interrupt();
  Interrupt(const Interrupt&) = delete;
  Interrupt& operator=(const Interrupt&) = delete;

  int count() const;
  /// Sleeps; a signal ends it early.
  void sleep(std::chrono::milliseconds time) const;

 private:
  struct sigaction previous_int_;
  struct sigaction previous_term_;
};

}  // namespace ctl
