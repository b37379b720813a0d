#pragma once

#include <cstddef>
#include <ctime>
#include <memory>

#include "ace/Time_Value.h"
#include "kolt/export.h"
#include "kolt/thread_helper.h"

/**
 * The workers of the pooled JSON-RPC handlers, one pool per process.
 *
 * Threads: schedule() and expiry() from any thread; open(), close() and close_instance() from one, while nobody
 * schedules.
 */
class TESSARIN_API JSON_RPC_Thread_Pool {
 public:
  static JSON_RPC_Thread_Pool* instance();
  /// Closes and destroys the pool; the next instance() makes a new one.
  static void close_instance();

  JSON_RPC_Thread_Pool() = default;
  ~JSON_RPC_Thread_Pool();
  JSON_RPC_Thread_Pool(const JSON_RPC_Thread_Pool&) = delete;
  JSON_RPC_Thread_Pool& operator=(const JSON_RPC_Thread_Pool&) = delete;

  /**
   * Starts the workers.
   *
   * @param name        of the threads, as a debugger shows it.
   * @param n_threads   0 makes a pool that refuses all work.
   * @param max_queued  what may wait for a worker, at least 1.
   * @param stack_size  of a worker, in bytes; 0: the system's default.
   * @param expiry      seconds after which a requester gives its answer up; 0: never. The pool only tells it to the
   * channel.
   * @retval 0          the pool is open.
   * @retval -1         it was open already, or a thread cannot be started (one line at LM_ERROR).
   */
  int open(const char* name, size_t n_threads, size_t max_queued, size_t stack_size, time_t expiry);

  /// Runs what is queued, joins the workers. Harmless when it is not open. Always 0.
  int close();

  time_t expiry() const { return expiry_; }

  /// Queues @a f to be run once by a worker; see Thread_Pool_Helper::schedule().
  /// @retval -1  also, with a line at LM_EMERGENCY, when the pool is not open.
  int schedule(const ACE_Time_Value& abs_timeout, const Thread_Pool_Helper::function_type& f);

 private:
  std::unique_ptr<Thread_Pool_Helper> pool_;
  time_t expiry_ = 0;
};
