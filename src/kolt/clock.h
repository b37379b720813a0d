#pragma once

#include <chrono>
#include <ctime>

#include "kolt/export.h"

namespace kolt {

/// What time it is, and waiting. Who waits for minutes or lets things expire asks clock(), so that a test's time flies.
/// Threads: any.
class TESSARIN_API Clock {
 public:
  virtual ~Clock();

  /// Whole seconds since 1970.
  virtual time_t now() = 0;
  /// Comes back after that long. A span of 0 or less is none.
  virtual void sleep(std::chrono::milliseconds span) = 0;

  /// The time since some moment, which goes on evenly whatever is done to now(). The system's, if not overridden.
  virtual std::chrono::nanoseconds steady();
  /// Comes back when steady() has come to @a moment.
  virtual void sleep_until(std::chrono::nanoseconds moment);
};

/// The clock in use: the system's, by ACE_OS, unless another has been set.
TESSARIN_API Clock& clock();

/// Sets the clock, borrowed, of the whole process; null puts the system's back. Not while another thread uses it.
/// @return the clock that was set before; null if it was the system's.
TESSARIN_API Clock* set_clock(Clock* other);

}  // namespace kolt
