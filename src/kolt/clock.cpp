#include "kolt/clock.h"

#include <atomic>

#include "ace/OS_NS_time.h"
#include "ace/OS_NS_unistd.h"
#include "ace/Time_Value.h"

namespace kolt {

namespace {

class System_Clock : public Clock {
 public:
  time_t now() override { return ACE_OS::time(); }
  void sleep(std::chrono::milliseconds span) override {
    if (span.count() > 0) ACE_OS::sleep(ACE_Time_Value(span));
  }
};

std::atomic<Clock*> other_clock{nullptr};

}  // namespace

Clock::~Clock() = default;

std::chrono::nanoseconds Clock::steady() {
  return std::chrono::steady_clock::now().time_since_epoch();
}

void Clock::sleep_until(std::chrono::nanoseconds moment) {
  sleep(std::chrono::ceil<std::chrono::milliseconds>(moment - steady()));
}

Clock& clock() {
  static System_Clock system_clock;
  Clock* const other = other_clock;
  return other != nullptr ? *other : system_clock;
}

Clock* set_clock(Clock* other) {
  return other_clock.exchange(other);
}

}  // namespace kolt
