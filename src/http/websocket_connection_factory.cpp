#include "http/websocket_connection_factory.h"

#include <cerrno>
#include <memory>
#include <new>

#include "ace/Log_Msg.h"
#include "http/host_in_url.h"
#include "http/websocket_client.h"

using namespace websocket_client;

std::unique_ptr<WebSocket_Connection> WebSocket_Connection_Factory::create(const std::string& host, unsigned short port,
                                                                           bool ssl, const char* local_address,
                                                                           ACE_SSL_Context* ssl_context,
                                                                           bool /* delete_context */, int timeout) {
  if (ssl_context) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("A WebSocket takes no SSL context.\n")));
    return {};
  }
  const Target target{host_in_url(host), port, ssl, local_address ? local_address : "", std::chrono::seconds(timeout)};
  if (target.host.empty()) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("'%C' is no host of a WebSocket.\n"), host.c_str()));
    return {};
  }
  try {
    return std::make_unique<Client>(target);
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
  } catch (const boost::system::system_error& error) {
    // It needs descriptors of its own.
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to make a WebSocket: %C.\n"), error.code().message().c_str()));
    errno = error.code().value();
  }
  return {};
}
