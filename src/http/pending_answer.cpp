#include "http/pending_answer.h"

#include <utility>

int Pending_Answer::reply(unsigned status, std::string body) {
  const std::lock_guard guard(lock_);
  if (!arrived_) return -1;
  answered_ = true;
  status_ = status;
  body_ = std::move(body);
  // Under the lock: what arrived_ reaches is alive until end() has returned.
  std::exchange(arrived_, nullptr)();
  return 0;
}

bool Pending_Answer::has_arrived() const {
  const std::lock_guard guard(lock_);
  return answered_;
}

bool Pending_Answer::end(unsigned& status, std::string& body) {
  const std::lock_guard guard(lock_);
  arrived_ = nullptr;
  if (!answered_) return false;
  status = status_;
  body = std::move(body_);
  return true;
}
