#pragma once

#include <ctime>
#include <list>
#include <map>
#include <optional>

#include "kolt/clock.h"
#include "websvcs/token_list.h"

/// Verdicts on tokens for a while, the newest of them; not more than so many. Threads: one at a time.
class Verdict_Cache {
 public:
  Verdict_Cache(size_t limit, int seconds) : limit_(limit), seconds_(seconds) {}

  void put(const Token_Digest& token, unsigned verdict) {
    forget(token);
    if (verdicts_.size() >= limit_) forget(Token_Digest(order_.front()));
    order_.push_back(token);
    verdicts_[token] = {verdict, kolt::clock().now() + seconds_, std::prev(order_.end())};
  }

  std::optional<unsigned> get(const Token_Digest& token) {
    const auto found = verdicts_.find(token);
    if (found == verdicts_.end()) return {};
    const time_t now = kolt::clock().now();
    // A clock that was set back must not keep a verdict for longer.
    if (now < found->second.end && now >= found->second.end - seconds_) return found->second.verdict;
    forget(token);
    return {};
  }

  size_t size() const { return verdicts_.size(); }

 private:
  struct Entry {
    unsigned verdict;
    time_t end;
    std::list<Token_Digest>::iterator place;
  };

  void forget(const Token_Digest& token) {
    const auto found = verdicts_.find(token);
    if (found == verdicts_.end()) return;
    order_.erase(found->second.place);
    verdicts_.erase(found);
  }

  const size_t limit_;
  const int seconds_;
  std::map<Token_Digest, Entry> verdicts_;
  std::list<Token_Digest> order_;  // oldest first
};
