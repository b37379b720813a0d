#pragma once

#include <mutex>
#include <vector>

#include "kolt/clock.h"

namespace test_support {

/**
 * The process's clock while the object lives. It stands still, but for advance() and for sleep(), which comes back at
 * once. Objects nest. Threads: any may ask and sleep; the object is made and dies where none does.
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
    return std::chrono::duration_cast<std::chrono::seconds>(now_).count();
  }
  void sleep(std::chrono::milliseconds span) override {
    std::lock_guard<std::mutex> guard(lock_);
    now_ += span;
    sleeps_.push_back(span);
  }

  void advance(std::chrono::milliseconds span) {
    std::lock_guard<std::mutex> guard(lock_);
    now_ += span;
  }
  /// What has been slept so far, in order.
  std::vector<std::chrono::milliseconds> sleeps() const {
    std::lock_guard<std::mutex> guard(lock_);
    return sleeps_;
  }

 private:
  mutable std::mutex lock_;
  std::chrono::milliseconds now_;                  // guarded by lock_
  std::vector<std::chrono::milliseconds> sleeps_;  // guarded by lock_
  kolt::Clock* const previous_;
};

}  // namespace test_support
