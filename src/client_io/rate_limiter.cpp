#include "client_io/rate_limiter.h"

#include <algorithm>
#include <cerrno>

namespace client_io {

namespace {

using std::chrono::nanoseconds;

// A transfer that was late may catch up by so much.
constexpr nanoseconds burst = std::chrono::milliseconds(50);
constexpr size_t portions_per_second = 10;

nanoseconds time_for(size_t bytes, size_t limit) {
  return nanoseconds(static_cast<int64_t>(1e9 * static_cast<double>(bytes) / static_cast<double>(limit)));
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

Rate_Limiter::Rate_Limiter(const Rate_Limits::Entries_Type& windows, Rate_Clock& clock)
    : windows_(windows), clock_(clock), free_at_(clock.now()) {}

size_t Rate_Limiter::portion(size_t n) {
  const size_t limit = limit_at(windows_, clock_.second_of_day());
  return limit == 0 ? n : std::min(n, std::max<size_t>(limit / portions_per_second, 1));
}

// A thread books its time and waits until that is over before it transfers anything, so that also a short transfer
// keeps to the limit and threads pass in the order in which they came. It looks at the windows again after each wait: a
// limit that has ended holds nobody.
bool Rate_Limiter::pass(size_t n) {
  nanoseconds due;
  {
    std::lock_guard<std::mutex> guard(lock_);
    const size_t limit = limit_at(windows_, clock_.second_of_day());
    if (limit != 0) {
      due = free_at_ = std::max(free_at_, clock_.now() - burst) + time_for(n, limit);
    } else {
      due = free_at_ = clock_.now();
    }
  }
  for (;;) {
    {
      std::lock_guard<std::mutex> guard(lock_);
      if (canceled_) {
        errno = ECANCELED;
        return false;
      }
    }
    const nanoseconds left = due - clock_.now();
    if (left <= nanoseconds(0) || limit_at(windows_, clock_.second_of_day()) == 0) return true;
    clock_.wait(left);
  }
}

void Rate_Limiter::cancel() {
  {
    std::lock_guard<std::mutex> guard(lock_);
    canceled_ = true;
  }
  clock_.wake();
}

}  // namespace client_io
