#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <limits>
#include <utility>

/**
 * Watches what a WebSocket's peer sends: when the last bytes came, and how many since the last message, frame headers
 * included. So a message in fragments without end shows even when the fragments are empty.
 */
class Message_Meter {
 public:
  typedef std::chrono::steady_clock Clock;

  /// @a exceeded is called once, in the middle of a read, when more than @a bytes come for a message. Counts anew.
  void limit(size_t bytes, std::function<void()> exceeded) {
    limit_ = static_cast<long long>(bytes);
    exceeded_ = std::move(exceeded);
    restart();
  }
  /// A message is complete.
  void restart() { bytes_ = 0; }
  /// So many bytes were not of the message.
  void discount(size_t bytes) { bytes_ -= static_cast<long long>(bytes); }

  void received(size_t bytes) {
    last_read_ = Clock::now();
    bytes_ += static_cast<long long>(bytes);
    if (exceeded_ && bytes_ > limit_) std::exchange(exceeded_, nullptr)();
  }

  Clock::time_point last_read() const { return last_read_; }
  long long bytes() const { return bytes_; }

 private:
  Clock::time_point last_read_{};
  long long bytes_ = 0;
  long long limit_ = std::numeric_limits<long long>::max();
  std::function<void()> exceeded_;
};
