#pragma once

#include "ace/Log_Msg_Backend.h"

/// The one place where the agent's log leaves the process: each line goes to a descriptor with time (UTC) and priority,
/// and with secrets masked, whatever its priority. Threads: any; a line is written in one piece.
class Log_Sink : public ACE_Log_Msg_Backend {
 public:
  explicit Log_Sink(int fd) : fd_(fd) {}

  /// Makes this the process's only log, until the object's end.
  void install();
  ~Log_Sink() override;

  int open(const ACE_TCHAR* logger_key) override;
  int reset() override;
  int close() override;
  ssize_t log(ACE_Log_Record& record) override;

 private:
  const int fd_;
};
