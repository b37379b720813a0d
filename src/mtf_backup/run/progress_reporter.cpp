#include "mtf_backup/run/progress_reporter.h"

#include <algorithm>
#include <cmath>

namespace MTF_BACKUP {

namespace {

constexpr std::chrono::milliseconds report_interval(500);
constexpr double memory_seconds = 3;  // what is older than this has a third of the weight

kolt::Counter moved_bytes(const char* operation) {
  return kolt::Counter("tessarin_moved_bytes_total", "Bytes of files that the data mover has been through.",
                       {{"operation", operation}});
}

kolt::Counter moved_files(const char* operation) {
  return kolt::Counter("tessarin_moved_files_total", "Files that the data mover has written, to a set or from one.",
                       {{"operation", operation}});
}

kolt::Gauge mover_speed(const char* operation) {
  return kolt::Gauge("tessarin_speed_bytes_per_second", "Speed of the run under way, 0 without one.",
                     {{"operation", operation}});
}

// They are there before the first run, so that what it moves shows as a rise.
const kolt::Counter known_movers[] = {moved_bytes("backup"), moved_bytes("restore"), moved_files("backup"),
                                      moved_files("restore")};
const kolt::Gauge known_speeds[] = {mover_speed("backup"), mover_speed("restore")};

}  // namespace

Progress_Reporter::Progress_Reporter(MTF::Event_Handler_var handler, Run_State& state, const char* operation)
    : handler_(handler),
      state_(state),
      last_time_(Clock::now()),
      bytes_(moved_bytes(operation)),
      files_(moved_files(operation)),
      speed_gauge_(mover_speed(operation)) {}

Progress_Reporter::~Progress_Reporter() {
  count();
  speed_gauge_.set(0);
}

void Progress_Reporter::watch(Run_Threads& threads) {
  threads.watch(handler_, [this] { report_in_time(); });
}

void Progress_Reporter::report_in_time() {
  const Clock::time_point now = Clock::now();
  if (now - last_time_ >= report_interval) report(now, 0);
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
  speed_gauge_.set(speed_);
  count();
  if (!handler_) return;
  const int percent =
      total ? static_cast<int>(static_cast<double>(processed) * 100 / static_cast<double>(total)) : percent_of_nothing;
  handler_->handle_progress(percent, total, processed, static_cast<ACE_UINT64>(speed_));
}

void Progress_Reporter::count() {
  const uint64_t bytes = state_.processed;
  const uint64_t files = state_.files;
  bytes_.add(static_cast<double>(bytes - std::min(bytes, counted_bytes_)));
  files_.add(static_cast<double>(files - std::min(files, counted_files_)));
  counted_bytes_ = bytes;
  counted_files_ = files;
}

}  // namespace MTF_BACKUP
