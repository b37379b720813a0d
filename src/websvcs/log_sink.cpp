#include "websvcs/log_sink.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <string>

#include "ace/Log_Msg.h"
#include "ace/Log_Record.h"
#include "kolt/redact.h"

namespace {

std::string head_of(const ACE_Log_Record& record) {
  const ACE_Time_Value moment = record.time_stamp();
  const time_t seconds = moment.sec();
  struct tm utc;
  ::gmtime_r(&seconds, &utc);
  char day[32];
  std::strftime(day, sizeof day, "%Y-%m-%dT%H:%M:%S", &utc);
  const char* const priority = ACE_Log_Record::priority_name(static_cast<ACE_Log_Priority>(record.type()));
  char head[96];
  std::snprintf(head, sizeof head, "%s.%03ldZ %s ", day, static_cast<long>(moment.usec() / 1000), priority);
  return head;
}

}  // namespace

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
  std::string line = head_of(record) + redact_secrets(record.msg_data());
  if (line.back() != '\n') line += '\n';
  ssize_t written;
  do written = ::write(fd_, line.data(), line.size());
  while (written == -1 && errno == EINTR);
  return written;
}
