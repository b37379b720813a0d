#pragma once

#include <cstddef>
#include <iterator>

#include "kolt/export.h"

/**
 * Delays in seconds between the tries of something: the first is the slot time, each further one twice the one before,
 * none above the cap. With jitter a delay is a random number between half of that and that, at least 1 where the cap
 * allows, so that many waiters do not poll in step.
 *
 * An iterator equals the end iterator once its delays are spent; to advance it then changes nothing.
 * Threads: an object belongs to one.
 */
class TESSARIN_API Exponential_Backoff_Iterator {
 public:
  typedef std::forward_iterator_tag iterator_category;
  typedef unsigned int value_type;
  typedef std::ptrdiff_t difference_type;
  typedef const value_type* pointer;
  typedef const value_type& reference;

  /// The end.
  Exponential_Backoff_Iterator() = default;
  /// @param max_retries  how many delays there are.
  Exponential_Backoff_Iterator(unsigned int slot_time, unsigned int max_retries, unsigned int capped, bool jitter);

  /// As if made anew.
  void init(unsigned int slot_time, unsigned int max_retries, unsigned int capped, bool jitter);
  /// Back to the first delay.
  void reset();

  /// The delay for the coming sleep.
  reference operator*() const { return value_; }
  pointer operator->() const { return &value_; }
  Exponential_Backoff_Iterator& operator++();
  Exponential_Backoff_Iterator operator++(int);

  /// The sum of the delays that have been passed by ++; the current one is not among them.
  value_type cumulation() const { return cumulation_; }
  bool done() const { return i_ >= max_retries_; }

  bool operator==(const Exponential_Backoff_Iterator& other) const { return equal(other); }
  bool operator!=(const Exponential_Backoff_Iterator& other) const { return !equal(other); }

 private:
  void next();
  bool equal(const Exponential_Backoff_Iterator& other) const;
  value_type delay() const;

  unsigned int slot_time_ = 0;
  unsigned int max_retries_ = 0;
  unsigned int capped_ = 0;
  bool jitter_ = false;
  value_type value_ = 0;
  value_type cumulation_ = 0;
  value_type slot_time_exp_ = 0;  ///< before cap and jitter
  unsigned int i_ = 0;
};
