#include "ctl/agent.h"

#include <curl/curl.h>

#include <fstream>
#include <new>
#include <utility>

#include "ctl/failure.h"
#include "json_spirit/dump.h"
#include "json_spirit/json_spirit_helper.h"

namespace ctl {

using json_spirit::Object;
using json_spirit::Value;

namespace {

constexpr char path[] = "/d2/jr";
constexpr char unix_prefix[] = "unix://";
constexpr long connect_seconds = 10;
constexpr long page_seconds = 60;
/// An answer longer than this is none of ours.
constexpr size_t max_answer = 256u << 20;

bool begins_with(const std::string& text, const char* prefix) {
  return text.rfind(prefix, 0) == 0;
}

size_t append(char* data, size_t size, size_t count, void* to) {
  std::string& text = *static_cast<std::string*>(to);
  if (text.size() + size * count > max_answer) return 0;
  text.append(data, size * count);
  return size * count;
}

std::string read_token(const std::string& file) {
  std::ifstream in(file);
  std::string token;
  if (!std::getline(in, token) || token.empty()) throw Failure(exit_usage, "There is no token in " + file + ".");
  if (token.back() == '\r') token.pop_back();
  return token;
}

/// A part of a URL; empty if it has none, or is no URL.
std::string part_of(const std::string& url, CURLUPart which) {
  const std::unique_ptr<CURLU, void (*)(CURLU*)> parsed(curl_url(), curl_url_cleanup);
  char* part = nullptr;
  if (curl_url_set(parsed.get(), CURLUPART_URL, url.c_str(), 0) != CURLUE_OK ||
      curl_url_get(parsed.get(), which, &part, CURLU_DEFAULT_PORT) != CURLUE_OK)
    return {};
  return std::unique_ptr<char, void (*)(void*)>(part, curl_free).get();
}

bool is_this_machine(const std::string& url) {
  const std::string host = part_of(url, CURLUPART_HOST);
  return host == "localhost" || host == "[::1]" ||
         (begins_with(host, "127.") && host.find_first_not_of("0123456789.") == std::string::npos);
}

}  // namespace

/// POSTs and GETs over one connection that is kept.
class Agent::Http {
 public:
  Http(const std::string& url, const std::string& token, const Agent_Trust& trust) : curl_(curl_easy_init()) {
    if (curl_ == nullptr) throw std::bad_alloc();
    add_header("Content-Type: application/json");
    add_header("Expect:");
    if (!token.empty()) add_header(("Authorization: Bearer " + token).c_str());
    if (begins_with(url, unix_prefix)) {
      set(CURLOPT_UNIX_SOCKET_PATH, url.substr(sizeof unix_prefix - 1).c_str());
      base_ = "http://localhost";
    } else {
      base_ = url.substr(0, url.find_last_not_of('/') + 1);
      if (!trust.name.empty()) call_by_name(url, trust.name);
    }
    set(CURLOPT_PROTOCOLS_STR, "http,https");
    set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
    if (!trust.ca_file.empty()) {
      set(CURLOPT_CAINFO, trust.ca_file.c_str());
      set(CURLOPT_CAPATH, static_cast<const char*>(nullptr));
    }
    set(CURLOPT_PROXY, "");  // the environment's proxy is not for the agent, and must not see the token
    set(CURLOPT_NOSIGNAL, 1L);
    set(CURLOPT_CONNECTTIMEOUT, connect_seconds);
    set(CURLOPT_HTTPHEADER, headers_);
    set(CURLOPT_WRITEFUNCTION, append);
    set(CURLOPT_WRITEDATA, &answer_);
    set(CURLOPT_ERRORBUFFER, error_);
  }
  ~Http() {
    curl_easy_cleanup(curl_);
    curl_slist_free_all(headers_);
    curl_slist_free_all(places_);
  }

  /// The answer's body; its status goes to @a status. False if there is none: error() tells why.
  bool post(const std::string& body, long seconds, long& status) {
    set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
    set(CURLOPT_POSTFIELDS, body.c_str());
    return perform(path, seconds, status);
  }
  /// As post().
  bool get(const std::string& page, long seconds, long& status) {
    set(CURLOPT_HTTPGET, 1L);
    return perform(page, seconds, status);
  }
  std::string type() const {
    const char* text = nullptr;
    curl_easy_getinfo(curl_, CURLINFO_CONTENT_TYPE, &text);
    return text ? text : "";
  }
  const std::string& answer() const { return answer_; }
  std::string error() const { return error_[0] != '\0' ? error_ : curl_easy_strerror(code_); }

 private:
  bool perform(const std::string& at, long seconds, long& status) {
    answer_.clear();
    error_[0] = '\0';
    set(CURLOPT_URL, (base_ + at).c_str());
    set(CURLOPT_TIMEOUT, seconds);
    code_ = curl_easy_perform(curl_);
    curl_easy_getinfo(curl_, CURLINFO_RESPONSE_CODE, &status);
    return code_ == CURLE_OK;
  }
  template <typename T>
  void set(CURLoption option, T value) {
    const CURLcode code = curl_easy_setopt(curl_, option, value);
    if (code != CURLE_OK) throw Failure(exit_usage, curl_easy_strerror(code));
  }
  /// Connects to the place in @a url, and takes whoever is there for @a name.
  void call_by_name(const std::string& url, const std::string& name) {
    const std::string port = ":" + part_of(url, CURLUPART_PORT);
    places_ = curl_slist_append(nullptr, ("::" + part_of(url, CURLUPART_HOST) + port).c_str());
    set(CURLOPT_CONNECT_TO, places_);
    base_ = part_of(url, CURLUPART_SCHEME) + "://" + name + port;
  }
  void add_header(const char* header) { headers_ = curl_slist_append(headers_, header); }

  CURL* const curl_;
  std::string base_;  // of all URLs
  curl_slist* headers_ = nullptr;
  curl_slist* places_ = nullptr;
  CURLcode code_ = CURLE_OK;
  std::string answer_;
  char error_[CURL_ERROR_SIZE] = {};
};

Agent::Agent(const std::string& url, const Agent_Trust& trust)
    : url_(url), with_token_(!trust.token_file.empty()), http_([&] {
        if (!begins_with(url, "unix:///") && !begins_with(url, "http://") && !begins_with(url, "https://"))
          throw Failure(exit_usage,
                        "The agent's URL is unix:///PATH, http://HOST:PORT or https://HOST:PORT, not " + url);
        const std::string token = trust.token_file.empty() ? std::string() : read_token(trust.token_file);
        if (!token.empty() && begins_with(url, "http://") && !is_this_machine(url))
          throw Failure(exit_usage, "The token is not sent to another machine over plain HTTP; use https.");
        return new Http(url, token, trust);
      }()) {}

Agent::~Agent() = default;

void Agent::check_status(long status) const {
  if (status == 401)
    throw Failure(exit_refused, with_token_ ? "The agent does not accept the token."
                                            : "The agent wants a token: give its file with --token-file.");
  if (status == 403) throw Failure(exit_refused, "The owner of the token may not call the agent.");
  if (status == 503) throw Failure(exit_unreachable, "The agent cannot find out whose token it is; try again later.");
}

Value Agent::call(const std::string& method, const Object& params, std::chrono::seconds timeout) {
  Object request;
  request["jsonrpc"] = "2.0";
  request["id"] = ++last_id_;
  request["method"] = method;
  request["params"] = params;

  long status = 0;
  const std::string body = json_spirit::JSON_Dump(request, false).str();
  if (!http_->post(body, static_cast<long>(timeout.count()), status))
    throw Failure(exit_unreachable, "No answer from the agent at " + url_ + ": " + http_->error() + ".");
  check_status(status);

  Value document;
  if (!json_spirit::loads_json(http_->answer().c_str(), document) || document.type() != json_spirit::obj_type)
    throw Failure(exit_unreachable,
                  "The answer from " + url_ + " is not an agent's (HTTP " + std::to_string(status) + ").");
  Object& answer = document.get_obj();
  if (const Object* error = json_spirit::object_get_object(answer, "error")) {
    long code = 0;
    std::string message;
    json_spirit::object_get(*error, "code", code);
    json_spirit::object_get(*error, "message", message);
    throw Failure(exit_refused,
                  "The agent answered \"" + message + "\" (" + std::to_string(code) + ") to " + method + ".");
  }
  Value* const result = json_spirit::object_get_value(answer, "result");
  if (result == nullptr) throw Failure(exit_unreachable, "The answer from " + url_ + " has no result.");
  return std::move(*result);
}

Agent::Page Agent::get(const std::string& path) {
  Page page;
  if (!http_->get(path, page_seconds, page.status))
    throw Failure(exit_unreachable, "No answer from the agent at " + url_ + ": " + http_->error() + ".");
  page.type = http_->type();
  page.body = http_->answer();
  return page;
}

}  // namespace ctl
