#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "http/access_check.h"

/// Lets in "good", tells 403 to "stranger", and leaves all others to the test.
class Scripted_Access : public Access_Check {
 public:
  unsigned check(const std::string& token, std::shared_ptr<HTTP_Exchange> verdict) override {
    const std::lock_guard guard(lock_);
    tokens_.push_back(token);
    if (token == "good") return 200;
    if (token == "stranger") return 403;
    verdict_ = std::move(verdict);
    asked_.notify_all();
    return 0;
  }

  /// That of the last token which the test has to decide on, once it is there.
  std::shared_ptr<HTTP_Exchange> verdict() {
    std::unique_lock guard(lock_);
    asked_.wait(guard, [this] { return verdict_ != nullptr; });
    return std::move(verdict_);
  }
  std::vector<std::string> tokens() const {
    const std::lock_guard guard(lock_);
    return tokens_;
  }

 private:
  mutable std::mutex lock_;
  std::condition_variable asked_;
  std::vector<std::string> tokens_;
  std::shared_ptr<HTTP_Exchange> verdict_;
};
