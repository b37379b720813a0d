#include "http/http_retry.h"

#include <curl/curl.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "kolt/clock.h"
#include "kolt/natoi.h"

using std::chrono::milliseconds;
using std::chrono::seconds;

std::optional<milliseconds> http_retry_after(const char* text) {
  if (!text || *text == '\0') return {};
  if (text[std::strspn(text, "0123456789")] == '\0') return seconds(natoi<int>(text));
  const time_t date = ::curl_getdate(text, nullptr);
  if (date == -1) return {};
  return seconds(std::max<time_t>(date - kolt::clock().now(), 0));
}

HTTP_Retry::HTTP_Retry(int method, int retries, int timeout)
    : repeatable_(method == HTTP_METHOD_GET || method == HTTP_METHOD_DELETE),
      retries_(retries),
      timeout_(timeout),
      start_(kolt::clock().now()) {}

std::optional<milliseconds> HTTP_Retry::next(HTTP_Outcome outcome, const HTTP_Response& response) {
  if (tries_ >= retries_) return {};
  const std::optional<milliseconds> span = wait(outcome, response);
  const seconds left = seconds(start_ + timeout_ - kolt::clock().now());
  if (!span || *span > left) return {};
  ++tries_;
  return span;
}

std::optional<milliseconds> HTTP_Retry::wait(HTTP_Outcome outcome, const HTTP_Response& response) {
  switch (outcome) {
    case HTTP_OUTCOME_ANSWERED:
      return wait_for_server(response);
    case HTTP_OUTCOME_NOT_SENT:
      return back_off();
    case HTTP_OUTCOME_BROKEN:
      if (repeatable_) return back_off();
      return {};
    case HTTP_OUTCOME_FAILED:
      break;
  }
  return {};
}

std::optional<milliseconds> HTTP_Retry::wait_for_server(const HTTP_Response& response) const {
  const std::optional<milliseconds> told = http_retry_after(response.headers().get(HTTP_HEAD_RETRY_AFTER, true));
  switch (response.status()) {
    case 429:
      return told.value_or(seconds(1));
    case 500:
    case 502:
    case 503:
    case 504:
      if (repeatable_) return told;
      return {};
    default:
      return {};
  }
}

milliseconds HTTP_Retry::back_off() {
  const milliseconds full = back_off_;
  back_off_ *= 2;
  return full - milliseconds(::arc4random_uniform(static_cast<unsigned>(full.count() / 2) + 1));
}
