#pragma once

#include <curl/curl.h>
#include <openssl/ossl_typ.h>

#include <chrono>
#include <string>

#include "http/curl_talk.h"
#include "http/http_session.h"

/// One exchange as libcurl tells of it, and what it means for a repetition.
class Curl_Exchange {
 public:
  /// Time-outs in seconds.
  Curl_Exchange(HTTP_Response& response, HTTP_Body_Sink& sink, int send_timeout, int recv_timeout)
      : response_(response), sink_(sink), send_timeout_(send_timeout), recv_timeout_(recv_timeout) {}

  /// Makes @a handle tell this object.
  void attach(CURL* handle);
  HTTP_Exchange_Result result(CURLcode code) const;

 private:
  static int on_connected(void* self, char*, char*, int, int);
  static int on_progress(void* self, curl_off_t, curl_off_t received, curl_off_t to_send, curl_off_t sent);
  static CURLcode on_tls(CURL*, void* context, void* self);
  static int verify(X509_STORE_CTX* chain, void* self);
  static std::size_t on_header(const char* line, std::size_t size, std::size_t count, void* self);
  static std::size_t on_body(const char* chunk, std::size_t size, std::size_t count, void* self);

  void header(std::string_view line);
  void moved() { last_move_ = std::chrono::steady_clock::now(); }

  HTTP_Response& response_;
  HTTP_Body_Sink& sink_;
  const int send_timeout_;
  const int recv_timeout_;
  int connections_ = 0;  // on which the request was sent, or was about to be
  bool silent_ = false;
  const char* distrust_ = nullptr;  // what is wrong with the server's certificate
  Curl_Head head_;
  curl_off_t bytes_ = 0;
  std::chrono::steady_clock::time_point last_move_;
  char reason_[CURL_ERROR_SIZE] = "";
};
