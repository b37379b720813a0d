#pragma once

#include <chrono>
#include <mutex>
#include <string>

namespace http_server {

/// Tells who was refused, in so few lines that those who try cannot fill the log. Threads: any.
class Refusal_Log {
 public:
  static constexpr int lines_per_minute = 10;

  /// One line at LM_WARNING, or a count in the first line that is written later.
  void tell(const std::string& peer, const std::string& why);

 private:
  std::mutex lock_;
  std::chrono::steady_clock::time_point minute_{};  // guarded by lock_, as all below
  int lines_ = 0;
  unsigned long untold_ = 0;
};

}  // namespace http_server
