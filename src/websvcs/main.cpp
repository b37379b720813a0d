#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdlib>

#include "ace/Log_Msg.h"
#include "websvcs/agent.h"
#include "websvcs/agent_options.h"
#include "websvcs/log_sink.h"

namespace {

// Memory holds keys of pools: neither a core file nor another process of the user may see it.
bool forbid_core_dumps() {
  const rlimit none{0, 0};
  return ::setrlimit(RLIMIT_CORE, &none) == 0 && ::prctl(PR_SET_DUMPABLE, 0) == 0;
}

// Before the first thread, which inherits the mask.
void block_signals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) sigaddset(&signals, signal);
  ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  ::signal(SIGPIPE, SIG_IGN);
}

}  // namespace

int main(int argc, char* argv[]) {
  Agent_Options options;
  int exit_code = EXIT_FAILURE;
  if (!options.parse(argc, argv, exit_code)) return exit_code;

  Log_Sink sink(STDERR_FILENO, options.json_log ? json_log_line : text_log_line);
  sink.install();
  if (!forbid_core_dumps() || ::chdir("/") == -1) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to set up the process: %m\n")), EXIT_FAILURE);
  }
  block_signals();

  Agent agent(options);
  const bool opened = agent.open() == 0;
  if (opened) agent.run();
  agent.close();
  return opened ? EXIT_SUCCESS : EXIT_FAILURE;
}
