#include "support/log_capture.h"

#include <algorithm>

#include "ace/Log_Record.h"

namespace test_support {

Log_Capture::Log_Capture()
    : previous_(ACE_Log_Msg::msg_backend(this)),
      previous_flags_(ACE_LOG_MSG->flags()),
      previous_mask_(ACE_LOG_MSG->priority_mask(ACE_Log_Msg::PROCESS)) {
  ACE_LOG_MSG->priority_mask(~0UL, ACE_Log_Msg::PROCESS);
  ACE_LOG_MSG->clr_flags(previous_flags_);
  ACE_LOG_MSG->set_flags(ACE_Log_Msg::CUSTOM);
}

Log_Capture::~Log_Capture() {
  ACE_LOG_MSG->clr_flags(ACE_Log_Msg::CUSTOM);
  ACE_LOG_MSG->set_flags(previous_flags_);
  ACE_LOG_MSG->priority_mask(previous_mask_, ACE_Log_Msg::PROCESS);
  ACE_Log_Msg::msg_backend(previous_);
}

std::vector<Log_Line> Log_Capture::lines() const {
  std::lock_guard<std::mutex> guard(lock_);
  return lines_;
}

std::vector<std::string> Log_Capture::texts(ACE_Log_Priority priority) const {
  std::vector<std::string> found;
  for (const Log_Line& line : lines())
    if (line.priority == priority) found.push_back(line.text);
  return found;
}

bool Log_Capture::has(ACE_Log_Priority priority, const std::string& text) const {
  const std::vector<std::string> found = texts(priority);
  return std::find(found.begin(), found.end(), text) != found.end();
}

bool Log_Capture::has_containing(ACE_Log_Priority priority, const std::string& part) const {
  const std::vector<std::string> found = texts(priority);
  return std::any_of(found.begin(), found.end(),
                     [&](const std::string& text) { return text.find(part) != std::string::npos; });
}

std::string Log_Capture::all() const {
  std::string text;
  for (const Log_Line& line : lines()) text += std::to_string(line.priority) + " " + line.text;
  return text;
}

void Log_Capture::clear() {
  std::lock_guard<std::mutex> guard(lock_);
  lines_.clear();
}

int Log_Capture::open(const ACE_TCHAR*) {
  return 0;
}
int Log_Capture::reset() {
  return 0;
}
int Log_Capture::close() {
  return 0;
}

ssize_t Log_Capture::log(ACE_Log_Record& record) {
  std::lock_guard<std::mutex> guard(lock_);
  lines_.push_back({static_cast<ACE_Log_Priority>(record.type()), record.msg_data()});
  return static_cast<ssize_t>(record.msg_data_len());
}

}  // namespace test_support
