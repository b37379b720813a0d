#pragma once

#include <boost/asio/awaitable.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/http/string_body.hpp>
#include <memory>

#include "http/beast_stream.h"
#include "http/http_server_options.h"
#include "http/http_service.h"

namespace http_server {

using namespace http_wire;
typedef beast::http::request<beast::http::string_body> Request;

/// Answers @a request with the handshake and serves the WebSocket until it ends. Runs on the strand of @a stream;
/// closing the stream ends it.
/// @param owner  keeps the stream and the limits alive, also for a write that ends after the call.
net::awaitable<void> serve_websocket(std::shared_ptr<void> owner, Stream& stream, Request request,
                                     HTTP_Service& service, const HTTP_Server_Limits& limits);

}  // namespace http_server
