#pragma once

#include <string>

class ACE_Log_Record;

/// A line of the agent's log, its line end included, secrets masked.
///
/// As text: time (UTC), priority and message. As JSON: an object with the strings `time`, `priority`, `message` and,
/// where the thread works for a task, `task`, and the number `thread`; what is not UTF-8 in a message is replaced.
/// Called by the thread that logs.
std::string text_log_line(const ACE_Log_Record& record);
std::string json_log_line(const ACE_Log_Record& record);
