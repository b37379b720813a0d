#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "task/task_record.h"

struct sqlite3;
class Sqlite_Statement;

/**
 * The records of tasks in an SQLite database; tasks' documents never come here.
 *
 * The database is in WAL mode with synchronous FULL: a record that was saved is there after a power cut too, which
 * costs one sync of the log per change, a few in the life of a job. It is locked for this process alone, so that a
 * second one started on the same file is refused, instead of taking the running tasks for those of a dead process.
 *
 * Every failure is logged once at LM_ERROR; a store that is not open gives false without a line. Threads: all
 * operations may be called from any thread.
 */
class Task_Store {
 public:
  Task_Store() = default;
  ~Task_Store();
  Task_Store(const Task_Store&) = delete;
  Task_Store& operator=(const Task_Store&) = delete;

  /// Opens the file @a path, or a store in memory if it is empty, and marks the tasks "failed" that had not ended.
  /// Takes the place of what was open before; on failure that stays open.
  bool open(const std::string& path);
  void close();

  /// Adds the record, or replaces the one with the same id.
  bool save(const Task_Record& record);
  /// Without a log line: false also if the id is unknown.
  bool find(const std::string& id, Task_Record& record);
  /// Newest first, at most @a limit of them, 0 for all.
  bool list(size_t limit, std::vector<Task_Record>& records);
  /// Drops ended tasks: those beyond the newest @a max_tasks (0: none) and those that ended before @a finished_before.
  bool prune(size_t max_tasks, int64_t finished_before);

 private:
  bool failed(const char* what) const;

  std::mutex lock_;
  sqlite3* db_ = nullptr;  // guarded by lock_
};
