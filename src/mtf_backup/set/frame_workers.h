#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "kolt/compression.h"
#include "kolt/export.h"
#include "mtf_backup/set/frame.h"

class Task_Context;

namespace MTF_BACKUP {

class Damage_Listener;
class Frame_Codec;

/**
 * The threads that compress, check and decompress frames for all media of a run, and the memory of all those frames.
 *
 * Memory: all open media share `budget` bytes in buffers of one frame. Each may hold its even part, and always two, so
 * that none waits for another for ever.
 *
 * Life: made before the media and destroyed after them. The threads work for the task of the thread that made the
 * object, and tell its damage listener. Threads: all operations may be called from any thread.
 */
class TESSARIN_API Frame_Workers {
 public:
  static constexpr size_t default_budget = size_t(24) << 20;
  /// Threads for a run that reads: they wait for the storage, which may be far away, or be held up by a rate limit.
  static size_t for_reading();

  /// @param threads  how many; 0: one per processor, at least 2.
  /// @param budget   bytes for frame buffers.
  explicit Frame_Workers(size_t threads = 0, size_t budget = default_budget);
  ~Frame_Workers();
  Frame_Workers(const Frame_Workers&) = delete;
  Frame_Workers& operator=(const Frame_Workers&) = delete;

  /// Whether at least one thread could be started. Where not, errno is EAGAIN and one line at LM_ERROR was logged.
  [[nodiscard]] bool open();

  /// One medium's share of the buffers. Life: shorter than that of the workers. take() and give() from any thread.
  class TESSARIN_API Share {
   public:
    explicit Share(Frame_Workers& workers);
    ~Share();
    Share(const Share&) = delete;
    Share& operator=(const Share&) = delete;

    /// A buffer of frame_capacity bytes; waits until the share allows one. Null when memory ran out (errno ENOMEM).
    [[nodiscard]] Frame_Buffer take();
    /// As take(), but null at once (errno EAGAIN) where take() would wait.
    [[nodiscard]] Frame_Buffer try_take();
    /// A buffer beyond the share, for a frame that somebody waits for while all others are in use.
    [[nodiscard]] Frame_Buffer take_extra();
    /// Gives a buffer back, of whichever take.
    void give(Frame_Buffer buffer);
    /// How many buffers the share allows right now, at least 2.
    size_t quota() const;

   private:
    friend class Frame_Workers;
    Frame_Workers& workers_;
    size_t held_ = 0;  // guarded by workers_.lock_
  };

  /// Work on frames, with the codec of the thread that does it. It never waits for other work, and throws nothing.
  typedef std::function<void(Frame_Codec&)> Job;
  /// Runs @a job on one of the threads, in the order of the calls, but an @a urgent one before all that wait.
  /// Where that throws std::bad_alloc the job will not be run.
  void submit(Job job, bool urgent);

  /// The task that the threads work for; null outside a task.
  Task_Context* context() const { return context_; }

 private:
  friend class Share;
  void run();
  // With lock_ held:
  size_t quota() const;
  bool may_take(const Share& share) const;
  Frame_Buffer get_buffer(Share& share);

  const size_t thread_count_;
  const size_t buffer_count_;
  Task_Context* const context_;
  Damage_Listener* const damage_listener_;
  std::vector<std::thread> threads_;

  mutable std::mutex lock_;
  std::condition_variable job_came_;
  std::condition_variable buffer_came_;
  std::deque<Job> jobs_;             // guarded by lock_
  std::vector<Frame_Buffer> spare_;  // guarded by lock_
  size_t taken_ = 0;                 // guarded by lock_
  size_t shares_ = 0;                // guarded by lock_
  bool closing_ = false;             // guarded by lock_
};

}  // namespace MTF_BACKUP
