#pragma once

#include <signal.h>

#include <chrono>
#include <string>
#include <utility>
#include <vector>

namespace ctl {

/// Counts signals that are to end the program, in place of letting them do so while it lives. One at a time in a
/// process, which has one thread.
class Interrupt {
 public:
  enum Signals {
    interrupts,             ///< SIGINT, SIGTERM
    interrupts_and_hang_up  ///< SIGHUP as well, unless it is ignored as below nohup
  };

  explicit Interrupt(Signals signals = interrupts);
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
  void count_signal(int signal);

  std::vector<std::pair<int, struct sigaction>> previous_;
};

}  // namespace ctl
