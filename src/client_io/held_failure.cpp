#include "client_io/held_failure.h"

#include <cerrno>

#include "ace/Log_Msg.h"

namespace client_io {

namespace {

thread_local Held_Failure* innermost = nullptr;

}  // namespace

Held_Failure::Held_Failure(bool hold) : hold_(hold), around_(innermost) {
  innermost = this;
}

Held_Failure::~Held_Failure() {
  innermost = around_;
}

void Held_Failure::tell() const {
  const int error = errno;
  if (!line_.empty()) ACE_ERROR((LM_ERROR, ACE_TEXT("%C\n"), line_.c_str()));
  errno = error;
}

bool Held_Failure::keep(const std::string& line) {
  if (innermost == nullptr || !innermost->hold_) return false;
  innermost->line_ = line;
  return true;
}

}  // namespace client_io
