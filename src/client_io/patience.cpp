#include "client_io/patience.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstring>
#include <string>

#include "ace/Log_Msg.h"
#include "client_io/back_off.h"
#include "client_io/held_failure.h"
#include "kolt/clock.h"
#include "kolt/metrics.h"

namespace client_io {

namespace {

using std::chrono::milliseconds;

constexpr unsigned int longest_wait = 60;  // seconds
constexpr milliseconds slice(250);         // between two looks for a cancel

const kolt::Counter patience_retries("tessarin_storage_retries_total",
                                     "Operations of the storage that were tried again after a failure.");

}  // namespace

bool may_pass(int error, Patience::Kind kind) {
  switch (error) {
    case EAGAIN:
    case ETIMEDOUT:
    case ESTALE:
    case ECONNRESET:
    case ECONNREFUSED:
    case ECONNABORTED:
    case ENETUNREACH:
    case ENETDOWN:
    case EHOSTUNREACH:
    case EHOSTDOWN:
    case ENOTCONN:
    case EREMOTEIO:
      return true;
    case EIO:
      return kind == Patience::READING;
    default:
      return false;
  }
}

Patience::Patience(size_t seconds) : seconds_(static_cast<time_t>(std::min<size_t>(seconds, INT_MAX))) {}

bool Patience::run(Kind kind, const std::function<bool()>& attempt) {
  Held_Failure failure;
  Back_Off back_off(static_cast<size_t>(seconds_), longest_wait);
  const bool cleaning_up = canceled_;  // what fails from now on has a reason of its own
  while (!attempt()) {
    const int error = errno;
    if (may_pass(error, kind) && seconds_ > 0 && !cleaning_up && !in_vain_) {
      if (!canceled_) {
        tell_away(failure.line(), error);
        patience_retries.add();
        if (wait(back_off.next())) continue;
      }
      if (canceled_) {
        errno = ECANCELED;
        return false;
      }
    }
    errno = error;
    if (error != ECANCELED) failure.tell();
    return false;
  }
  tell_back();
  return true;
}

// False: the time is up, or cancel() was called.
bool Patience::wait(std::optional<milliseconds> span) {
  if (!span) in_vain_ = true;
  for (milliseconds waited(0); span && waited < *span && !canceled_; waited += slice) kolt::clock().sleep(slice);
  return span && !canceled_;
}

void Patience::tell_away(const std::string& line, int error) {
  time_t none = 0;
  const std::string what = line.empty() ? std::string("The storage failed: ") + std::strerror(error) + "." : line;
  if (away_since_.compare_exchange_strong(none, kolt::clock().now()))
    ACE_ERROR((LM_WARNING, ACE_TEXT("%C It is tried again for up to %q seconds.\n"), what.c_str(),
               static_cast<ACE_INT64>(seconds_)));
}

void Patience::tell_back() {
  if (away_since_ == 0) return;
  const time_t since = away_since_.exchange(0);
  if (since != 0)
    ACE_ERROR((LM_WARNING, ACE_TEXT("The storage works again after %q seconds.\n"),
               static_cast<ACE_INT64>(kolt::clock().now() - since)));
}

}  // namespace client_io
