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

HTTP_Session_var HTTP_Session_Factory::create_to_agent(const std::string& host, unsigned short port,
                                                       const std::string& name, const std::string& ca_file) {
  const HTTP_Target target{host_in_url(host),
                           port,
                           true,
                           "",
                           DEFAULT_IDLE_CONNECTIONS,
                           DEFAULT_SOCKET_SEND_TIMEOUT,
                           DEFAULT_SOCKET_RECV_TIMEOUT,
                           DEFAULT_SOCKET_CONN_TIMEOUT,
                           host_in_url(name),
                           ca_file};
  if (target.host.empty() || target.name.empty() != name.empty()) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("'%C', named '%C', is no host of an agent.\n"), host.c_str(), name.c_str()));
    return {};
  }
  return Curl_Session::create(target);
}
