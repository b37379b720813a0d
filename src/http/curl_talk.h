#pragma once

#include <curl/curl.h>

#include <cstddef>
#include <string>
#include <string_view>

#include "http/http_headers.h"

// What the clients on libcurl have in common. For their sources only.

/// Whom libcurl tells how an exchange goes. Each gets @a self last.
struct Curl_Listener {
  std::size_t (*on_header)(const char* line, std::size_t size, std::size_t count, void* self);
  std::size_t (*on_body)(const char* bytes, std::size_t size, std::size_t count, void* self);
  int (*on_progress)(void* self, curl_off_t to_receive, curl_off_t received, curl_off_t to_send, curl_off_t sent);
  void* self;
  char* reason;  ///< CURL_ERROR_SIZE bytes, where libcurl writes why it failed
};

/// Until the handle is reset all that the listener names has to stay.
inline void set_listener(CURL* handle, const Curl_Listener& listener) {
  const auto set = [handle](CURLoption option, auto value) { ::curl_easy_setopt(handle, option, value); };
  set(CURLOPT_ERRORBUFFER, listener.reason);
  set(CURLOPT_HEADERFUNCTION, listener.on_header);
  set(CURLOPT_HEADERDATA, listener.self);
  set(CURLOPT_WRITEFUNCTION, listener.on_body);
  set(CURLOPT_WRITEDATA, listener.self);
  set(CURLOPT_XFERINFOFUNCTION, listener.on_progress);
  set(CURLOPT_XFERINFODATA, listener.self);
  set(CURLOPT_NOPROGRESS, 0L);
}

/// The head of an answer, line by line. Of several, where interim answers come first, the last one counts.
class Curl_Head {
 public:
  /// @return whether the line begins a head. @a headers is then to be emptied; otherwise it has what the line holds.
  bool take(std::string_view line, HTTP_Headers& headers) {
    if (line.starts_with("HTTP/")) {
      whole_ = false;
      return true;
    }
    if (trimmed(line).empty()) whole_ = true;
    const std::size_t colon = line.find(':');
    if (colon == line.npos) return false;
    const std::string name(trimmed(line.substr(0, colon)));
    headers.put(name.c_str(), std::string(trimmed(line.substr(colon + 1))).c_str(), false);
    return false;
  }

  /// Whether the last head came to its end. libcurl takes one that breaks off for a whole one.
  bool is_whole() const { return whole_; }

 private:
  static std::string_view trimmed(std::string_view text) {
    constexpr char blanks[] = " \t\r\n";
    const std::size_t begin = text.find_first_not_of(blanks);
    if (begin == text.npos) return {};
    return text.substr(begin, text.find_last_not_of(blanks) - begin + 1);
  }

  bool whole_ = false;
};
