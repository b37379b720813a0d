#pragma once

#include <chrono>
#include <functional>

#include "kolt/metrics.h"
#include "mtf/core/event_handler.h"
#include "mtf_backup/run/run_state.h"
#include "mtf_backup/run/run_threads.h"

namespace MTF_BACKUP {

/**
 * Stands on the thread that called the run: tells the event handler about twice a second, and once at the end, how far
 * the run has got.
 *
 * The speed is that of the last seconds: older ones count less the older they are. Bytes, files and speed also go into
 * the metrics of the process.
 */
class Progress_Reporter {
 public:
  /// @param operation  what the run is in the metrics: "backup", "restore", "verify" or "export".
  Progress_Reporter(MTF::Event_Handler_var handler, Run_State& state, const char* operation);
  ~Progress_Reporter();

  /// As Run_Threads::watch(), with reports.
  void watch(Run_Threads& threads);
  /// The report at the end of a run that is not cancelled.
  void finish();

 private:
  typedef std::chrono::steady_clock Clock;

  void report_in_time();
  void report(Clock::time_point now, int percent_of_nothing);
  void count();

  MTF::Event_Handler_var handler_;
  Run_State& state_;
  Clock::time_point last_time_;
  uint64_t last_processed_ = 0;
  double speed_ = 0;  // bytes per second
  bool has_speed_ = false;

  const kolt::Counter bytes_;
  const kolt::Counter files_;
  const kolt::Gauge speed_gauge_;
  uint64_t counted_bytes_ = 0;
  uint64_t counted_files_ = 0;
};

}  // namespace MTF_BACKUP
