#include "client_io/s3_transport.h"

#include <curl/curl.h>

#include <cerrno>
#include <chrono>
#include <cstring>

#include "http/curl_talk.h"

namespace client_io {

namespace {

using std::chrono::steady_clock;

constexpr int poll_milliseconds = 100;
constexpr long curl_buffer = 512 * 1024;
/// A page of a listing with 1,000 names of 1,024 bytes, each of them in three digits, is smaller.
constexpr size_t max_text = size_t(16) << 20;

bool start_libcurl() {
  static const bool good = ::curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
  return good;
}

struct Slist_Deleter {
  void operator()(curl_slist* list) const { ::curl_slist_free_all(list); }
};
typedef std::unique_ptr<curl_slist, Slist_Deleter> Slist;

void add_line(Slist& list, const std::string& line) {
  if (curl_slist* longer = ::curl_slist_append(list.get(), line.c_str())) {
    static_cast<void>(list.release());
    list.reset(longer);
  }
}

// Without what libcurl would add by itself: a wait for "100 Continue", the type of a form.
Slist header_lines(const S3_Headers& headers) {
  Slist list;
  for (const auto& [name, value] : headers)
    if (name != "host") add_line(list, name + ": " + value);
  for (const char* none : {"Expect:", "Content-Type:", "Accept:"}) add_line(list, none);
  return list;
}

int errno_of(CURLcode code) {
  switch (code) {
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY:
      return EHOSTUNREACH;
    case CURLE_COULDNT_CONNECT:
      return ECONNREFUSED;
    case CURLE_OPERATION_TIMEDOUT:
      return ETIMEDOUT;
    case CURLE_OUT_OF_MEMORY:
      return ENOMEM;
    default:
      return EIO;
  }
}

// One exchange as libcurl tells of it.
class Curl_Talk {
 public:
  Curl_Talk(CURL* easy, const S3_Exchange& request, S3_Answer& answer, int silence_seconds)
      : easy_(easy),
        request_(request),
        answer_(answer),
        silence_(silence_seconds),
        lines_(header_lines(*request.headers)) {
    set(CURLOPT_URL, request.url.c_str());
    set(CURLOPT_HTTPHEADER, lines_.get());
    set_method();
    set_listener(easy, {&on_header, &on_body, &on_progress, this, reason_});
  }

  bool silent() const { return silence_.count() > 0 && steady_clock::now() - last_move_ >= silence_; }

  S3_Outcome outcome(CURLcode code) {
    long status = 0;
    ::curl_easy_getinfo(easy_, CURLINFO_RESPONSE_CODE, &status);
    answer_.status = static_cast<int>(status);
    if (code == CURLE_OK && head_.is_whole()) return S3_Outcome::ANSWERED;
    if (code == CURLE_OK)
      return failed(S3_Outcome::BROKEN, EIO, "the answer ends in its head");  // taken for a whole one
    if (too_much_) return failed(S3_Outcome::REFUSED, EIO, "the answer is longer than what was asked for");
    if (code == CURLE_INTERFACE_FAILED) return failed(S3_Outcome::REFUSED, EADDRNOTAVAIL, reason_);
    if (is_distrust(code)) return failed(S3_Outcome::REFUSED, EACCES, "the server's certificate is not trusted");
    return failed(S3_Outcome::BROKEN, errno_of(code), reason_[0] != '\0' ? reason_ : ::curl_easy_strerror(code));
  }

  S3_Outcome failed(S3_Outcome outcome, int error, const char* reason) {
    answer_.status = 0;
    answer_.error = error;
    answer_.reason = reason;
    return outcome;
  }

 private:
  template <typename Argument>
  void set(CURLoption option, Argument value) {
    ::curl_easy_setopt(easy_, option, value);
  }

  void set_method() {
    if (request_.method == "HEAD") {
      set(CURLOPT_NOBODY, 1L);
      return;
    }
    if (request_.method == "PUT" || request_.method == "POST") {
      set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request_.body.size()));
      set(CURLOPT_POSTFIELDS, request_.body.empty() ? "" : request_.body.data());
    }
    set(CURLOPT_CUSTOMREQUEST, request_.method.c_str());
  }

  // A wrong signature, for one, shows as if the connection had failed.
  bool is_distrust(CURLcode code) const {
    long verdict = 0;
    ::curl_easy_getinfo(easy_, CURLINFO_SSL_VERIFYRESULT, &verdict);
    return code == CURLE_PEER_FAILED_VERIFICATION || code == CURLE_SSL_CACERT_BADFILE ||
           (code == CURLE_SSL_CONNECT_ERROR && verdict != 0);
  }

  static size_t on_header(const char* line, size_t size, size_t count, void* self) {
    static_cast<Curl_Talk*>(self)->header({line, size * count});
    return size * count;
  }

  void header(std::string_view line) {
    last_move_ = steady_clock::now();
    if (head_.take(line, answer_.headers)) answer_.headers.clear();
  }

  static size_t on_body(const char* bytes, size_t size, size_t count, void* self) {
    return static_cast<Curl_Talk*>(self)->body({bytes, size * count}) ? size * count : 0;
  }

  bool body(std::string_view bytes) {
    last_move_ = steady_clock::now();
    long status = 0;
    ::curl_easy_getinfo(easy_, CURLINFO_RESPONSE_CODE, &status);
    const bool wanted = request_.to != nullptr && status / 100 == 2;
    const size_t room = wanted ? request_.to_size - answer_.received : max_text - answer_.text.size();
    too_much_ = bytes.size() > room;
    if (too_much_) return false;
    if (wanted) {
      std::memcpy(request_.to + answer_.received, bytes.data(), bytes.size());
      answer_.received += bytes.size();
    } else {
      answer_.text += bytes;
    }
    return true;
  }

  static int on_progress(void* self, curl_off_t, curl_off_t received, curl_off_t, curl_off_t sent) {
    auto& talk = *static_cast<Curl_Talk*>(self);
    if (received + sent != talk.moved_) talk.last_move_ = steady_clock::now();
    talk.moved_ = received + sent;
    return 0;
  }

  CURL* const easy_;
  const S3_Exchange& request_;
  S3_Answer& answer_;
  const std::chrono::seconds silence_;
  const Slist lines_;
  steady_clock::time_point last_move_ = steady_clock::now();
  curl_off_t moved_ = 0;
  Curl_Head head_;
  bool too_much_ = false;
  char reason_[CURL_ERROR_SIZE] = "";
};

// Until the exchange is over, for better or worse.
S3_Outcome drive(CURLM* multi, Curl_Talk& talk, const S3_Exchange& request) {
  for (int running = 1;;) {
    ::curl_multi_perform(multi, &running);
    int left = 0;
    const CURLMsg* const done = ::curl_multi_info_read(multi, &left);
    if (done != nullptr) return talk.outcome(done->data.result);
    if (running == 0) return talk.failed(S3_Outcome::REFUSED, EIO, "libcurl gave up");
    if (request.stopped()) return talk.failed(S3_Outcome::STOPPED, ECANCELED, "canceled");
    if (talk.silent()) return talk.failed(S3_Outcome::BROKEN, ETIMEDOUT, "no progress for too long");
    ::curl_multi_poll(multi, nullptr, 0, poll_milliseconds, nullptr);
  }
}

}  // namespace

// A handle and the connections that it keeps.
struct S3_Transport::Line {
  Line() : easy(::curl_easy_init()), multi(::curl_multi_init()) {}
  ~Line() {
    ::curl_easy_cleanup(easy);
    ::curl_multi_cleanup(multi);
  }
  Line(const Line&) = delete;
  Line& operator=(const Line&) = delete;

  template <typename Argument>
  void set(CURLoption option, Argument value) {
    ::curl_easy_setopt(easy, option, value);
  }

  void prepare(const Options& options) {
    ::curl_easy_reset(easy);  // connections stay
    set(CURLOPT_PROTOCOLS_STR, "http,https");
    set(CURLOPT_FOLLOWLOCATION, 0L);
    set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    set(CURLOPT_NOSIGNAL, 1L);
    set(CURLOPT_PATH_AS_IS, 1L);
    set(CURLOPT_TCP_KEEPALIVE, 1L);
    set(CURLOPT_BUFFERSIZE, curl_buffer);
    set(CURLOPT_UPLOAD_BUFFERSIZE, curl_buffer);
    set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
    set(CURLOPT_SSL_VERIFYPEER, 1L);
    set(CURLOPT_SSL_VERIFYHOST, 2L);
    set(CURLOPT_CA_CACHE_TIMEOUT, 0L);  // a connection is not made on the word of an issuer that was taken away
    if (!options.source_address.empty()) set(CURLOPT_INTERFACE, ("host!" + options.source_address).c_str());
    if (options.ca_file.empty()) return;
    set(CURLOPT_CAINFO, options.ca_file.c_str());
    set(CURLOPT_CAPATH, static_cast<const char*>(nullptr));
  }

  CURL* const easy;
  CURLM* const multi;
};

S3_Transport::S3_Transport(Options options) : options_(std::move(options)) {}

S3_Transport::~S3_Transport() = default;

std::unique_ptr<S3_Transport::Line> S3_Transport::take() {
  std::unique_ptr<Line> line;
  {
    const std::lock_guard<std::mutex> guard(lock_);
    if (!idle_.empty()) {
      line = std::move(idle_.back());
      idle_.pop_back();
    }
  }
  if (!line && start_libcurl()) line.reset(new (std::nothrow) Line);
  return line && line->easy != nullptr && line->multi != nullptr ? std::move(line) : nullptr;
}

void S3_Transport::give_back(std::unique_ptr<Line> line) {
  ::curl_easy_reset(line->easy);  // nothing points to what ends here
  const std::lock_guard<std::mutex> guard(lock_);
  idle_.push_back(std::move(line));
}

S3_Outcome S3_Transport::exchange(const S3_Exchange& request, S3_Answer& answer) {
  answer = {};
  std::unique_ptr<Line> line = take();
  if (!line) {
    answer.error = ENOMEM;
    answer.reason = "libcurl did not start";
    return S3_Outcome::REFUSED;
  }
  line->prepare(options_);
  Curl_Talk talk(line->easy, request, answer, options_.silence_timeout_seconds);
  ::curl_multi_add_handle(line->multi, line->easy);
  const S3_Outcome outcome = drive(line->multi, talk, request);
  ::curl_multi_remove_handle(line->multi, line->easy);  // before its end this closes the connection
  give_back(std::move(line));
  return outcome;
}

}  // namespace client_io
