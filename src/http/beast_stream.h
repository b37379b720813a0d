#pragma once

// Slow to compile: for the sources of the server alone.

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/as_tuple.hpp>
#include <boost/asio/generic/stream_protocol.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/beast/core/basic_stream.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/http/string_body.hpp>
#include <chrono>

#include "http/message_budget.h"

namespace http_server {

namespace net = boost::asio;
namespace beast = boost::beast;

/// A connection of any kind, with a deadline for what is under way.
typedef beast::basic_stream<net::generic::stream_protocol, net::any_io_executor, Message_Budget> Stream;
typedef beast::http::request<beast::http::string_body> Request;

/// Lets an operation give its error code and result as a tuple.
constexpr auto as_tuple = net::as_tuple(net::use_awaitable);

inline void set_deadline(Stream& stream, std::chrono::milliseconds span) {
  if (span.count() > 0) {
    stream.expires_after(span);
  } else {
    stream.expires_never();
  }
}

}  // namespace http_server
