#include "mtf_backup/run/progress_reporter.h"

#include <algorithm>
#include <cmath>

namespace MTF_BACKUP {

namespace {

constexpr std::chrono::milliseconds poll_interval(100);
constexpr std::chrono::milliseconds report_interval(500);
constexpr double memory_seconds = 3;  // what is older than this has a third of the weight

}  // namespace

Progress_Reporter::Progress_Reporter(MTF::Event_Handler_var handler, Run_State& state)
    : handler_(handler), state_(state), last_time_(Clock::now()) {}

void Progress_Reporter::watch(Run_Threads& threads, const std::function<void()>& stop) {
  bool stopped = false;
  bool ended = false;
  // Once more after the end: a cancel that came in the last moment counts too.
  while (!ended) {
    ended = threads.wait(poll_interval);
    if (handler_ && !state_.stopping() && handler_->canceling()) state_.cancel();
    if (state_.stopping() && !stopped) {
      stop();
      stopped = true;
    }
    const Clock::time_point now = Clock::now();
    if (!stopped && now - last_time_ >= report_interval) report(now, 0);
  }
}

void Progress_Reporter::finish() {
  report(Clock::now(), 100);
}

void Progress_Reporter::report(Clock::time_point now, int percent_of_nothing) {
  const uint64_t processed = state_.processed;
  const uint64_t total = std::max({state_.total.load(), state_.expected.load(), processed});
  const double seconds = std::max(std::chrono::duration<double>(now - last_time_).count(), 1e-3);
  const double speed = static_cast<double>(processed - std::min(processed, last_processed_)) / seconds;
  const double weight = has_speed_ ? 1 - std::exp(-seconds / memory_seconds) : 1;
  speed_ += weight * (speed - speed_);
  has_speed_ = true;
  last_time_ = now;
  last_processed_ = processed;
  if (!handler_) return;
  const int percent =
      total ? static_cast<int>(static_cast<double>(processed) * 100 / static_cast<double>(total)) : percent_of_nothing;
  handler_->handle_progress(percent, total, processed, static_cast<ACE_UINT64>(speed_));
}

}  // namespace MTF_BACKUP
