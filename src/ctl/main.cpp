#include <exception>
#include <iostream>

#include "ace/Log_Msg.h"
#include "ctl/commands.h"
#include "ctl/failure.h"
#include "ctl/options.h"

namespace {

constexpr u_long all_priorities = LM_INFO | LM_NOTICE | LM_WARNING | LM_ERROR | LM_CRITICAL | LM_ALERT | LM_EMERGENCY;

}  // namespace

int main(int argc, char** argv) {
  ACE_LOG_MSG->priority_mask(LM_ERROR | LM_CRITICAL | LM_ALERT | LM_EMERGENCY, ACE_Log_Msg::PROCESS);
  try {
    ctl::Options options;
    int code = 0;
    if (!ctl::parse_options(argc, argv, options, code, std::cout, std::cerr)) return code;
    if (options.cluster.asked)
      ACE_LOG_MSG->priority_mask(options.cluster.verbose ? all_priorities : 0, ACE_Log_Msg::PROCESS);
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
