#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "mtf/core/event_handler.h"
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
 * The destructor joins them; where they have not ended by then, an exception is on its way, it ends their run first.
 * Threads: the one that made it.
 */
class Run_Threads {
 public:
  /// @param stop  ends whatever the threads wait for.
  Run_Threads(Run_State& state, ACE_Log_Msg_Callback* log_callback, std::function<void()> stop);
  ~Run_Threads();

  /// Runs @a body on a thread of its own. Where there is no thread to be had, or memory runs out in @a body, the run
  /// fails with E_FAILED after one line at LM_ERROR.
  void start(std::function<void()> body);
  /// Waits until all bodies have ended and meanwhile asks the handler, which may be empty, about ten times a second
  /// whether to stop. As soon as the run is stopping the waits of the bodies are ended; the state tells them why.
  /// @param after_look  called after each look while the run is not stopping.
  void watch(
      MTF::Event_Handler_var handler, const std::function<void()>& after_look = [] {});
  /// Waits until all bodies have ended, at most this long. @return whether they have.
  bool wait(std::chrono::milliseconds timeout);

 private:
  void run(const std::function<void()>& body);

  Run_State& state_;
  ACE_Log_Msg_Callback* const log_callback_;
  const std::function<void()> stop_;
  Task_Context* const context_;
  Damage_Listener* const damage_listener_;
  std::vector<std::thread> threads_;

  std::mutex lock_;
  std::condition_variable ended_;
  size_t running_ = 0;  // guarded by lock_
};

/**
 * Runs a step in which nothing is reported on a thread of its own, so that a cancel is heard all the while.
 * @param stop  ends whatever the step waits for; called by the calling thread.
 * @param step  gives E_OK, or the code with which the run fails.
 * @return whether the run goes on.
 */
[[nodiscard]] bool run_step(Run_State& state, MTF::Event_Handler_var handler, ACE_Log_Msg_Callback* log_callback,
                            std::function<void()> stop, const std::function<MTF::Error_Code()>& step);

}  // namespace MTF_BACKUP
