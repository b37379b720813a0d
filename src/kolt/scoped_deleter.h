#pragma once

#include <utility>

/**
 * Runs a clean-up action at every exit of a scope, exceptions included.
 *
 * @code
 *   auto umount = make_deleter([&] { k8s::umounts(dir); });
 * @endcode
 *
 * Moving transfers the duty. The action must not throw out of the destructor.
 */
template <typename F>
class [[nodiscard]] Scoped_Deleter {
 public:
  explicit Scoped_Deleter(F f) : del(std::move(f)), valid(true) {}
  Scoped_Deleter(Scoped_Deleter&& other) : del(std::move(other.del)), valid(std::exchange(other.valid, false)) {}
  Scoped_Deleter(const Scoped_Deleter&) = delete;
  Scoped_Deleter& operator=(const Scoped_Deleter&) = delete;
  ~Scoped_Deleter() { reset(); }

  /// Runs the action, unless it was run or given up before.
  void reset() {
    if (std::exchange(valid, false)) del();
  }
  /// Gives the action up.
  void release() { valid = false; }

  F del;
  /// Whether the action is still to be run.
  bool valid;
};

template <typename F>
Scoped_Deleter<F> make_deleter(F f) {
  return Scoped_Deleter<F>(std::move(f));
}
