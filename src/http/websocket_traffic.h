#pragma once

#include <boost/beast/core/rate_policy.hpp>
#include <chrono>
#include <cstddef>
#include <limits>

/**
 * Watches what a WebSocket's connection reads: when the last bytes came, and how many since the last message. So a
 * message in fragments without end shows even when the fragments are empty. A rate policy that never slows down.
 */
class WebSocket_Traffic {
 public:
  typedef std::chrono::steady_clock Clock;

  Clock::time_point last_read() const { return last_read_; }
  long long bytes() const { return bytes_; }
  /// A message is complete.
  void restart() { bytes_ = 0; }
  /// So many bytes were not of the message.
  void discount(std::size_t bytes) { bytes_ -= static_cast<long long>(bytes); }

 private:
  friend class boost::beast::rate_policy_access;

  std::size_t available_read_bytes() const noexcept { return std::numeric_limits<std::size_t>::max(); }
  std::size_t available_write_bytes() const noexcept { return std::numeric_limits<std::size_t>::max(); }
  void transfer_read_bytes(std::size_t bytes) {
    last_read_ = Clock::now();
    bytes_ += static_cast<long long>(bytes);
  }
  void transfer_write_bytes(std::size_t) const noexcept {}
  void on_timer() const noexcept {}

  Clock::time_point last_read_{};
  long long bytes_ = 0;
};
