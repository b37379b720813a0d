#include "client_io/s3_session.h"

#include <algorithm>
#include <cerrno>
#include <map>
#include <mutex>

#include "ace/Log_Msg.h"
#include "client_io/back_off.h"
#include "client_io/s3_failure.h"
#include "http/http_retry.h"
#include "kolt/clock.h"
#include "kolt/metrics.h"
#include "kolt/printable.h"

namespace client_io {

namespace {

using std::chrono::steady_clock;

constexpr unsigned longest_wait = 32;  // seconds
constexpr std::chrono::milliseconds wait_slice{100};
// How long an answer may take that is only waited for to clean up after a cancel.
constexpr std::chrono::seconds patience_after_cancel{3};

const kolt::Counter s3_retries("tessarin_storage_retries_total",
                               "Operations of the storage that were tried again after a failure.");

// A word of the service as it may stand in a log line.
std::string s3_word(const std::string& text) {
  return printable(std::string_view(text).substr(0, 64));
}

std::string s3_url(const S3_Settings& settings, const std::string& path, const S3_Query& query) {
  return settings.url + path + (query.empty() ? "" : "?" + s3_query_string(query));
}

// When services were last silent to somebody who cleaned up after a cancel. The sessions of a job's channels end
// together, and one of them finds it out for all.
class Silences {
 public:
  void note(const std::string& url) {
    const std::lock_guard<std::mutex> guard(lock_);
    last_[url] = steady_clock::now();
  }
  bool has_since(const std::string& url, steady_clock::time_point begin) {
    const std::lock_guard<std::mutex> guard(lock_);
    const auto found = last_.find(url);
    return found != last_.end() && found->second >= begin;
  }

 private:
  std::mutex lock_;
  std::map<std::string, steady_clock::time_point> last_;  // guarded by lock_
};

Silences& silences() {
  static Silences all;
  return all;
}

// Cleaning up after a cancel waits for nothing.
std::optional<std::chrono::milliseconds> no_wait_before(int tries) {
  constexpr int most_tries = 3;
  if (tries >= most_tries) return {};
  return std::chrono::milliseconds(0);
}

// Signs the request as it is now: a signature is good for some minutes only.
S3_Signed_Parts s3_signed(const S3_Settings& settings, const S3_Request& request) {
  S3_Signed_Parts parts;
  parts.method = request.method;
  parts.path = settings.base_path + '/' + s3_encode_path(request.name);
  parts.query = request.query;
  parts.headers = settings.headers;
  parts.headers.insert(request.headers.begin(), request.headers.end());
  parts.payload_hash = s3_payload_hash(request.body);
  if (request.md5 != nullptr) parts.headers["content-md5"] = request.md5->base64;
  parts.headers["host"] = settings.host;
  parts.headers["x-amz-content-sha256"] = parts.payload_hash;
  parts.headers["x-amz-date"] = s3_timestamp(kolt::clock().now());
  if (!settings.credentials.session_token.empty())
    parts.headers["x-amz-security-token"] = settings.credentials.session_token.c_str();
  parts.headers["authorization"] = s3_authorization(parts, settings.region, settings.credentials);
  return parts;
}

}  // namespace

std::string S3_Result::header(const char* name) const {
  const char* const value = headers.get(name, true);
  return value == nullptr ? std::string() : value;
}

S3_Session::S3_Session(const S3_Settings& settings)
    : settings_(settings), transport_({settings.ca_file, settings.source_address, settings.socket_timeout_seconds}) {}

bool S3_Session::send(const S3_Request& request, S3_Result& result) {
  Back_Off back_off(std::min(request.max_seconds_retry, settings_.max_seconds_retry), longest_wait);
  for (int tries = 1;; ++tries) {
    bool again = false;
    const int error = exchange(request, result, again);
    if (error == 0) return true;
    const auto told = http_retry_after(result.headers.get(HTTP_HEAD_RETRY_AFTER, true));
    const auto span = canceled_ ? no_wait_before(tries) : back_off.next(told);
    if (!again || !span) {
      errno = is_stopped(request) ? ECANCELED : error;
      return false;
    }
    s3_retries.add();
    ACE_DEBUG((LM_INFO, ACE_TEXT("%C of object \"%C\" in \"%C\" failed (%C), again in %d second(s).\n"), request.method,
               printable(request.name).c_str(), printable(settings_.root).c_str(), result.reason.c_str(),
               static_cast<int>(std::chrono::ceil<std::chrono::seconds>(*span).count())));
    if (!wait(request, *span)) {
      errno = is_stopped(request) ? ECANCELED : error;
      return false;
    }
  }
}

// One try. Gives an errno, 0 for a good answer.
int S3_Session::exchange(const S3_Request& request, S3_Result& result, bool& again) {
  const S3_Signed_Parts parts = s3_signed(settings_, request);
  S3_Exchange exchange;
  exchange.method = request.method;
  exchange.url = s3_url(settings_, parts.path, parts.query);
  exchange.headers = &parts.headers;
  exchange.body = request.body;
  exchange.to = request.to;
  exchange.to_size = request.to_size;
  const auto begin = steady_clock::now();
  exchange.stopped = [&] {
    if (request.stop != nullptr) return is_stopped(request);
    return canceled_ && steady_clock::now() - std::max(begin, canceled_at_.load()) > patience_after_cancel;
  };

  S3_Answer answer;
  const bool in_vain = is_stopped(request) || is_in_vain(request);
  const S3_Outcome outcome = in_vain ? S3_Outcome::STOPPED : transport_.exchange(exchange, answer);
  result.status = answer.status;
  result.headers = answer.headers;
  result.xml = {};
  result.code.clear();
  result.reason = answer.reason;
  again = outcome == S3_Outcome::BROKEN;
  if (outcome == S3_Outcome::ANSWERED) return judge(request, answer, result, again);
  if (outcome != S3_Outcome::STOPPED) return answer.error;
  if (request.stop != nullptr || in_vain) return ECANCELED;
  silences().note(settings_.url);
  result.reason = "no answer";
  return ETIMEDOUT;
}

void S3_Session::cancel() {
  if (canceled_) return;
  canceled_at_ = steady_clock::now();
  canceled_ = true;
}

int S3_Session::judge(const S3_Request& request, const S3_Answer& answer, S3_Result& result, bool& again) {
  const bool good = answer.status / 100 == 2;
  const bool readable = answer.text.empty() || parse_s3_xml(answer.text, result.xml);
  // A request that takes long is answered with 200 before the service knows how it will end.
  const bool failed_late = good && result.xml.name == "Error";
  if (result.xml.name == "Error") result.code = result.xml["Code"];
  result.reason = std::to_string(answer.status) + (result.code.empty() ? "" : ' ' + s3_word(result.code));

  const bool whole = request.to == nullptr || answer.received == request.to_size;
  const bool expected = request.answer == nullptr || failed_late || result.xml.name == request.answer;
  if (good && (!readable || !whole || !expected)) {
    result.reason += ", not the body that was asked for";
    again = true;
    return EIO;
  }
  if (good && !failed_late && request.md5 != nullptr && !s3_etag_fits(answer.headers, *request.md5)) {
    result.reason += ", an ETag that does not fit the bytes sent";
    again = true;
    return EIO;
  }
  const S3_Verdict verdict = s3_verdict(failed_late ? 500 : answer.status, result.code);
  again = verdict.again;
  return verdict.error;
}

bool S3_Session::is_stopped(const S3_Request& request) const {
  return request.stop != nullptr && (*request.stop || canceled_);
}

// Whether it would clean up at a service that is silent.
bool S3_Session::is_in_vain(const S3_Request& request) const {
  return request.stop == nullptr && canceled_ && silences().has_since(settings_.url, canceled_at_);
}

// In slices, so that a cancel is soon felt.
bool S3_Session::wait(const S3_Request& request, std::chrono::milliseconds span) const {
  for (; span.count() > 0; span -= wait_slice) {
    if (canceled_ || is_stopped(request)) return false;
    kolt::clock().sleep(std::min(span, wait_slice));
  }
  return true;
}

}  // namespace client_io
