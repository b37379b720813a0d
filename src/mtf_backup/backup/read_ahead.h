#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "mtf_backup/backup/work_batch.h"
#include "mtf_backup/run/run_state.h"

namespace MTF_BACKUP {

/**
 * Brings what a backup reads next into the caches of the system, on several threads. The walk and each channel wait for
 * one thing after the other, which leaves a disk or a file server idle most of the time.
 *
 * Starts to work when a stage has waited, and stops when nobody waits any more. What it is told of is touched while
 * there is time: the oldest is forgotten first, and what a channel has come to is passed over.
 *
 * Only regular files and directories are opened, by descriptor and through no link. Logs nothing: what cannot be read
 * shows in the stages behind it. Ends with the object at the latest, between two entries.
 * Memory: names of one stretch of a directory per thread, and tasks.  Page cache: the first MiB of each file in the
 * queue to the channels. Threads: any.
 */
class Read_Ahead {
 public:
  /// Both are borrowed.  @param always  whether to work even where nobody waits.
  Read_Ahead(const std::vector<Source>& sources, const Run_State& state, bool always);
  ~Read_Ahead();
  Read_Ahead(const Read_Ahead&) = delete;
  Read_Ahead& operator=(const Read_Ahead&) = delete;

  /// What a thread of the run has seen of its waits.
  void note(bool waited);
  /// Whether it is worth while to tell what comes.
  bool wanted() const { return always_ || credit_.load(std::memory_order_relaxed) > 0; }

  /// A directory that will be listed. @param path  relative to the source.
  void directory(uint32_t source, std::string path);
  /// Entries on their way to a channel.
  void files(const Work_Batch_var& batch);

 private:
  typedef std::function<void()> Task;

  void add(Task task);
  void start_threads();
  void run();
  bool ending() const { return ending_.load(std::memory_order_relaxed) || state_.stopping(); }
  void touch_directory(uint32_t source, const std::string& path);
  void touch_files(const std::weak_ptr<const Work_Batch>& waiting, size_t begin, size_t end);

  const std::vector<Source>& sources_;
  const Run_State& state_;
  const bool always_;
  std::atomic<int> credit_{0};  // how many more times nobody may have waited
  std::atomic<bool> ending_{false};

  std::mutex lock_;
  std::condition_variable task_came_;
  std::deque<Task> tasks_;            // guarded by lock_
  std::vector<std::thread> threads_;  // guarded by lock_; none before the first task
};

}  // namespace MTF_BACKUP
