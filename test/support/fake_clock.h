#pragma once

#include <algorithm>
#include <mutex>
#include <vector>

#include "kolt/clock.h"

namespace test_support {

/**
 * The process's clock while the object lives. It stands still, but for advance(), and for sleep() and sleep_until(),
 * which come back at once. Objects nest. Threads: any may ask and sleep; the object is made and dies where none does.
 */
class Fake_Clock : public kolt::Clock {
 public:
  /// @param start  what time it is, in seconds since 1970.
  explicit Fake_Clock(time_t start = 1'700'000'000)
      : now_(std::chrono::seconds(start)), previous_(kolt::set_clock(this)) {}
  ~Fake_Clock() override { kolt::set_clock(previous_); }
  Fake_Clock(const Fake_Clock&) = delete;
  Fake_Clock& operator=(const Fake_Clock&) = delete;

  time_t now() override {
    std::lock_guard<std::mutex> guard(lock_);
    return std::chrono::duration_cast<std::chrono::seconds>(now_ + set_by_).count();
  }
  std::chrono::nanoseconds steady() override {
    std::lock_guard<std::mutex> guard(lock_);
    return now_;
  }
  void sleep(std::chrono::milliseconds span) override {
    std::lock_guard<std::mutex> guard(lock_);
    now_ += span;
    sleeps_.push_back(span);
  }
  /// Threads that sleep side by side share the time.
  void sleep_until(std::chrono::nanoseconds moment) override {
    std::lock_guard<std::mutex> guard(lock_);
    now_ = std::max(now_, moment);
  }

  void advance(std::chrono::milliseconds span) {
    std::lock_guard<std::mutex> guard(lock_);
    now_ += span;
  }
  /// Sets now() forward, or back, which does nothing to steady().
  void set_by(std::chrono::seconds span) {
    std::lock_guard<std::mutex> guard(lock_);
    set_by_ += span;
  }
  /// What has been slept so far by sleep(), in order.
  std::vector<std::chrono::milliseconds> sleeps() const {
    std::lock_guard<std::mutex> guard(lock_);
    return sleeps_;
  }

 private:
  mutable std::mutex lock_;
  std::chrono::nanoseconds now_;                   // guarded by lock_
  std::chrono::seconds set_by_{0};                 // guarded by lock_
  std::vector<std::chrono::milliseconds> sleeps_;  // guarded by lock_
  kolt::Clock* const previous_;
};

}  // namespace test_support
