#include "http/curl_exchange.h"

#include <openssl/ssl.h>

namespace {

HTTP_Outcome outcome_before_sending(CURLcode code) {
  switch (code) {
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_CONNECT:
    case CURLE_OPERATION_TIMEDOUT:
    case CURLE_SSL_CONNECT_ERROR:
      return HTTP_OUTCOME_NOT_SENT;
    default:
      return HTTP_OUTCOME_FAILED;
  }
}

HTTP_Outcome outcome_after_sending(CURLcode code) {
  switch (code) {
    case CURLE_GOT_NOTHING:
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
    case CURLE_PARTIAL_FILE:
      return HTTP_OUTCOME_BROKEN;
    default:
      return HTTP_OUTCOME_FAILED;
  }
}

}  // namespace

void Curl_Exchange::attach(CURL* handle) {
  const auto set = [handle](CURLoption option, auto value) { ::curl_easy_setopt(handle, option, value); };
  set_listener(handle, {&on_header, &on_body, &on_progress, this, reason_});
  set(CURLOPT_PREREQFUNCTION, &on_connected);
  set(CURLOPT_PREREQDATA, this);
  set(CURLOPT_SSL_CTX_FUNCTION, &on_tls);
  set(CURLOPT_SSL_CTX_DATA, this);
}

HTTP_Exchange_Result Curl_Exchange::result(CURLcode code) const {
  if (code == CURLE_OK && head_.is_whole()) return {HTTP_OUTCOME_ANSWERED, {}};
  if (code == CURLE_OK)
    return {HTTP_OUTCOME_BROKEN, "the answer ends in its head"};  // libcurl takes it for a whole one
  if (distrust_) return {HTTP_OUTCOME_FAILED, std::string("SSL certificate problem: ") + distrust_};
  if (silent_) return {HTTP_OUTCOME_FAILED, "timed out in silence"};
  if (connections_ > 1) return {HTTP_OUTCOME_BROKEN, "the server closed the connection"};
  const HTTP_Outcome outcome = connections_ == 0 ? outcome_before_sending(code) : outcome_after_sending(code);
  return {outcome, reason_[0] != '\0' ? reason_ : ::curl_easy_strerror(code)};
}

CURLcode Curl_Exchange::on_tls(CURL*, void* context, void* self) {
  ::SSL_CTX_set_cert_verify_callback(static_cast<SSL_CTX*>(context), &verify, self);
  return CURLE_OK;
}

/// The usual verification. libcurl tells some of its verdicts, a wrong signature for one, as if the connection had
/// failed.
int Curl_Exchange::verify(X509_STORE_CTX* chain, void* self) {
  const int good = ::X509_verify_cert(chain);
  if (good <= 0)
    static_cast<Curl_Exchange*>(self)->distrust_ = ::X509_verify_cert_error_string(::X509_STORE_CTX_get_error(chain));
  return good;
}

/// libcurl makes a second connection by itself when a kept one turns out to be closed, and sends the request again.
/// That is not for it to decide: the server may have read the first one.
int Curl_Exchange::on_connected(void* self, char*, char*, int, int) {
  auto& exchange = *static_cast<Curl_Exchange*>(self);
  exchange.moved();
  return ++exchange.connections_ == 1 ? CURL_PREREQFUNC_OK : CURL_PREREQFUNC_ABORT;
}

int Curl_Exchange::on_progress(void* self, curl_off_t, curl_off_t received, curl_off_t to_send, curl_off_t sent) {
  auto& exchange = *static_cast<Curl_Exchange*>(self);
  if (exchange.connections_ == 0) return 0;  // until then the time-out of the connection counts
  if (received + sent != exchange.bytes_) {
    exchange.bytes_ = received + sent;
    exchange.moved();
  }
  const int timeout = sent < to_send ? exchange.send_timeout_ : exchange.recv_timeout_;
  const auto still = std::chrono::steady_clock::now() - exchange.last_move_;
  exchange.silent_ = timeout > 0 && still >= std::chrono::seconds(timeout);
  return exchange.silent_ ? 1 : 0;
}

std::size_t Curl_Exchange::on_header(const char* line, std::size_t size, std::size_t count, void* self) {
  auto& exchange = *static_cast<Curl_Exchange*>(self);
  exchange.moved();
  exchange.header({line, size * count});
  return size * count;
}

void Curl_Exchange::header(std::string_view line) {
  if (!head_.take(line, response_.headers())) return;
  response_.reset();
  response_.minor_version(line.starts_with("HTTP/1.0") ? 0 : 1);
}

std::size_t Curl_Exchange::on_body(const char* chunk, std::size_t size, std::size_t count, void* self) {
  auto& exchange = *static_cast<Curl_Exchange*>(self);
  exchange.moved();
  exchange.sink_.write({chunk, size * count});
  return size * count;
}
