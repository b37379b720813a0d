#pragma once

// Slow to compile: for the sources of the front alone.

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/ssl/stream.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/string_body.hpp>
#include <optional>

#include "support/kube_sim/front_state.h"

namespace kube_sim {

namespace net = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;

/// An accepted socket with the context that belongs to its thread.
struct Peer {
  net::io_context context{1};
  net::ip::tcp::socket socket{context};
};

typedef net::ssl::stream<net::ip::tcp::socket&> Tls_Stream;

/// One connection of a front, served by the thread that calls `run`.
class Front_Connection {
 public:
  Front_Connection(Front_State& state, net::ssl::context& tls, Peer& peer);
  /// Returns when the connection is over; the socket is still to be closed.
  void run();

 private:
  typedef http::request<http::string_body> Message;

  /// False when the connection has to end; what can be answered to a bad request has been.
  bool read(Message& message);
  void refuse(const beast::error_code& error);
  /// These return whether the connection goes on.
  bool serve(const Message& message);
  bool serve_watch(const Request& request, const Fault& fault, bool& is_watch);
  bool upgrade(const Message& message, const Request& request);
  bool send(const Request& request, const Answer& answer, const Fault& fault);

  bool write(std::string_view bytes);
  /// Ends the connection in good order: what was sent arrives even if the peer still sends.
  void finish();
  void reset();

  Front_State& state_;
  Peer& peer_;
  Tls_Stream stream_;
  beast::flat_buffer buffer_;
  bool keep_ = true;  ///< whether the peer wants another answer on this connection
};

}  // namespace kube_sim
