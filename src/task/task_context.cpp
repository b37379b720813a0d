#include "task/task_context.h"

#include <new>
#include <utility>

#include "ace/Log_Msg.h"
#include "ace/Log_Record.h"
#include "kolt/redact.h"
#include "kolt/utf8.h"

namespace {

thread_local Task_Context* current_context = nullptr;

/// Cuts the middle out of what is too long, but not within a UTF-8 character: often the reason stands at the end.
std::string cut(std::string text) {
  constexpr std::string_view mark = "...";
  constexpr size_t kept_at_end = 500;
  if (text.size() <= Task_Context::max_error_length) return text;
  const size_t gap = kolt::utf8_prefix(text, Task_Context::max_error_length - mark.size() - kept_at_end).size();
  size_t end = text.size() - kept_at_end;
  while (end < text.size() && kolt::utf8_continues(text[end])) ++end;
  return text.replace(gap, end - gap, mark);
}

}  // namespace

Task_Context* Task_Context::current() {
  return current_context;
}

void Task_Context::add_error(std::string_view text) {
  try {
    if (keep_error(text)) return;
  } catch (const std::bad_alloc&) {  // must not get into the log
  }
  std::lock_guard<std::mutex> guard(lock_);
  ++errors_left_out_;
}

bool Task_Context::keep_error(std::string_view text) {
  const size_t last = text.find_last_not_of(" \t\r\n");
  text = text.substr(0, last == std::string_view::npos ? 0 : last + 1);
  std::string line = cut(redact_secrets(text));
  std::lock_guard<std::mutex> guard(lock_);
  if (errors_.size() == max_errors) return false;
  errors_.push_back(std::move(line));
  return true;
}

std::vector<std::string> Task_Context::errors() const {
  std::lock_guard<std::mutex> guard(lock_);
  return errors_;
}

uint64_t Task_Context::errors_left_out() const {
  std::lock_guard<std::mutex> guard(lock_);
  return errors_left_out_;
}

Task_Context::Attach::Attach(Task_Context* context) : context_(context) {
  if (context_ == nullptr) return;
  previous_context_ = std::exchange(current_context, context_);
  previous_callback_ = ACE_LOG_MSG->msg_callback(this);
  ACE_LOG_MSG->set_flags(ACE_Log_Msg::MSG_CALLBACK);
}

Task_Context::Attach::~Attach() {
  if (context_ == nullptr) return;
  ACE_LOG_MSG->msg_callback(previous_callback_);
  current_context = previous_context_;
}

void Task_Context::Attach::log(ACE_Log_Record& record) {
  // Priorities are bits in the order of their weight.
  if (record.type() >= LM_ERROR) context_->add_error(record.msg_data());
  if (previous_callback_ != nullptr) previous_callback_->log(record);
}
