#pragma once

#include <cstddef>
#include <functional>
#include <string>

#include "ace/Global_Macros.h"
#include "ace/Synch_Traits.h"
#include "ace/Task_Ex_T.h"
#include "ace/Time_Value.h"
#include "kolt/export.h"

typedef ACE_Task_Ex<ACE_MT_SYNCH, std::function<void()>, ACE_System_Time_Policy> Thread_Pool_Helper_Base;

/**
 * A fixed number of threads that run functions from one queue.
 *
 * Life: open() once; schedule() and putq() from any thread; shutdown() any number of times, also by the destructor.
 * Each queued function is run once. An exception that leaves one is logged at LM_ERROR, and its worker goes on.
 */
class TESSARIN_API Thread_Pool_Helper : public Thread_Pool_Helper_Base {
 public:
  typedef std::function<void()> function_type;

  /// In the queue it ends the worker that takes it.
  static const function_type EMPTY;

  /// @param name       of the threads, cut to 15 bytes.
  /// @param n_threads  0 is a pool that refuses all work.
  explicit Thread_Pool_Helper(const char* name = "", size_t n_threads = 0);
  ~Thread_Pool_Helper() override;

  /// How the threads are made; before open(). @a flags and @a priority are those of ACE's activate().
  void thread_attributes(long flags, long priority);
  /// What a thread asks of the kernel when it begins; before open(). -1 (@a nice_value: 0) leaves what it inherits.
  /// @param policy  SCHED_*.   @param io_priority  as for ioprio_set().
  void scheduling(int policy, int nice_value, int io_priority);

  /**
   * Starts the threads.
   *
   * @param max_queued  functions that may wait, at least 1.
   * @param stack_size  bytes; 0: the system's default.
   * @retval -1         a thread cannot be started; one line at LM_ERROR, and none is left running.
   */
  int open(size_t max_queued, size_t stack_size);
  using Thread_Pool_Helper_Base::open;

  /// Waits until what is queued has been run and joins the threads. What is queued meanwhile may be dropped. Not named
  /// close(): that is what ACE calls in each thread that ends.
  void shutdown();

  /// Queues @a f at the tail, waiting for room until @a abs_timeout. As putq().
  template <typename F>
  int schedule(ACE_Time_Value abs_timeout, const F& f) {
    return putq(function_type(f), false, &abs_timeout);
  }

  /**
   * Queues a copy of @a fn.
   *
   * @param front    ahead of all that waits.
   * @param timeout  moment until which to wait for room; null waits for ever.
   * @retval >0      functions that wait now, this one included.
   * @retval <=0     not queued; one line at LM_ERROR, but for a copy that finds no memory (errno is ENOMEM).
   */
  int putq(const function_type& fn, bool front, ACE_Time_Value* timeout);

  int svc() override;

 private:
  void apply_scheduling() const;
  void run(function_type& fn) const;

  std::string _name;
  size_t _n_threads;
  long _flags;
  long _priority;
  int _io_priority = -1;
  int _nice_value = 0;
  int _policy = -1;
};
