#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "json_spirit/json_spirit_value.h"
#include "task/task_handler.h"

/// What the process's task manager does in these tests: it writes down and answers what it was told to.
struct Fake_Task_Manager {
  bool registers = true;
  std::string next_id = "task-1";
  bool submits = true;
  std::function<void()> on_submit;
  std::map<std::string, json_spirit::Object> stored;

  std::vector<std::pair<std::string, Task_Handler_var>> registered;
  std::vector<json_spirit::Object> submitted;

  static Fake_Task_Manager& instance();
  static void reset() { instance() = Fake_Task_Manager(); }
};
