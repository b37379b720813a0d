#include "http/http_session_factory.h"

#include "ace/Log_Msg.h"
#include "http/curl_session.h"
#include "http/host_in_url.h"

HTTP_Session_var HTTP_Session_Factory::create(const std::string& host, unsigned short port, bool ssl,
                                              const char* local_address, int idle_connections,
                                              ACE_SSL_Context* ssl_context, bool /* delete_context */, int send_timeout,
                                              int recv_timeout, int conn_timeout, int /* flags */) {
  if (ssl_context) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("An HTTP session takes no SSL context.\n")));
    return {};
  }
  const std::string name = host_in_url(host);
  if (name.empty()) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("'%C' is no host of an HTTP session.\n"), host.c_str()));
    return {};
  }
  return Curl_Session::create({name, port, ssl, local_address ? local_address : "", idle_connections, send_timeout,
                               recv_timeout, conn_timeout});
}
