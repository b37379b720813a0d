#include "websvcs/log_line.h"

#include <unistd.h>

#include <cstdio>
#include <ctime>

#include "ace/Log_Record.h"
#include "json_spirit/dump.h"
#include "json_spirit/json_spirit_value.h"
#include "kolt/redact.h"
#include "task/task_context.h"

namespace {

std::string time_of(const ACE_Log_Record& record) {
  const ACE_Time_Value moment = record.time_stamp();
  const time_t seconds = moment.sec();
  struct tm utc;
  ::gmtime_r(&seconds, &utc);
  char day[32];
  std::strftime(day, sizeof day, "%Y-%m-%dT%H:%M:%S", &utc);
  char text[64];
  std::snprintf(text, sizeof text, "%s.%03ldZ", day, static_cast<long>(moment.usec() / 1000));
  return text;
}

const char* priority_of(const ACE_Log_Record& record) {
  return ACE_Log_Record::priority_name(static_cast<ACE_Log_Priority>(record.type()));
}

/// The one place that masks secrets.
std::string message_of(const ACE_Log_Record& record) {
  std::string message = redact_secrets(record.msg_data());
  if (message.ends_with('\n')) message.pop_back();
  return message;
}

}  // namespace

std::string text_log_line(const ACE_Log_Record& record) {
  return time_of(record) + " " + priority_of(record) + " " + message_of(record) + "\n";
}

std::string json_log_line(const ACE_Log_Record& record) {
  json_spirit::Object line;
  line["time"] = time_of(record);
  line["priority"] = priority_of(record);
  line["message"] = message_of(record);
  line["thread"] = static_cast<int64_t>(::gettid());
  const Task_Context* const task = Task_Context::current();
  if (task && !task->task_id().empty()) line["task"] = task->task_id();
  return json_spirit::JSON_Dump(line, false).str() + "\n";
}
