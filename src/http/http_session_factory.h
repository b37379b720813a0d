#pragma once

#include <string>

#include "http/http_session.h"

class ACE_SSL_Context;

enum {
  /// Connections kept open between exchanges.
  DEFAULT_IDLE_CONNECTIONS = 3,
  /// In seconds.
  DEFAULT_SOCKET_SEND_TIMEOUT = 120,
  DEFAULT_SOCKET_RECV_TIMEOUT = 120,
  DEFAULT_SOCKET_CONN_TIMEOUT = 120
};

class TESSARIN_API HTTP_Session_Factory {
 public:
  /**
   * A session with one server. Nothing is connected yet.
   *
   * With TLS (1.2 or later) the server must prove to be @a host by a certificate. Its issuer must stand in
   * "/var/run/secrets/kubernetes.io/serviceaccount/ca.crt" where that exists, otherwise in the system's store. The file
   * is read for each new connection; one that can't be read or holds no certificate refuses the connection. There is no
   * way to do without. No proxy is used, whatever the environment says.
   *
   * @param host              name or address; an IPv6 address with or without brackets.
   * @param local_address     to connect from; null: any.
   * @param idle_connections  how many are kept open between exchanges.
   * @param ssl_context       must be null; another one is refused, with a log line, and stays the caller's.
   * @param send_timeout      seconds in which nothing of the request could be sent.
   * @param recv_timeout      seconds in which nothing of the answer arrived. A long answer may take longer in all.
   * @param conn_timeout      seconds for the connection to be made, TLS included.
   * @param flags             0.
   * @return empty if it could not be made; the reason is in the log.
   */
  static HTTP_Session_var create(const std::string& host, unsigned short port, bool ssl, const char* local_address,
                                 int idle_connections, ACE_SSL_Context* ssl_context, bool delete_context,
                                 int send_timeout, int recv_timeout, int conn_timeout, int flags);

  /**
   * A session by TLS with another agent, which need not prove by what address it is called, nor to the cluster's CA.
   *
   * @param name     what the agent's certificate has to name; empty: @a host.
   * @param ca_file  PEM: who may have signed it; empty: as above. Read for each new connection.
   * @return as above.
   */
  static HTTP_Session_var create_to_agent(const std::string& host, unsigned short port, const std::string& name,
                                          const std::string& ca_file);
};
