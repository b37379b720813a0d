#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>

#include "kolt/export.h"
#include "kolt/rate_controller.h"

namespace client_io {

/// The clock and the waiting of rate limiters, so that tests take no time. Threads: any.
class TESSARIN_API Rate_Clock {
 public:
  virtual ~Rate_Clock() = default;
  /// A clock that only goes forward.
  virtual std::chrono::nanoseconds now() = 0;
  /// Second of the local day, 0 to 86399; 86400 in a leap second.
  virtual unsigned second_of_day() = 0;
  /// Waits so long, or until wake() is called from another thread; at most a minute.
  virtual void wait(std::chrono::nanoseconds span) = 0;
  /// Ends all waits, also those that begin later.
  virtual void wake() = 0;
};

/// The lowest limit of all windows that hold @a second_of_day, both bounds included; 0, no limit, where none does. A
/// limit of 0 in a window is none.
TESSARIN_API size_t limit_at(const Rate_Limits::Entries_Type& windows, unsigned second_of_day);

/**
 * Holds transfers to the limits of a day's windows. Threads: any; transfers of several threads share the limit.
 */
class TESSARIN_API Rate_Limiter {
 public:
  /// @param clock  borrowed, outlives the limiter.
  Rate_Limiter(const Rate_Limits::Entries_Type& windows, Rate_Clock& clock);

  /// How much of @a n bytes may be transferred in one go, at least 1 for n above 0: a fraction of a second's worth, so
  /// that the change of a window is soon felt.
  size_t portion(size_t n);

  /// Waits until @a n more bytes may pass. False, errno ECANCELED, after cancel().
  [[nodiscard]] bool pass(size_t n);

  void cancel();

 private:
  const Rate_Limits::Entries_Type windows_;
  Rate_Clock& clock_;
  std::mutex lock_;
  std::chrono::nanoseconds free_at_;  // guarded by lock_: when what has passed will be paid for
  bool canceled_ = false;             // guarded by lock_
};

}  // namespace client_io
