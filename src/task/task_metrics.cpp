#include "task/task_metrics.h"

#include <algorithm>
#include <mutex>
#include <string>

#include "kolt/metrics.h"

namespace {

/// The series of one kind.
class Kind_Metrics {
 public:
  explicit Kind_Metrics(const char* kind)
      : kind_(kind),
        running_("tessarin_jobs_running", "Jobs that run.", {{"type", kind}}),
        seconds_("tessarin_job_duration_seconds", "How long jobs ran that have ended.", {{"type", kind}},
                 {1, 10, 60, 300, 900, 3600, 4 * 3600, 12 * 3600, 24 * 3600}),
        last_success_("tessarin_job_last_success_timestamp_seconds",
                      "When a job was completed last, since 1970; 0: none is known.", {{"type", kind}}) {
    for (const char* state : {"completed", "failed", "canceled"}) ended(state).add(0);
  }

  void begin() const { running_.add(1); }

  void end(const Task_Record& record) {
    ended(record.state).add();
    if (record.started != 0) {
      running_.add(-1);
      seconds_.observe(static_cast<double>(record.finished - record.started) / 1000);
    }
    if (record.state == "completed") succeeded(record.finished);
  }

  void succeeded(int64_t when) {
    const std::lock_guard guard(lock_);
    newest_ = std::max(newest_, when);
    last_success_.set(static_cast<double>(newest_) / 1000);
  }

 private:
  kolt::Counter ended(const std::string& state) const {
    return kolt::Counter("tessarin_jobs_total", "Jobs that have ended.", {{"type", kind_}, {"state", state}});
  }

  const char* const kind_;
  const kolt::Gauge running_;
  const kolt::Histogram seconds_;
  const kolt::Gauge last_success_;
  std::mutex lock_;
  int64_t newest_ = 0;  // guarded by lock_
};

Kind_Metrics backup_metrics("backup");
Kind_Metrics restore_metrics("restore");
Kind_Metrics other_metrics("other");
const kolt::Gauge queued_jobs("tessarin_jobs_queued", "Jobs that wait for their turn.");

Kind_Metrics& metrics_of(const std::string& kind) {
  return kind == "backup" ? backup_metrics : kind == "restore" ? restore_metrics : other_metrics;
}

}  // namespace

namespace task_metrics {

void queued(int change) {
  queued_jobs.add(change);
}

void begun(const Task_Record& record) {
  metrics_of(record.kind).begin();
}

void ended(const Task_Record& record) {
  metrics_of(record.kind).end(record);
}

void remembered(const Task_Record& record) {
  if (record.state == "completed") metrics_of(record.kind).succeeded(record.finished);
}

}  // namespace task_metrics
