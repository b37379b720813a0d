#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "json_spirit/json_spirit_value.h"
#include "kolt/export.h"
#include "task/task_handler.h"

class Task_Store;
struct Task_Record;

/**
 * Takes tasks, runs those of one handler name one after the other, and remembers how each of them ended.
 *
 * A task document has the string `type`, the name of its handler, and what the handler needs besides. Its states are
 * "queued", "running", and at the end "completed", "failed" or "canceled". The document itself stays in memory, and
 * only until the task has ended: it may hold keys. Stored are id, type, state, result, times and errors.
 *
 * A store that fails (disk full, database locked) is logged at LM_ERROR; the tasks run on, and what could not be stored
 * is kept in memory and stored later.
 *
 * Threads: all operations may be called from any thread, but for open() and close(), which do not run at the same time
 * as others of their kind.
 */
class TESSARIN_API Task_Manager {
 public:
  struct Options {
    /// Ended tasks beyond this number are dropped, oldest first. 0: no limit.
    size_t max_tasks = 10000;
    /// Tasks that ended longer ago are dropped. 0: no limit.
    std::chrono::seconds max_age = std::chrono::hours(24 * 90);
  };

  /// The manager of the process, made on first use; it works at once, with a store in memory.
  static Task_Manager* instance();
  /// Closes and destroys the manager of the process; the next instance() makes a new one.
  static void close_instance();

  Task_Manager();
  /// Closes.
  ~Task_Manager();
  Task_Manager(const Task_Manager&) = delete;
  Task_Manager& operator=(const Task_Manager&) = delete;

  /**
   * Opens the store, before the first task is submitted or after close().
   *
   * A task that was queued or running when the last process ended reads "failed" from now on, with an error that says
   * so.
   *
   * @param db_path  file of the store, made readable by its owner alone if it is missing; its directory exists. One
   *                 process has it open at a time. Empty: in memory.
   * @retval false   tasks are queued or running, or the store cannot be opened (one line at LM_ERROR). The manager is
   * then as it was before.
   */
  bool open(const std::string& db_path, const Options& options);
  bool open(const std::string& db_path) { return open(db_path, Options()); }

  /**
   * Takes no more tasks, ends the queued ones as "failed", waits for the running ones, joins all threads, closes the
   * store. Handlers stay registered.
   *
   * @param cancel_running  asks the running tasks to stop. Called at once and then five times a second while a task
   * runs, so that a task which was only about to begin hears it too. Empty: the tasks run to their end.
   * @return true.
   */
  bool close(const std::function<void()>& cancel_running = {});

  /// Stores @a handler under @a name, in place of what stood there, and returns true. A task uses the handler that is
  /// registered when it begins to run, and holds it until it has ended.
  bool register_handler(const std::string& name, Task_Handler_var handler);

  /// Is told of each task that has begun or ended, by the thread that runs it: it must return at once and not throw.
  typedef std::function<void(const Task_Record& record)> Observer;

  /// Sets who is told, in place of who was; empty: nobody. While no task is queued or running.
  void observe(Observer observer);

  /**
   * Stores and queues a task. The work done here does not depend on the size of the job.
   *
   * @param id      on success the task's id, unique also over restarts; otherwise untouched.
   * @retval false  no string `type`, no handler of that name, no thread to be had, or the manager is closed; one line
   * at LM_ERROR.
   */
  bool submit(const json_spirit::Object& task, std::string& id);

  /**
   * Fills in what is known of a task, without its document.
   *
   * Members: `id`, `type`, `kind` (the string `type` in the document's `data`, or ""), `state`, `result` (object, once
   * the task has ended), `created`, `started`, `finished` (milliseconds since 1970 UTC; null as long as it has not
   * happened), `errors` (array of strings, oldest first), `errors_left_out` (number).
   *
   * @retval false  the id is unknown; @a task is untouched and nothing is logged.
   */
  bool get(const std::string& id, json_spirit::Object& task);

  /**
   * Fills in all tasks, newest first, each as in get().
   *
   * @param limit   at most so many; 0: all of them.
   * @retval false  the store cannot be read (one line at LM_ERROR); @a tasks is untouched.
   */
  bool list(json_spirit::Array& tasks, size_t limit = 0);

 private:
  struct Live_Task;
  struct Worker;
  typedef std::shared_ptr<Live_Task> Live_Task_var;

  bool begin(const Live_Task_var& task);
  void queue(const Live_Task_var& task);
  bool start_worker(const std::string& name);
  void work(Worker& worker);
  Live_Task_var next_task(Worker& worker);
  void run(const Live_Task_var& task);
  void fail_unstarted(const Live_Task_var& task);
  void finish(const Live_Task_var& task, const std::string& state, json_spirit::Object result);
  void not_busy();
  void store_unsaved();
  void tell(const Task_Record& record) const;
  void prune();
  void recall();

  const std::unique_ptr<Task_Store> store_;

  std::mutex lock_;
  std::condition_variable changed_;  // a task was queued, busy_ fell, or closing_ was set

  // Guarded by lock_, which is not held while the store is written.
  Options options_;
  Observer observer_;  // changed while nothing runs, so it is called without the lock
  bool closing_ = false;
  int busy_ = 0;                                            // submissions and tasks under way
  std::map<std::string, Task_Handler_var> handlers_;        // by name
  std::map<std::string, std::unique_ptr<Worker>> workers_;  // by name
  std::map<std::string, Live_Task_var> live_;               // by id: queued, running, or ended and not yet stored
};
