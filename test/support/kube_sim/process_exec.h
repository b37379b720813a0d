#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "kolt/posix_fd.h"
#include "support/kube_sim/api.h"

namespace kube_sim {

/**
 * Really runs a command, as a container would: standard output goes to channel 1, error output to channel 2, in frames
 * of at most 32768 bytes, then comes the status. What the client sends on channel 0 is its standard input.
 *
 * The command has a process group of its own, which is killed when the client goes away.
 */
class Process_Exec : public Exec {
 public:
  /// @param directory  where the command runs; made when it is missing.
  /// @param with_input whether the command has standard input; otherwise it reads nothing.
  Process_Exec(std::vector<std::string> command, std::string directory, bool with_input);
  ~Process_Exec() override;
  void run(Exec_Stream& stream) override;

 private:
  struct Output {
    Posix_Fd fd;
    unsigned char channel;
  };

  /// 0 or an errno.
  int start();
  /// Sends what is there; false when the client has gone.
  bool pass_on(Exec_Stream& stream, Output& output);
  void take_input(Exec_Stream& stream);
  void feed();
  /// The exit code, 128 and the signal for a killed one.
  int wait();

  const std::vector<std::string> command_;
  const std::string directory_;
  const bool with_input_;
  pid_t process_ = -1;
  Posix_Fd input_;
  std::string input_waiting_;
  bool input_ends_ = false;  ///< the client has closed it; what waits is still written
  Output outputs_[2] = {{Posix_Fd(), 1}, {Posix_Fd(), 2}};
};

}  // namespace kube_sim
