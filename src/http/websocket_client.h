#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/websocket/stream.hpp>
#include <memory>
#include <optional>
#include <string>

#include "http/beast_stream.h"
#include "http/websocket_connection.h"

// Slow to compile: for the sources of the WebSocket client alone.

namespace websocket_client {

namespace net = boost::asio;
namespace beast = boost::beast;
namespace websocket = boost::beast::websocket;
using boost::system::error_code;
typedef Message_Meter::Clock Clock;

struct Target {
  /// As in a URL: an IPv6 address has brackets.
  std::string host;
  unsigned short port;
  bool tls;
  /// Empty: any.
  std::string local_address;
  std::chrono::seconds timeout;
};

/// The context of one connection, with the issuers that are trusted now. @a error is set on failure.
net::ssl::context tls_context(error_code& error);
/// Before the handshake: whom the certificate has to name.
void expect_name(SSL* ssl, const std::string& host);
/// Why a handshake failed.
std::string tls_reason(SSL* ssl, const error_code& error);
/// @a host without the brackets of an IPv6 address.
std::string bare_host(const std::string& host);

/**
 * The WebSocket client on Boost.Beast. What is asynchronous there is started and waited for here, so that every wait
 * has a deadline; the event loop runs only inside of the calls.
 */
class Client : public WebSocket_Connection {
 public:
  explicit Client(const Target& target) : target_(target) {}

  void configure(int idle_seconds) override { idle_ = std::chrono::seconds(idle_seconds); }
  HTTP_Request& request() override { return request_; }
  int connect() override;
  int handshake() override;
  HTTP_SOCK_State state() const override { return state_; }
  ssize_t receive(const char*& data, std::size_t& length, unsigned char& opcode,
                  const ACE_Time_Value* timeout) override;
  void close() override;

 private:
  typedef std::optional<error_code> Result;
  struct Done;

  error_code connect_tcp(Clock::time_point deadline);
  error_code connect_tcp(const net::ip::tcp::endpoint& endpoint, Clock::time_point deadline);
  int make_stream(Clock::time_point deadline);
  void prepare_handshake();
  bool takes_protocol() const;
  int log_refusal();

  /// Waits until @a done has a value, or the WebSocket has ended. False, with the failure logged, when there is no
  /// sense in waiting longer.
  bool wait_for_message(const Result& done, Clock::time_point begin, Clock::time_point deadline);
  void ping_if_due();
  ssize_t end_of_messages(const error_code& error);
  Clock::duration ping_period() const;

  /// Starts an operation and runs it to its end, or to the deadline: then the connection is closed.
  template <typename Start>
  error_code run(Clock::time_point deadline, Start start);
  Clock::time_point limit() const { return Clock::now() + target_.timeout; }
  void drop();
  int fail(const char* what, const std::string& why);

  const Target target_;
  std::chrono::seconds idle_{0};
  HTTP_Request request_;
  HTTP_SOCK_State state_ = HTTP_SOCK_STATE_CLOSED;

  net::io_context io_{1};
  std::optional<net::ssl::context> context_;
  net::ip::tcp::socket tcp_{io_};  // until it is connected
  std::optional<http_wire::Stream> stream_;
  std::optional<websocket::stream<http_wire::Stream&>> socket_;
  websocket::response_type response_;
  beast::flat_buffer message_;
  bool pinging_ = false;
  Clock::time_point next_ping_;
  bool closed_ = false;                   // by a close frame of the server
  std::optional<Clock::time_point> end_;  // of the wait behind a close frame, or behind a broken protocol
};

}  // namespace websocket_client
