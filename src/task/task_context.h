#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ace/Log_Msg_Callback.h"
#include "kolt/export.h"

/**
 * What the threads of a running task tell about it.
 *
 * The task manager makes one per task and attaches its worker; a thread started for the task attaches itself:
 *
 *   Task_Context* context = Task_Context::current();   // on the thread of execute(); null outside a task
 *   std::thread([context] { Task_Context::Attach attach(context); ... });
 *
 * Lines logged at LM_ERROR and above by an attached thread are kept as the task's errors.
 *
 * Ownership: the task manager's, until execute() has returned, so threads are joined before that.
 * Threads: all operations may be called from any thread at any time.
 */
class TESSARIN_API Task_Context {
 public:
  /// Errors kept per task. Later ones are only counted: the first ones tell the cause.
  static constexpr size_t max_errors = 100;
  /// Bytes kept of one error; what is longer has "..." in the place of its middle.
  static constexpr size_t max_error_length = 2000;

  /// The context that the calling thread is attached to, null if there is none.
  static Task_Context* current();

  /// @param task_id  of the task; empty: none.
  explicit Task_Context(std::string task_id = std::string()) : task_id_(std::move(task_id)) {}
  Task_Context(const Task_Context&) = delete;
  Task_Context& operator=(const Task_Context&) = delete;

  const std::string& task_id() const { return task_id_; }

  /// Says that the task stops because it was asked to: when execute() then gives false it reads "canceled".
  void set_canceled() { canceled_ = true; }
  bool canceled() const { return canceled_; }

  /// Keeps a line with the task, secrets masked and white space at its end cut off; one for which there is no memory is
  /// counted with those left out.
  void add_error(std::string_view text);
  /// A copy of the errors so far, oldest first.
  std::vector<std::string> errors() const;
  /// How many errors came after the first max_errors, or found no memory.
  uint64_t errors_left_out() const;

  /// Attaches the calling thread while the object lives; one made with null does nothing. Objects nest.
  class TESSARIN_API Attach : private ACE_Log_Msg_Callback {
   public:
    explicit Attach(Task_Context* context);
    ~Attach() override;
    Attach(const Attach&) = delete;
    Attach& operator=(const Attach&) = delete;

   private:
    void log(ACE_Log_Record& record) override;

    Task_Context* const context_;
    Task_Context* previous_context_ = nullptr;
    ACE_Log_Msg_Callback* previous_callback_ = nullptr;
  };

 private:
  bool keep_error(std::string_view text);

  const std::string task_id_;
  std::atomic<bool> canceled_{false};

  mutable std::mutex lock_;
  std::vector<std::string> errors_;  // guarded by lock_
  uint64_t errors_left_out_ = 0;     // guarded by lock_
};
