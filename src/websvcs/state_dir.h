#pragma once

#include <string>

#include "kolt/posix_fd.h"

/**
 * What the agent keeps over restarts: one agent at a time has it, from open() to the end of the object.
 *
 * Holds "lock", "host_uuid", "token" and what others put there ("tasks.db", "agent.sock").
 */
class State_Dir {
 public:
  /// Makes the directory, for its owner alone, if it is missing, and takes the lock.
  /// @retval -1  one line at LM_ERROR: it cannot be made, it is open to others, or another agent has it.
  int open(const std::string& path);

  /// The host's name in the pools: made at first start, the same ever after.
  /// @retval -1  the file cannot be read or made, or is open to others; one line at LM_ERROR.
  int host_uuid(std::string& uuid) const;

  /// What callers by TCP show, made at first start. As host_uuid().
  int token(std::string& token) const;

  std::string file(const std::string& name) const { return path_ + "/" + name; }
  const std::string& path() const { return path_; }

 private:
  int read_or_make(const std::string& name, std::string (*make)(), std::string& content) const;

  std::string path_;
  Posix_Fd lock_;
};
