#pragma once

#include <chrono>
#include <ctime>
#include <optional>

#include "http/http_session.h"

/// The span told by a Retry-After header, a number of seconds or a date; nothing if it is neither or null.
TESSARIN_API std::optional<std::chrono::milliseconds> http_retry_after(const char* text);

/**
 * Decides whether a request is sent again, by the table in json_http_session.h. Knows nothing of connections. One
 * object per request; its time starts with it and goes by kolt::clock().
 */
class TESSARIN_API HTTP_Retry {
 public:
  /// @param retries  how often at most.   @param timeout  within how many seconds.
  HTTP_Retry(int method, int retries, int timeout);

  /// What became of the last try.
  /// @return how long to wait before the next; nothing if there is to be none.
  std::optional<std::chrono::milliseconds> next(HTTP_Outcome outcome, const HTTP_Response& response);

 private:
  std::optional<std::chrono::milliseconds> wait(HTTP_Outcome outcome, const HTTP_Response& response);
  std::optional<std::chrono::milliseconds> wait_for_server(const HTTP_Response& response) const;
  std::chrono::milliseconds back_off();

  const bool repeatable_;
  const int retries_;
  const int timeout_;
  const time_t start_;
  int tries_ = 0;
  std::chrono::milliseconds back_off_{250};
};
