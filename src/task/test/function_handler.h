#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>

#include "json_spirit/json_spirit_value.h"
#include "task/task_handler.h"
#include "task/task_manager.h"

namespace task_test {

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;

/// A handler whose execute() is a function of the test.
class Function_Handler : public Task_Handler {
 public:
  typedef std::function<bool(const Object&, Object&)> Function;

  explicit Function_Handler(Function function) : function_(std::move(function)) {}
  bool execute(const Object& task, Object& result) override { return function_(task, result); }
  bool remove(const std::string&) override { return true; }

 private:
  Function function_;
};

inline Task_Handler_var handler(Function_Handler::Function function) {
  return std::make_shared<Function_Handler>(std::move(function));
}

inline Object document(const std::string& type) {
  Object task;
  task["type"] = type;
  return task;
}

/// Submits a task of @a type; its id, empty if it was refused.
inline std::string submit(Task_Manager& manager, const std::string& type) {
  std::string id;
  manager.submit(document(type), id);
  return id;
}

inline std::string state_of(Task_Manager& manager, const std::string& id) {
  Object task;
  return manager.get(id, task) ? task["state"].get_str() : "unknown";
}

/// Waits until the task has ended and returns what get() gives then; an empty object after 20 seconds.
inline Object wait_for_end(Task_Manager& manager, const std::string& id) {
  for (int i = 0; i < 20000; ++i) {
    Object task;
    if (!manager.get(id, task)) return {};
    const std::string& state = task["state"].get_str();
    if (state != "queued" && state != "running") return task;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return {};
}

}  // namespace task_test
