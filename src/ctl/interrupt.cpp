#include "ctl/interrupt.h"

#include <time.h>

namespace ctl {

namespace {

volatile sig_atomic_t interrupts = 0;

void count_interrupt(int) {
  interrupts = interrupts + 1;
}

}  // namespace

Interrupt::Interrupt() {
  interrupts = 0;
  struct sigaction action {};
  action.sa_handler = count_interrupt;
  sigemptyset(&action.sa_mask);
  sigaction(SIGINT, &action, &previous_int_);
  sigaction(SIGTERM, &action, &previous_term_);
}

Interrupt::~Interrupt() {
  sigaction(SIGINT, &previous_int_, nullptr);
  sigaction(SIGTERM, &previous_term_, nullptr);
}

int Interrupt::count() const {
  return interrupts;
}

void Interrupt::sleep(std::chrono::milliseconds time) const {
  const timespec wait{time.count() / 1000, time.count() % 1000 * 1000000};
  nanosleep(&wait, nullptr);
}

}  // namespace ctl
