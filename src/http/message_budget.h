#pragma once

#include <cstddef>
#include <functional>
#include <utility>

namespace http_server {

/**
 * Counts what a peer sends for one WebSocket message, frame headers included: a message in fragments without end is
 * told by its bytes even when the fragments are empty.
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

  void received(size_t bytes) {
    if (!exceeded_) return;
    if (bytes <= left_) {
      left_ -= bytes;
    } else {
      std::exchange(exceeded_, nullptr)();
    }
  }

 private:
  size_t limit_ = 0;
  size_t left_ = 0;
  std::function<void()> exceeded_;
};

}  // namespace http_server
