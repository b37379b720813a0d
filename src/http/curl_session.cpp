#include "http/curl_session.h"

#include <algorithm>

#include "ace/Log_Msg.h"
#include "http/curl_exchange.h"
#include "http/request_fault.h"
#include "http/trusted_issuers.h"

namespace {

/// Large answers come in few pieces.
constexpr long receive_buffer = 128 * 1024;

struct List_Deleter {
  void operator()(curl_slist* list) const { ::curl_slist_free_all(list); }
};

class Text_List {
 public:
  void add(const std::string& line) {
    if (curl_slist* longer = ::curl_slist_append(list_.get(), line.c_str())) {
      static_cast<void>(list_.release());
      list_.reset(longer);
    }
  }
  curl_slist* get() const { return list_.get(); }

 private:
  std::unique_ptr<curl_slist, List_Deleter> list_;
};

/// As libcurl wants it: without a value, the line ends in ';'.
Text_List header_list(const HTTP_Request& request) {
  Text_List list;
  for (const HTTP_Headers::Field& field : request.headers())
    list.add(field.value.empty() ? field.name + ';' : field.name + ": " + field.value);
  // Not what libcurl would add: a wait for "100 Continue", the type of a form.
  list.add("Expect:");
  if (!request.content_type()) list.add("Content-Type:");
  return list;
}

bool init_libcurl() {
  static const bool good = ::curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
  return good;
}

}  // namespace

void Curl_Session::Handle_Deleter::operator()(void* handle) const {
  ::curl_easy_cleanup(handle);
}

std::unique_ptr<Curl_Session> Curl_Session::create(const HTTP_Target& target) {
  Handle handle(init_libcurl() ? ::curl_easy_init() : nullptr);
  if (!handle) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to start libcurl.\n")));
    return nullptr;
  }
  return std::unique_ptr<Curl_Session>(new (std::nothrow) Curl_Session(std::move(handle), target));
}

Curl_Session::Curl_Session(Handle handle, const HTTP_Target& target)
    : handle_(std::move(handle)),
      target_(target),
      url_((target.ssl ? "https://" : "http://") + (target.name.empty() ? target.host : target.name) + ':' +
           std::to_string(target.port) + '/') {
  set(CURLOPT_COOKIEJAR, "");  // has cookies kept in memory; the reset before each exchange forgets the file alone
}

template <typename Argument>
void Curl_Session::set(int option, Argument value) {
  ::curl_easy_setopt(handle_.get(), static_cast<CURLoption>(option), value);
}

HTTP_Exchange_Result Curl_Session::exchange(const HTTP_Request& request, const std::string* body,
                                            HTTP_Response& response, HTTP_Body_Sink& sink) {
  response.reset();
  if (const char* fault = request_fault(request)) return {HTTP_OUTCOME_FAILED, fault};
  Curl_Exchange exchange(response, sink, target_.send_timeout, target_.recv_timeout);
  const Text_List headers = header_list(request);
  ::curl_easy_reset(handle_.get());  // connections and cookies stay
  set_connection();
  set_trust();
  set_request(request, body);
  set(CURLOPT_HTTPHEADER, headers.get());
  Text_List places;
  if (!target_.name.empty()) places.add("::" + target_.host + ':' + std::to_string(target_.port));
  set(CURLOPT_CONNECT_TO, places.get());
  exchange.attach(handle_.get());

  const HTTP_Exchange_Result result = exchange.result(::curl_easy_perform(handle_.get()));
  long status = 0;
  ::curl_easy_getinfo(handle_.get(), CURLINFO_RESPONSE_CODE, &status);
  ::curl_easy_reset(handle_.get());  // nothing points to what ends here
  if (result.outcome == HTTP_OUTCOME_ANSWERED)
    response.status(static_cast<int>(status));
  else
    response.reset();
  return result;
}

void Curl_Session::set_connection() {
  set(CURLOPT_URL, url_.c_str());
  set(CURLOPT_PROTOCOLS_STR, target_.ssl ? "https" : "http");
  set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
  set(CURLOPT_NOSIGNAL, 1L);
  // A proxy of the environment is for the world outside of the cluster.
  set(CURLOPT_PROXY, "");
  set(CURLOPT_NOPROXY, "*");
  if (!target_.local_address.empty()) set(CURLOPT_INTERFACE, ("host!" + target_.local_address).c_str());
  set(CURLOPT_CONNECTTIMEOUT, static_cast<long>(target_.conn_timeout));
  set(CURLOPT_MAXCONNECTS, static_cast<long>(std::max(target_.idle_connections, 1)));
  set(CURLOPT_FORBID_REUSE, target_.idle_connections > 0 ? 0L : 1L);
  set(CURLOPT_TCP_KEEPALIVE, 1L);
  set(CURLOPT_BUFFERSIZE, receive_buffer);
}

/// No connection is made on the word of an earlier one: neither issuers nor TLS sessions are remembered.
void Curl_Session::set_trust() {
  set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
  set(CURLOPT_SSL_VERIFYPEER, 1L);
  set(CURLOPT_SSL_VERIFYHOST, 2L);
  set(CURLOPT_CA_CACHE_TIMEOUT, 0L);
  set(CURLOPT_SSL_SESSIONID_CACHE, 0L);
  if (const char* issuers = target_.ca_file.empty() ? trusted_issuers_file() : target_.ca_file.c_str()) {
    set(CURLOPT_CAINFO, issuers);
    set(CURLOPT_CAPATH, static_cast<const char*>(nullptr));
  }
}

void Curl_Session::set_request(const HTTP_Request& request, const std::string* body) {
  set(CURLOPT_REQUEST_TARGET, request.uri().c_str());
  set(CURLOPT_USERAGENT, "tessarin-agent");
  set(CURLOPT_ACCEPT_ENCODING, "gzip");
  const bool carries = body || request.method() == HTTP_METHOD_POST || request.method() == HTTP_METHOD_PATCH;
  if (carries) {
    set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body ? body->size() : 0));
    set(CURLOPT_POSTFIELDS, body ? body->c_str() : "");
  }
  set(CURLOPT_CUSTOMREQUEST, http_method_string(request.method()));
}
