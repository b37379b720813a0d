#pragma once

#include <atomic>
#include <string>

#include "json_spirit/json_spirit_value.h"
#include "kolt/job_state.h"
#include "task/task_handler.h"

/**
 * Runs a backup or a restore of persistent volumes as a task.
 *
 * Two kinds of instance stand side by side: one made per request, on which the task manager calls execute(), and the
 * one behind instance(), which alone holds whether a cancel is pending. The design holds one job at a time per process:
 * the totals, the pending cancel and the private data directory exist once. Threads: execute() runs on a thread of the
 * task manager; the act state may be set and read by any thread.
 */
class K8S_SClient_Task_Handler : public Task_Handler {
 public:
  K8S_SClient_Task_Handler();

  static K8S_SClient_Task_Handler* instance();
  static void close_instance();

  /// Sets the job's totals to 0 and forgets a pending cancel. Always true.
  bool open() override;
  bool close() override;
  /**
   * Runs the job that the document describes and waits for its end.
   *
   * @param task    `id`, and `data` with `type` ("backup" or "restore") and `params`, not empty
   * @param result  on success `size`, `set_size` and `storage_size` in bytes; otherwise untouched
   * @retval false  the job as a whole failed or was cancelled; at least one line tells why.
   */
  bool execute(const json_spirit::Object& task, json_spirit::Object& result) override;
  bool remove(const std::string& id) override;

  /// The stored task. @retval false  there is none, told at LM_ERROR.
  bool get(const std::string& id, json_spirit::Object& task);

  /// JOB_STATE_CANCELING asks the running job to stop. Only the act state of instance() is looked at.
  void set_act_state(Job_State state);
  Job_State get_act_state() const;

  /// Binds all volumes of `paths`, measures them, moves one after the other to the pool and takes the binds down again.
  bool backup(const json_spirit::Object& params, const std::string& job_id, json_spirit::Object& result);
  /// Brings back one set per member of `rules`, each after all patterns have been resolved.
  bool restore(const json_spirit::Object& params, const std::string& job_id, json_spirit::Object& result);

 private:
  std::atomic<Job_State> act_state_;
};
