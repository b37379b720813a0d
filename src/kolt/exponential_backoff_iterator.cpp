#include "kolt/exponential_backoff_iterator.h"

#include <algorithm>
#include <random>

namespace {

// Seeded from the system: processes that start at once must not draw the same numbers.
unsigned int random_between(unsigned int low, unsigned int high) {
  thread_local std::minstd_rand generator(std::random_device{}());
  return std::uniform_int_distribution<unsigned int>(low, high)(generator);
}

}  // namespace

Exponential_Backoff_Iterator::Exponential_Backoff_Iterator(unsigned int slot_time, unsigned int max_retries,
                                                           unsigned int capped, bool jitter) {
  init(slot_time, max_retries, capped, jitter);
}

void Exponential_Backoff_Iterator::init(unsigned int slot_time, unsigned int max_retries, unsigned int capped,
                                        bool jitter) {
  slot_time_ = slot_time;
  max_retries_ = max_retries;
  capped_ = capped;
  jitter_ = jitter;
  reset();
}

void Exponential_Backoff_Iterator::reset() {
  cumulation_ = 0;
  slot_time_exp_ = slot_time_;
  i_ = 0;
  value_ = delay();
}

Exponential_Backoff_Iterator& Exponential_Backoff_Iterator::operator++() {
  next();
  return *this;
}

Exponential_Backoff_Iterator Exponential_Backoff_Iterator::operator++(int) {
  Exponential_Backoff_Iterator before = *this;
  next();
  return before;
}

void Exponential_Backoff_Iterator::next() {
  if (done()) return;
  cumulation_ += value_;
  ++i_;
  // Beyond the cap it need not grow, and so never overflows.
  if (slot_time_exp_ < capped_) slot_time_exp_ = slot_time_exp_ > capped_ / 2 ? capped_ : slot_time_exp_ * 2;
  value_ = delay();
}

bool Exponential_Backoff_Iterator::equal(const Exponential_Backoff_Iterator& other) const {
  if (done() || other.done()) return done() == other.done();
  return i_ == other.i_ && value_ == other.value_ && cumulation_ == other.cumulation_ &&
         slot_time_exp_ == other.slot_time_exp_ && max_retries_ == other.max_retries_;
}

Exponential_Backoff_Iterator::value_type Exponential_Backoff_Iterator::delay() const {
  const value_type bound = std::min(slot_time_exp_, capped_);
  return jitter_ ? random_between(bound - bound / 2, bound) : bound;
}
