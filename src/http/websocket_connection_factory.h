#pragma once

#include <memory>
#include <string>

#include "http/websocket_connection.h"

class ACE_SSL_Context;

class TESSARIN_API WebSocket_Connection_Factory {
 public:
  /**
   * A WebSocket to one server. Nothing is connected yet. Arguments and the checks of TLS are those of
   * HTTP_Session_Factory::create.
   *
   * @param timeout  seconds for connect(), and for handshake().
   * @return null if it could not be made; the reason is in the log.
   */
  static std::unique_ptr<WebSocket_Connection> create(const std::string& host, unsigned short port, bool ssl,
                                                      const char* local_address, ACE_SSL_Context* ssl_context,
                                                      bool delete_context, int timeout);
};
