#pragma once

#include <chrono>
#include <optional>
#include <string_view>

#include "kolt/exponential_backoff_iterator.h"
#include "kolt/export.h"

namespace client_io {

/// What an answer's status and the code in its body mean.
struct S3_Verdict {
  int error = 0;       ///< 0 for a good answer, else an errno
  bool again = false;  ///< whether the same request may do better later
};

TESSARIN_API S3_Verdict s3_verdict(int status, std::string_view code);

/// The waits between the tries of one request. Its time starts with the first failure and goes by kolt::clock().
class TESSARIN_API S3_Back_Off {
 public:
  explicit S3_Back_Off(size_t max_seconds);

  /// How long to wait now; nothing where that would take too long in all.
  /// @param told  by the server.
  std::optional<std::chrono::milliseconds> next(std::optional<std::chrono::milliseconds> told);

 private:
  const size_t max_seconds_;
  Exponential_Backoff_Iterator delays_;
  time_t start_ = 0;  // 0: no failure yet
};

}  // namespace client_io
