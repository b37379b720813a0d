#include "client_io/s3_failure.h"

#include <algorithm>
#include <cerrno>
#include <limits>

#include "kolt/clock.h"

namespace client_io {

namespace {

constexpr unsigned longest_wait = 32;

// The codes that tell more than the status they come with.
struct Code_Verdict {
  std::string_view code;
  S3_Verdict verdict;
};
constexpr Code_Verdict code_verdicts[] = {
    {"RequestTimeout", {EIO, true}},  // the body came too slowly; a 400
    {"IncompleteBody", {EIO, true}},
    {"BadDigest", {EIO, true}},
    {"XAmzContentSHA256Mismatch", {EIO, true}},
    {"SlowDown", {EIO, true}},
    {"InternalError", {EIO, true}},
    {"ServiceUnavailable", {EIO, true}},
    {"ExpiredToken", {EACCES, false}},
    {"InvalidToken", {EACCES, false}},
    {"QuotaExceeded", {EDQUOT, false}},
    {"KeyTooLongError", {ENAMETOOLONG, false}},
    {"EntityTooLarge", {EFBIG, false}},
};

}  // namespace

S3_Verdict s3_verdict(int status, std::string_view code) {
  for (const Code_Verdict& known : code_verdicts)
    if (known.code == code) return known.verdict;
  switch (status) {
    case 408:
    case 429:
    case 500:
    case 502:
    case 503:
    case 504:
      return {EIO, true};
    case 400:
    case 416:
      return {EINVAL, false};
    case 401:
    case 403:
      return {EACCES, false};
    case 404:
      return {ENOENT, false};
    case 405:
    case 501:
      return {ENOSYS, false};
    case 409:
    case 412:
      return {EEXIST, false};
    case 413:
      return {EFBIG, false};
    case 507:
      return {ENOSPC, false};
    default:
      break;
  }
  if (status / 100 == 2) return {};
  return {status / 100 == 3 ? EREMOTE : EIO, false};
}

S3_Back_Off::S3_Back_Off(size_t max_seconds)
    : max_seconds_(std::min<size_t>(max_seconds, std::numeric_limits<int>::max())),
      delays_(1, std::numeric_limits<unsigned>::max(), longest_wait, true) {}

std::optional<std::chrono::milliseconds> S3_Back_Off::next(std::optional<std::chrono::milliseconds> told) {
  const time_t now = kolt::clock().now();
  if (start_ == 0) start_ = now;
  // "At once" is no answer of a service that is in trouble.
  const bool usable = told && told->count() > 0;
  const std::chrono::milliseconds span = usable ? *told : std::chrono::seconds(*delays_++);
  if (std::chrono::seconds(now - start_) + span > std::chrono::seconds(max_seconds_)) return {};
  return span;
}

}  // namespace client_io
