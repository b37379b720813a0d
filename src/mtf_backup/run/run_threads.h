#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "mtf_backup/log_msg_callback.h"
#include "mtf_backup/run/run_state.h"

class Task_Context;

namespace MTF_BACKUP {

class Damage_Listener;

/// Sends the calling thread's log lines to a callback while the object lives; does nothing where that is empty.
class Log_Scope {
 public:
  explicit Log_Scope(ACE_Log_Msg_Callback* callback);
  ~Log_Scope();
  Log_Scope(const Log_Scope&) = delete;
  Log_Scope& operator=(const Log_Scope&) = delete;

 private:
  ACE_Log_Msg_Callback* const callback_;
  ACE_Log_Msg_Callback* previous_ = nullptr;
  bool had_flag_ = false;
};

/**
 * The threads of one run. They work for the task of the thread that made the object, and tell its damage listener.
 *
 * Whatever they wait for has to be ended before the destructor, which joins them. Threads: the one that made it.
 */
class Run_Threads {
 public:
  Run_Threads(Run_State& state, ACE_Log_Msg_Callback* log_callback);
  ~Run_Threads() { join(); }

  /// Runs @a body on a thread of its own. Where there is no thread to be had, or memory runs out in @a body, the run
  /// fails with E_FAILED after one line at LM_ERROR.
  void start(std::function<void()> body);
  /// Waits until all bodies have ended, at most this long. @return whether they have.
  bool wait(std::chrono::milliseconds timeout);
  void join();

 private:
  void run(const std::function<void()>& body);

  Run_State& state_;
  ACE_Log_Msg_Callback* const log_callback_;
  Task_Context* const context_;
  Damage_Listener* const damage_listener_;
  std::vector<std::thread> threads_;

  std::mutex lock_;
  std::condition_variable ended_;
  size_t running_ = 0;  // guarded by lock_
};

}  // namespace MTF_BACKUP
