#include "http/connection_table.h"

#include <algorithm>
#include <utility>
#include <vector>

bool Connection_Table::full_for(const std::string& peer) const {
  const auto count = per_peer_.find(peer);
  return count != per_peer_.end() && count->second >= limit_per_peer_;
}

// When the peer itself has used up its share, it is one of its own connections that gives way.
Connection_Table::Entries::iterator Connection_Table::longest_waiting(const std::string& peer) {
  const bool own = full_for(peer);
  for (const Id id : waiting_) {
    const auto entry = entries_.find(id);
    if (!own || entry->second.peer == peer) return entry;
  }
  return entries_.end();
}

std::function<void()> Connection_Table::take_out(Entries::iterator entry) {
  if (entry->second.waiting) waiting_.erase(entry->second.place);
  const auto count = per_peer_.find(entry->second.peer);
  if (--count->second == 0) per_peer_.erase(count);
  auto close = std::move(entry->second.close);
  entries_.erase(entry);
  return close;
}

Connection_Table::Id Connection_Table::admit(const std::string& peer, std::function<void()> close) {
  std::function<void()> close_other;
  Id id = 0;
  {
    const std::lock_guard guard(lock_);
    if (entries_.size() >= limit_ || full_for(peer)) {
      const auto other = longest_waiting(peer);
      if (other == entries_.end()) return 0;
      close_other = take_out(other);
    }
    id = ++last_id_;
    waiting_.push_back(id);
    entries_.emplace(id, Entry{peer, std::move(close), true, std::prev(waiting_.end())});
    ++per_peer_[peer];
  }
  if (close_other) close_other();
  return id;
}

void Connection_Table::waiting(Id id) {
  const std::lock_guard guard(lock_);
  const auto entry = entries_.find(id);
  if (entry == entries_.end() || entry->second.waiting) return;
  entry->second.waiting = true;
  entry->second.place = waiting_.insert(waiting_.end(), id);
}

void Connection_Table::busy(Id id) {
  const std::lock_guard guard(lock_);
  const auto entry = entries_.find(id);
  if (entry == entries_.end() || !entry->second.waiting) return;
  entry->second.waiting = false;
  waiting_.erase(entry->second.place);
}

void Connection_Table::leave(Id id) {
  std::function<void()> unused;  // destroyed after the lock is given back
  const std::lock_guard guard(lock_);
  const auto entry = entries_.find(id);
  if (entry != entries_.end()) unused = take_out(entry);
}

void Connection_Table::close_all() {
  std::vector<std::function<void()>> closers;
  {
    const std::lock_guard guard(lock_);
    while (!entries_.empty()) closers.push_back(take_out(entries_.begin()));
  }
  for (const auto& close : closers) close();
}

size_t Connection_Table::size() const {
  const std::lock_guard guard(lock_);
  return entries_.size();
}
