#include "client_io/s3_failure.h"

#include <cerrno>

namespace client_io {

namespace {

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
    {"ConditionalRequestConflict", {EIO, true}},  // a 409: another request for the name is under way
    {"OperationAborted", {EIO, true}},            // a 409: the same
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
    case 423:
    case 425:
    case 429:
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
    case 505:
      return {EIO, false};
    case 507:
      return {ENOSPC, false};
    default:
      break;
  }
  switch (status / 100) {
    case 2:
      return {};
    case 3:
      return {EREMOTE, false};
    default:
      return {EIO, status / 100 == 5};
  }
}

}  // namespace client_io
