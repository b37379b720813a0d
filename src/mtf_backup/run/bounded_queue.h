#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <utility>

namespace MTF_BACKUP {

/// Hands work from one stage of a run to the next and holds the faster one back. Threads: any.
template <typename T>
class Bounded_Queue_T {
 public:
  explicit Bounded_Queue_T(size_t limit) : limit_(limit) {}

  /// Waits while the queue is full. False, and @a item is lost, after abort().
  [[nodiscard]] bool push(T item) {
    std::unique_lock<std::mutex> guard(lock_);
    room_came_.wait(guard, [this] { return aborted_ || items_.size() < limit_; });
    if (aborted_) return false;
    items_.push_back(std::move(item));
    item_came_.notify_one();
    return true;
  }

  /// Waits for an item. False at the end: close() was called and all items are gone, or abort().
  [[nodiscard]] bool pop(T& item) {
    std::unique_lock<std::mutex> guard(lock_);
    item_came_.wait(guard, [this] { return aborted_ || closed_ || !items_.empty(); });
    if (aborted_ || items_.empty()) return false;
    item = std::move(items_.front());
    items_.pop_front();
    room_came_.notify_one();
    return true;
  }

  /// Nothing will be pushed any more.
  void close() { end(closed_); }
  /// Ends all waits at once and drops what is left.
  void abort() { end(aborted_); }

 private:
  void end(bool& how) {
    std::lock_guard<std::mutex> guard(lock_);
    how = true;
    item_came_.notify_all();
    room_came_.notify_all();
  }

  const size_t limit_;
  std::mutex lock_;
  std::condition_variable item_came_;
  std::condition_variable room_came_;
  std::deque<T> items_;   // guarded by lock_
  bool closed_ = false;   // guarded by lock_
  bool aborted_ = false;  // guarded by lock_
};

}  // namespace MTF_BACKUP
