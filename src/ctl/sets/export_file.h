#pragma once

#include <signal.h>

#include <string>

#include "kolt/posix_fd.h"

namespace ctl {

/**
 * Where an export goes: a new file, or the standard output.
 *
 * The file has its name only once it is whole: until then it lies beside under one of its own, which goes with this
 * object. While there is a file, SIGPIPE is ignored, since a reader of the messages that goes away spoils no export.
 */
class Export_File {
 public:
  /// @param path  "-": the standard output. @throws Failure (exit_usage): there is such a file, or none can be made.
  explicit Export_File(const std::string& path);
  ~Export_File();
  Export_File(const Export_File&) = delete;
  Export_File& operator=(const Export_File&) = delete;

  int fd() const;
  /// Brings all of it to the disk and gives it its name. @throws Failure (exit_job_failed): that failed.
  void finish();

 private:
  const std::string path_;
  std::string unfinished_;  // the file's name until it is whole
  Posix_Fd file_;
  struct sigaction previous_ {};
};

}  // namespace ctl
