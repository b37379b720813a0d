#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "ace/Log_Msg.h"
#include "ace/Log_Msg_Backend.h"

namespace test_support {

/// One line as it reaches the log.
struct Log_Line {
  ACE_Log_Priority priority;
  /// The formatted text without time, host and process, the line end included.
  std::string text;
};

/**
 * Catches every log line of the process, of all threads and priorities, while the object lives.
 *
 * Nothing is printed in the meantime. Objects nest: the innermost catches. Threads: lines may come from any thread, and
 * the readers may be called at any time.
 */
class Log_Capture : public ACE_Log_Msg_Backend {
 public:
  Log_Capture();
  ~Log_Capture() override;

  std::vector<Log_Line> lines() const;
  /// All lines of @a priority, in order.
  std::vector<std::string> texts(ACE_Log_Priority priority) const;
  /// Whether a line of @a priority has exactly this text.
  bool has(ACE_Log_Priority priority, const std::string& text) const;
  /// Whether a line of @a priority holds this text.
  bool has_containing(ACE_Log_Priority priority, const std::string& part) const;
  /// All lines in one string, for searching a secret or for a failure message.
  std::string all() const;
  void clear();

  int open(const ACE_TCHAR* logger_key) override;
  int reset() override;
  int close() override;
  ssize_t log(ACE_Log_Record& record) override;

 private:
  ACE_Log_Msg_Backend* previous_;
  u_long previous_flags_;
  u_long previous_mask_;

  mutable std::mutex lock_;
  std::vector<Log_Line> lines_;  // guarded by lock_
};

}  // namespace test_support
