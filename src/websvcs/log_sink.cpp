#include "websvcs/log_sink.h"

#include <unistd.h>

#include <cerrno>
#include <new>
#include <string>

#include "ace/Log_Msg.h"
#include "ace/Log_Record.h"

Log_Sink::Log_Sink(int fd, Format format) : fd_(fd), format_(format) {
  for (const ACE_Log_Priority priority : {LM_TRACE, LM_DEBUG, LM_INFO, LM_NOTICE, LM_WARNING, LM_STARTUP, LM_ERROR,
                                          LM_CRITICAL, LM_ALERT, LM_EMERGENCY}) {
    lines_.try_emplace(priority, "tessarin_log_messages_total", "Lines of the log.",
                       kolt::Metric_Labels{{"priority", ACE_Log_Record::priority_name(priority)}});
  }
}

void Log_Sink::install() {
  ACE_LOG_MSG->msg_backend(this);
  ACE_LOG_MSG->clr_flags(ACE_Log_Msg::STDERR | ACE_Log_Msg::LOGGER | ACE_Log_Msg::OSTREAM);
  ACE_LOG_MSG->set_flags(ACE_Log_Msg::CUSTOM);
}

Log_Sink::~Log_Sink() {
  ACE_LOG_MSG->clr_flags(ACE_Log_Msg::CUSTOM);
  ACE_LOG_MSG->msg_backend(nullptr);
}

int Log_Sink::open(const ACE_TCHAR*) {
  return 0;
}

int Log_Sink::reset() {
  return 0;
}

int Log_Sink::close() {
  return 0;
}

ssize_t Log_Sink::log(ACE_Log_Record& record) {
  const auto counter = lines_.find(record.type());
  if (counter != lines_.end()) counter->second.add();
  try {
    return write(format_(record));
  } catch (const std::bad_alloc&) {  // whoever logs may do so for want of memory, and has nobody to throw it to
    return write("A line of the log found no memory.\n");
  }
}

ssize_t Log_Sink::write(std::string_view line) const {
  ssize_t written;
  do written = ::write(fd_, line.data(), line.size());
  while (written == -1 && errno == EINTR);
  return written;
}
