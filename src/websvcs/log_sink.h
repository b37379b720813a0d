#pragma once

#include <map>
#include <string>
#include <string_view>

#include "ace/Log_Msg_Backend.h"
#include "kolt/metrics.h"
#include "websvcs/log_line.h"

/// The one place where the agent's log leaves the process: each line goes to a descriptor in the form that is asked
/// for, and with secrets masked, whatever its priority. Where there is no memory for one, "A line of the log found no
/// memory." stands in its place. Threads: any; a line is written in one piece.
class Log_Sink : public ACE_Log_Msg_Backend {
 public:
  typedef std::string (*Format)(const ACE_Log_Record& record);

  explicit Log_Sink(int fd, Format format = text_log_line);

  /// Makes this the process's only log, until the object's end.
  void install();
  ~Log_Sink() override;

  int open(const ACE_TCHAR* logger_key) override;
  int reset() override;
  int close() override;
  ssize_t log(ACE_Log_Record& record) override;

 private:
  ssize_t write(std::string_view line) const;

  const int fd_;
  const Format format_;
  std::map<unsigned long, kolt::Counter> lines_;  // by priority; made before the first line: to make one may log
};
