#pragma once

#include <atomic>
#include <chrono>
#include <string>
#include <string_view>

#include "client_io/s3_md5.h"
#include "client_io/s3_settings.h"
#include "client_io/s3_transport.h"
#include "client_io/s3_xml.h"

namespace client_io {

/// One operation on the bucket or on an object of it. What it points to outlives the operation.
struct S3_Request {
  const char* method = "GET";
  std::string name;  ///< of the object; empty: the bucket
  S3_Query query{};
  S3_Headers headers{};
  std::string_view body{};
  const S3_Md5* md5 = nullptr;   ///< of the body; the ETag of the answer has to fit
  const char* answer = nullptr;  ///< the root element that a 2xx answer has; null: any or none
  char* to = nullptr;            ///< takes the body of a 2xx answer, which has exactly to_size bytes
  size_t to_size = 0;
  /// True breaks the operation off, as the session's cancel() does. Null: it cleans up. That goes on after a cancel,
  /// with three tries of three seconds and no waits between them, until the service was silent to one: then all fail.
  const std::atomic<bool>* stop = nullptr;
  size_t max_seconds_retry = SIZE_MAX;  ///< and never longer than the settings say
};

struct S3_Result {
  int status = 0;      ///< of the last answer; 0 if there was none
  std::string code;    ///< the service's word for a failure, such as "NoSuchKey"; empty if it gave none
  std::string reason;  ///< of a failure, for the log: holds nothing of the request's headers
  HTTP_Headers headers;
  S3_Element xml;  ///< the body, unless it went to S3_Request::to

  /// The value of a header; empty if absent.
  std::string header(const char* name) const;
};

/**
 * Sends signed requests and repeats what may be repeated: where no whole answer came, or one that s3_verdict() takes
 * for passing, or the body got lost or changed on the way. So what was asked for may have been done by an earlier try,
 * also by one of libcurl's own, which is not told here. In between it waits as Retry-After tells, else 1, 2, 4, ... 32
 * seconds of which up to a half is taken off, all of it by kolt::clock(), until max_seconds_retry after the first
 * failure. Each repetition is logged at LM_INFO; nothing else is.
 *
 * Threads: any.
 */
class S3_Session {
 public:
  explicit S3_Session(const S3_Settings& settings);

  /**
   * @retval true   a 2xx answer came.
   * @retval false  errno tells why: ECANCELED, also for what cleans up where the service has been silent since the
   * cancel, to this session or to another one; ETIMEDOUT where it is silent now; EACCES (401, 403, a certificate),
   * ENOENT (404), EEXIST (409, 412), ENOSPC or EDQUOT, EINVAL (400), EREMOTE (a redirect), ENOSYS (405, 501), else what
   * the network said or EIO.
   */
  [[nodiscard]] bool send(const S3_Request& request, S3_Result& result);

  /// Ends all requests that have a stop flag, now and later, and all waits. One-way.
  void cancel();
  bool canceled() const { return canceled_; }

  const S3_Settings& settings() const { return settings_; }

 private:
  int exchange(const S3_Request& request, S3_Result& result, bool& again);
  int judge(const S3_Request& request, const S3_Answer& answer, S3_Result& result, bool& again);
  bool is_stopped(const S3_Request& request) const;
  bool is_in_vain(const S3_Request& request) const;
  bool wait(const S3_Request& request, std::chrono::milliseconds span) const;

  const S3_Settings settings_;
  S3_Transport transport_;
  std::atomic<bool> canceled_{false};
  std::atomic<std::chrono::steady_clock::time_point> canceled_at_{};
};

}  // namespace client_io
