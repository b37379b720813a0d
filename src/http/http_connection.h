#pragma once

#include <boost/asio/generic/stream_protocol.hpp>
#include <map>
#include <memory>
#include <string>

#include "http/connection_table.h"
#include "http/http_page.h"
#include "http/http_server_options.h"
#include "http/http_service.h"

namespace http_server {

/// What all connections of a server share. Outlives them.
struct Shared {
  HTTP_Service& service;
  const HTTP_Server_Options options;
  Connection_Table table;
  std::map<std::string, HTTP_Page, std::less<>> pages;  ///< by path; complete before the first connection
};

/// Serves a connection until it ends, on the executor of its socket.
/// @param peer   whose connections are counted together.
/// @param token  what the peer has to show; null: nothing.
void serve(Shared& shared, boost::asio::generic::stream_protocol::socket socket, const std::string& peer,
           std::shared_ptr<const std::string> token);

}  // namespace http_server
