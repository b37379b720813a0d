#pragma once

#include <boost/asio/generic/stream_protocol.hpp>
#include <map>
#include <memory>
#include <string>

#include "http/access_check.h"
#include "http/connection_table.h"
#include "http/http_page.h"
#include "http/http_server_options.h"
#include "http/http_service.h"
#include "http/refusal_log.h"

typedef struct ssl_ctx_st SSL_CTX;

namespace http_server {

/// What all connections of a server share. Outlives them.
struct Shared {
  HTTP_Service& service;
  const HTTP_Server_Options options;
  Connection_Table table;
  std::map<std::string, HTTP_Page, std::less<>> pages;  ///< by path; complete before the first connection
  Refusal_Log refusals;
};

/// What is known of a connection when it is accepted.
struct Admission {
  std::string peer;                      ///< whose connections are counted together
  std::shared_ptr<SSL_CTX> tls;          ///< null: none is spoken
  std::shared_ptr<Access_Check> access;  ///< null: everybody is let in
};

/// Serves a connection until it ends, on the executor of its socket.
void serve(Shared& shared, boost::asio::generic::stream_protocol::socket socket, const Admission& admission);

}  // namespace http_server
