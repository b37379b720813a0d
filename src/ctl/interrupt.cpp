#include "ctl/interrupt.h"

#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "ctl/failure.h"

namespace ctl {

namespace {

volatile sig_atomic_t interrupts = 0;
// Changed only while the signals are blocked. Empty: no answer.
std::string first_answer;
std::string second_answer;

/// Of a signal handler.
void say(const std::string& text) {
  if (::write(STDERR_FILENO, text.data(), text.size()) < 0) return;  // nobody is left to be told
}

void count_interrupt(int) {
  const int error = errno;
  interrupts = interrupts + 1;
  if (!second_answer.empty()) {
    say(interrupts == 1 ? first_answer : second_answer);
    if (interrupts > 1) ::_exit(exit_interrupted);
  }
  errno = error;
}

sigset_t both_signals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  return signals;
}

void set_answers(std::string first, std::string second) {
  const sigset_t signals = both_signals();
  sigset_t before;
  ::pthread_sigmask(SIG_BLOCK, &signals, &before);
  first_answer = std::move(first);
  second_answer = std::move(second);
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

}  // namespace

Interrupt::Interrupt() {
  interrupts = 0;
  struct sigaction action {};
  action.sa_handler = count_interrupt;
  action.sa_mask = both_signals();
  sigaction(SIGINT, &action, &previous_int_);
  sigaction(SIGTERM, &action, &previous_term_);
}

Interrupt::~Interrupt() {
  sigaction(SIGINT, &previous_int_, nullptr);
  sigaction(SIGTERM, &previous_term_, nullptr);
  set_answers("", "");
}

int Interrupt::count() const {
  return interrupts;
}

void Interrupt::sleep(std::chrono::milliseconds time) const {
  const timespec wait{time.count() / 1000, time.count() % 1000 * 1000000};
  nanosleep(&wait, nullptr);
}

void Interrupt::answer(std::string first, std::string second) {
  set_answers(std::move(first), std::move(second));
}

}  // namespace ctl
