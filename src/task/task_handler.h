#pragma once

#include <memory>
#include <string>

#include "json_spirit/json_spirit_value.h"
#include "kolt/export.h"

/**
 * What runs the tasks of one name.
 *
 * The task manager calls execute() alone, on a thread of its own and for one task of the name at a time. The other
 * operations are for the users of the handler itself.
 */
class TESSARIN_API Task_Handler {
 public:
  virtual ~Task_Handler();

  /// Gets ready for a task. Base: true.
  virtual bool open();
  /// The counterpart of open(). Base: true.
  virtual bool close();

  /**
   * Runs a task to its end.
   *
   * @param task    the submitted document with the task's id added as the string `id`.
   * @param result  empty at first; what stands in it at the end is kept with the task, also after a failure.
   * @retval true   the task reads "completed".
   * @retval false  the task reads "canceled" if Task_Context::set_canceled() was called for it, otherwise "failed".
   *
   * An exception has the same effect as false, after a line at LM_ERROR with its text. Task_Context::current() is the
   * task's context; threads that work for the task attach themselves to it.
   */
  virtual bool execute(const json_spirit::Object& task, json_spirit::Object& result) = 0;

  /// Forgets what the handler itself keeps about a task.
  virtual bool remove(const std::string& id) = 0;
};

typedef std::shared_ptr<Task_Handler> Task_Handler_var;
