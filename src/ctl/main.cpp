#include <fcntl.h>
#include <unistd.h>

#include <exception>
#include <iostream>

#include "ace/Log_Msg.h"
#include "ctl/commands.h"
#include "ctl/failure.h"
#include "ctl/options.h"

namespace {

constexpr u_long errors = LM_ERROR | LM_CRITICAL | LM_ALERT | LM_EMERGENCY;
constexpr u_long errors_and_warnings = errors | LM_WARNING;
constexpr u_long all_priorities = errors_and_warnings | LM_INFO | LM_NOTICE;

u_long priorities(const ctl::Options& options) {
  if (options.cluster.asked) return options.cluster.verbose ? all_priorities : 0;
  // Nobody else tells what the data mover leaves out, or that the storage is waited for.
  return options.sets.asked ? errors_and_warnings : errors;
}

/// Where the caller has closed the standard input, output or error, a file that is opened would become it.
void fill_standard_descriptors() {
  int fd;
  do {
    fd = ::open("/dev/null", O_RDONLY);
  } while (fd >= STDIN_FILENO && fd <= STDERR_FILENO);
  ::close(fd);
}

}  // namespace

int main(int argc, char** argv) {
  fill_standard_descriptors();
  ACE_LOG_MSG->priority_mask(errors, ACE_Log_Msg::PROCESS);
  try {
    ctl::Options options;
    int code = 0;
    if (!ctl::parse_options(argc, argv, options, code, std::cout, std::cerr)) return code;
    ACE_LOG_MSG->priority_mask(priorities(options), ACE_Log_Msg::PROCESS);
    code = ctl::run_command(options, std::cout, std::cerr);
    return std::cout.flush() ? code : ctl::exit_usage;
  } catch (const ctl::Failure& failure) {
    std::cerr << "tessarinctl: " << failure.what() << std::endl;
    return failure.code();
  } catch (const std::exception& e) {
    std::cerr << "tessarinctl: " << e.what() << std::endl;
    return ctl::exit_usage;
  }
}
