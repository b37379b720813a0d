#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "json_spirit/json_spirit_value.h"
#include "kolt/export.h"

/// What is known of a task beside its document. Times are milliseconds since 1970 UTC, 0 as long as it has not
/// happened.
struct Task_Record {
  std::string id;
  std::string type;
  std::string kind;
  std::string state;
  json_spirit::Object result;
  int64_t created = 0;
  int64_t started = 0;
  int64_t finished = 0;
  std::vector<std::string> errors;
  uint64_t errors_left_out = 0;

  bool ended() const { return finished != 0; }
};

/// The record as Task_Manager::get() gives it.
json_spirit::Object to_object(const Task_Record& record);

/// A fresh id, which no task has had before, in this process or any other.
std::string new_task_id();

/// The present time as it stands in a record.
TESSARIN_API int64_t now_milliseconds();
