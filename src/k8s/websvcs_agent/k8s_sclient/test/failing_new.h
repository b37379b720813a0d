#pragma once

#include <cstddef>
#include <functional>

/// While it lives, no-throw allocations of exactly @a size bytes fail, on all threads.
class Failing_New {
 public:
  explicit Failing_New(std::size_t size);
  ~Failing_New();
  Failing_New(const Failing_New&) = delete;
  Failing_New& operator=(const Failing_New&) = delete;

  /// How many allocations have failed.
  int count() const;

  /// The size of the largest no-throw allocation that @a code makes.
  static std::size_t largest_size(const std::function<void()>& code);
};
