#pragma once

#include "task/task_record.h"

/// What the task manager counts. A task's kind is "backup" or "restore" in the metrics, and "other" else. Threads: any.
namespace task_metrics {

/// A task waits, or waits no more.
void queued(int change);
/// A worker has taken the task up.
void begun(const Task_Record& record);
/// The task has ended; @a record has its state and times.
void ended(const Task_Record& record);
/// A task of an earlier run of the agent, as the store tells it.
void remembered(const Task_Record& record);

}  // namespace task_metrics
