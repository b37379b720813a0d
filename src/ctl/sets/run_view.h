#pragma once

#include <cstdint>
#include <mutex>
#include <ostream>
#include <string>

#include "ctl/interrupt.h"
#include "ctl/progress_view.h"
#include "mtf/core/event_handler.h"

namespace ctl {

/// Shows how far a run of the data mover has got, prints what it finds meanwhile, and ends it at Ctrl-C and where
/// the terminal goes away. Threads: any.
class Run_View {
 public:
  /// @param json  there is no progress, and nothing but the document is printed.
  Run_View(std::ostream& out, std::ostream& err, bool json);

  /// For the run; borrows this object.
  MTF::Event_Handler_var handler();
  /// What is being done, beside the figures.
  void begin(const std::string& what);
  /// How far it has got, in bytes; @a speed 0 is not shown.
  void progress(uint64_t processed, uint64_t total, uint64_t speed = 0);
  /// A line on the standard output.
  void line(const std::string& text);
  bool interrupted() const { return interrupt_.count() > 0; }

 private:
  class Handler;

  std::mutex lock_;
  std::ostream& out_;
  const bool json_;
  std::string what_;    // guarded by lock_
  Progress_View view_;  // guarded by lock_
  const Interrupt interrupt_{Interrupt::interrupts_and_hang_up};
};

}  // namespace ctl
