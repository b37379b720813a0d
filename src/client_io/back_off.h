#pragma once

#include <chrono>
#include <cstddef>
#include <optional>

#include "kolt/exponential_backoff_iterator.h"
#include "kolt/export.h"

namespace client_io {

/**
 * The waits between the tries of one thing: 1, 2, 4, ... seconds of which up to a half is taken off, the last one cut
 * to what is left. Their time starts with the first failure and goes by kolt::clock(), whatever the time of day is set
 * to. Threads: belongs to one.
 */
class TESSARIN_API Back_Off {
 public:
  /// @param max_seconds   for all tries together; 0: there is only one.
  /// @param longest_wait  seconds.
  Back_Off(size_t max_seconds, unsigned longest_wait);

  /// How long to wait now. Nothing where the time is up, or would be before the wait that the storage asks for ends.
  /// @param told  by the storage; 0 counts as none.
  std::optional<std::chrono::milliseconds> next(std::optional<std::chrono::milliseconds> told = {});

 private:
  const std::chrono::seconds max_;
  Exponential_Backoff_Iterator delays_;
  std::optional<std::chrono::nanoseconds> start_;  // nothing: no failure yet
};

}  // namespace client_io
