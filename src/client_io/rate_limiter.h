#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>

#include "kolt/export.h"
#include "kolt/rate_controller.h"

namespace client_io {

/// The lowest limit of all windows that hold @a second_of_day, both bounds included; 0, no limit, where none does. A
/// limit of 0 in a window is none.
TESSARIN_API size_t limit_at(const Rate_Limits::Entries_Type& windows, unsigned second_of_day);

/**
 * Holds transfers to the limits of a day's windows, by kolt::clock().
 *
 * Idle time is not saved up. The time that transfers take is, up to a second of it: storage that is slow to answer is
 * asked for more in one go. Threads: any; transfers of several threads share the limit, and who has waited for a
 * fraction of a second comes before those that need less.
 */
class TESSARIN_API Rate_Limiter {
 public:
  explicit Rate_Limiter(const Rate_Limits::Entries_Type& windows);

  /// Leave to transfer something; lives as long as that takes.
  class TESSARIN_API Transfer {
   public:
    /// Waits until some of @a n bytes, 1 or more, may pass.
    /// @param canceled  ends the wait, within a fraction of a second.
    Transfer(Rate_Limiter& limiter, size_t n, const std::atomic<bool>& canceled);
    ~Transfer();
    Transfer(const Transfer&) = delete;
    Transfer& operator=(const Transfer&) = delete;

    /// How many bytes may pass: at least 1, and a fraction of a second's worth, so that the change of a window is soon
    /// felt. 0, with errno ECANCELED after the constructor, where the wait was cancelled.
    size_t size() const { return size_; }

   private:
    Rate_Limiter& limiter_;
    const size_t size_;
  };

 private:
  size_t begin(size_t n, const std::atomic<bool>& canceled);
  bool may_pass(size_t n, const void* waiter) const;
  void end();
  size_t take(size_t n);
  void count_time();
  std::chrono::nanoseconds time_until_ready(size_t n) const;
  size_t portion(size_t n) const;

  const Rate_Limits::Entries_Type windows_;
  std::mutex lock_;
  std::condition_variable turn_ended_;
  // Guarded by lock_:
  std::chrono::nanoseconds counted_at_;  // up to here time has been turned into credit
  size_t limit_;                         // since then; 0: none
  double credit_ = 0;                    // bytes that may pass at once
  size_t at_work_ = 0;                   // transfers that wait or are under way
  const void* turn_ = nullptr;           // the waiter that nobody may overtake; null: there is none
};

/// The limits that all clients of a job keep to together.
struct TESSARIN_API Rate_Limiters {
  explicit Rate_Limiters(const Rate_Limits& limits) : writes(limits.dest_rate_limits), reads(limits.src_rate_limits) {}

  Rate_Limiter writes;
  Rate_Limiter reads;
};

}  // namespace client_io
