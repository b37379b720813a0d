#include "ctl/interrupt.h"

#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "ctl/failure.h"

namespace ctl {

namespace {

volatile sig_atomic_t interrupt_count = 0;
// Changed only while the signals are blocked. Empty: no answer.
std::string first_answer;
std::string second_answer;

/// Of a signal handler.
void say(const std::string& text) {
  if (::write(STDERR_FILENO, text.data(), text.size()) < 0) return;  // nobody is left to be told
}

void count_interrupt(int) {
  const int error = errno;
  interrupt_count = interrupt_count + 1;
  if (!second_answer.empty()) {
    say(interrupt_count == 1 ? first_answer : second_answer);
    if (interrupt_count > 1) ::_exit(exit_interrupted);
  }
  errno = error;
}

sigset_t all_signals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGHUP);
  return signals;
}

void set_answers(std::string first, std::string second) {
  const sigset_t signals = all_signals();
  sigset_t before;
  ::pthread_sigmask(SIG_BLOCK, &signals, &before);
  first_answer = std::move(first);
  second_answer = std::move(second);
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

}  // namespace

Interrupt::Interrupt(Signals signals) {
  interrupt_count = 0;
  count_signal(SIGINT);
  count_signal(SIGTERM);
  struct sigaction hang_up;
  sigaction(SIGHUP, nullptr, &hang_up);
  if (signals == interrupts_and_hang_up && hang_up.sa_handler != SIG_IGN) count_signal(SIGHUP);
}

Interrupt::~Interrupt() {
  for (const auto& [signal, action] : previous_) sigaction(signal, &action, nullptr);
  set_answers("", "");
}

void Interrupt::count_signal(int signal) {
  struct sigaction action {};
  action.sa_handler = count_interrupt;
  action.sa_mask = all_signals();
  previous_.emplace_back(signal, action);
  sigaction(signal, &action, &previous_.back().second);
}

int Interrupt::count() const {
  return interrupt_count;
}

void Interrupt::sleep(std::chrono::milliseconds time) const {
  const timespec wait{time.count() / 1000, time.count() % 1000 * 1000000};
  nanosleep(&wait, nullptr);
}

void Interrupt::answer(std::string first, std::string second) {
  set_answers(std::move(first), std::move(second));
}

}  // namespace ctl
