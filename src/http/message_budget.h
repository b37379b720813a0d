#pragma once

#include <boost/beast/core/rate_policy.hpp>
#include <cstddef>
#include <functional>
#include <limits>
#include <utility>

namespace http_server {

/**
 * Counts what a peer sends for one WebSocket message, frame headers included: a message in fragments without end is
 * told by its bytes even when the fragments are empty. A rate policy that never slows down; it only counts.
 */
class Message_Budget {
 public:
  /// Counts from now on. @a exceeded is called once, in the middle of a read, when more than @a bytes come for a
  /// message.
  void limit(size_t bytes, std::function<void()> exceeded) {
    limit_ = left_ = bytes;
    exceeded_ = std::move(exceeded);
  }
  /// A message is complete.
  void refill() { left_ = limit_; }
  /// So many of the bytes were not of the message.
  void allow(size_t bytes) { left_ += bytes; }

 private:
  friend class boost::beast::rate_policy_access;

  size_t available_read_bytes() const noexcept { return std::numeric_limits<size_t>::max(); }
  size_t available_write_bytes() const noexcept { return std::numeric_limits<size_t>::max(); }
  void transfer_read_bytes(size_t n) {
    if (!exceeded_) return;
    if (n <= left_) {
      left_ -= n;
    } else {
      std::exchange(exceeded_, nullptr)();
    }
  }
  void transfer_write_bytes(size_t) const noexcept {}
  void on_timer() const noexcept {}

  size_t limit_ = 0;
  size_t left_ = 0;
  std::function<void()> exceeded_;
};

}  // namespace http_server
