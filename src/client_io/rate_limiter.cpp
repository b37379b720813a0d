#include "client_io/rate_limiter.h"

#include <time.h>

#include <algorithm>
#include <cerrno>

#include "kolt/clock.h"

namespace client_io {

namespace {

using std::chrono::nanoseconds;

// What is saved up of the time in which nobody has anything to transfer, and of that of transfers.
constexpr double idle_seconds = 0.05;
constexpr double busy_seconds = 1;
constexpr size_t portions_per_second = 10;
constexpr nanoseconds slice = std::chrono::milliseconds(100);  // between two looks for a cancel and at the windows

unsigned second_of_day() {
  const time_t moment = kolt::clock().now();
  struct tm local;
  localtime_r(&moment, &local);
  return static_cast<unsigned>(local.tm_hour * 3600 + local.tm_min * 60 + local.tm_sec);
}

}  // namespace

size_t limit_at(const Rate_Limits::Entries_Type& windows, unsigned second_of_day) {
  size_t lowest = 0;
  for (const Rate_Control_Entry& window : windows) {
    if (window.start_time > second_of_day || second_of_day > window.end_time) continue;
    const size_t limit = window.max_bytes_per_second;
    if (limit != 0 && (lowest == 0 || limit < lowest)) lowest = limit;
  }
  return lowest;
}

Rate_Limiter::Transfer::Transfer(Rate_Limiter& limiter, size_t n, const std::atomic<bool>& canceled)
    : limiter_(limiter), size_(limiter.begin(n, canceled)) {}

Rate_Limiter::Transfer::~Transfer() {
  const int error = errno;  // of the transfer
  limiter_.end();
  errno = error;
}

Rate_Limiter::Rate_Limiter(const Rate_Limits::Entries_Type& windows)
    : windows_(windows), counted_at_(kolt::clock().steady()), limit_(limit_at(windows_, second_of_day())) {}

// What passes is paid for before, so that also a short transfer keeps to the limit. Nothing is booked ahead: a limit
// that has changed holds from the next look on.
size_t Rate_Limiter::begin(size_t n, const std::atomic<bool>& canceled) {
  std::unique_lock<std::mutex> guard(lock_);
  count_time();
  ++at_work_;
  const nanoseconds begun = counted_at_;
  for (; !canceled && !may_pass(n, &begun); count_time()) {
    // Who needs less would be the first to see enough of it, again and again.
    if (turn_ == nullptr && counted_at_ - begun >= slice) turn_ = &begun;
    if (turn_ != nullptr && turn_ != &begun) {
      turn_ended_.wait_for(guard, slice);
      continue;
    }
    const nanoseconds until = counted_at_ + std::min(slice, time_until_ready(n));
    guard.unlock();
    kolt::clock().sleep_until(until);
    guard.lock();
  }
  if (turn_ == &begun) {
    turn_ = nullptr;
    turn_ended_.notify_all();
  }
  if (canceled) {
    errno = ECANCELED;
    return 0;
  }
  return limit_ == 0 ? n : take(n);
}

bool Rate_Limiter::may_pass(size_t n, const void* waiter) const {
  if (limit_ == 0) return true;
  return (turn_ == nullptr || turn_ == waiter) && credit_ >= static_cast<double>(portion(n));
}

void Rate_Limiter::end() {
  std::lock_guard<std::mutex> guard(lock_);
  count_time();
  --at_work_;
}

size_t Rate_Limiter::take(size_t n) {
  const size_t size = credit_ < static_cast<double>(n) ? static_cast<size_t>(credit_) : n;
  credit_ -= static_cast<double>(size);
  return size;
}

void Rate_Limiter::count_time() {
  const nanoseconds now = kolt::clock().steady();
  const double gained = static_cast<double>(limit_) * std::chrono::duration<double>(now - counted_at_).count();
  const double most = static_cast<double>(limit_) * (at_work_ > 0 ? busy_seconds : idle_seconds);
  counted_at_ = now;
  limit_ = limit_at(windows_, second_of_day());
  credit_ = std::max(credit_, std::min(credit_ + gained, most));
  credit_ = std::min(credit_, static_cast<double>(limit_) * busy_seconds);
}

/// The least that is worth a transfer.
size_t Rate_Limiter::portion(size_t n) const {
  return std::min(n, std::max<size_t>(limit_ / portions_per_second, 1));
}

nanoseconds Rate_Limiter::time_until_ready(size_t n) const {
  const double missing = static_cast<double>(portion(n)) - credit_;
  return nanoseconds(1 + static_cast<int64_t>(1e9 * missing / static_cast<double>(limit_)));
}

}  // namespace client_io
