#pragma once

// Slow to compile: for the sources of the server and of the WebSocket client alone.

#include <array>
#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/as_tuple.hpp>
#include <boost/asio/associated_executor.hpp>
#include <boost/asio/awaitable.hpp>
#include <boost/asio/bind_executor.hpp>
#include <boost/asio/buffer.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/generic/stream_protocol.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/beast/core/error.hpp>
#include <boost/beast/core/role.hpp>
#include <chrono>
#include <exception>
#include <memory>

#include "http/message_meter.h"

typedef struct ssl_st SSL;
typedef struct ssl_ctx_st SSL_CTX;

namespace http_wire {

namespace net = boost::asio;
namespace beast = boost::beast;

/// Lets an operation give its error code and result as a tuple.
constexpr auto as_tuple = net::as_tuple(net::use_awaitable);

/// Who waits for the end of a read or write, whatever its type: what Beast makes of its templates is compiled for one
/// stream, and what lies below, plain or TLS, for one kind of handler.
class Transfer {
 public:
  explicit Transfer(net::any_io_executor executor) : executor_(std::move(executor)) {}
  virtual ~Transfer() = default;
  /// @param self  this object, which is gone when its handler is called.
  virtual void ended(std::unique_ptr<Transfer> self, beast::error_code error, size_t bytes) = 0;
  const net::any_io_executor& executor() const { return executor_; }

 private:
  const net::any_io_executor executor_;
};

template <typename Handler>
class Transfer_For : public Transfer {
 public:
  Transfer_For(Handler&& handler, const net::any_io_executor& otherwise)
      : Transfer(net::get_associated_executor(handler, otherwise)), handler_(std::move(handler)) {}

  void ended(std::unique_ptr<Transfer> self, beast::error_code error, size_t bytes) override {
    Handler handler(std::move(handler_));
    self.reset();
    std::move(handler)(error, bytes);
  }

 private:
  Handler handler_;
};

/**
 * A connection, plain or TLS, with a deadline for what is under way: one read and one write at a time. It models
 * Asio's AsyncReadStream and AsyncWriteStream. All happens on the executor of the socket.
 */
class Stream {
 public:
  typedef net::any_io_executor executor_type;

  /// @param tls     null: plain.
  /// @param linger  how long linger() waits for the peer to read what was written.
  Stream(net::generic::stream_protocol::socket socket, SSL_CTX* tls, std::chrono::milliseconds linger);
  ~Stream();

  executor_type get_executor() { return executor_; }

  /// That of TLS; there is none of a plain connection.
  net::awaitable<beast::error_code> handshake(beast::role_type role);
  /// Null for a plain connection.
  SSL* tls();
  /// For what is begun from now on. 0: no limit.
  void set_deadline(std::chrono::milliseconds span);
  /// Ends a read or write that is under way.
  void cancel();
  /// At once; what is under way ends.
  void close();
  /// Says that nothing comes any more, and waits for the peer to say so too: closing while it still sends would reset
  /// the connection and could take away what it has not read.
  net::awaitable<void> linger();
  /// Counts what is read.
  Message_Meter& meter() { return meter_; }

  template <typename Buffers, typename Token>
  typename net::async_result<std::decay_t<Token>, void(beast::error_code, size_t)>::return_type async_read_some(
      const Buffers& buffers, Token&& token) {
    return net::async_initiate<Token, void(beast::error_code, size_t)>(
        [this](auto handler, const Reads& pieces) { read_some(pieces, transfer_for(std::move(handler))); }, token,
        pieces_of<Reads>(buffers));
  }

  template <typename Buffers, typename Token>
  typename net::async_result<std::decay_t<Token>, void(beast::error_code, size_t)>::return_type async_write_some(
      const Buffers& buffers, Token&& token) {
    return net::async_initiate<Token, void(beast::error_code, size_t)>(
        [this](auto handler, const Writes& pieces) { write_some(pieces, transfer_for(std::move(handler))); }, token,
        pieces_of<Writes>(buffers));
  }

 private:
  class Lower;
  typedef std::array<net::mutable_buffer, 4> Reads;
  typedef std::array<net::const_buffer, 16> Writes;

  /// The first ones; what is read or written may always be less than was asked for.
  template <typename Pieces, typename Buffers>
  static Pieces pieces_of(const Buffers& buffers) {
    Pieces pieces;
    size_t count = 0;
    const auto end = net::buffer_sequence_end(buffers);
    for (auto i = net::buffer_sequence_begin(buffers); i != end && count < pieces.size(); ++i) {
      const typename Pieces::value_type piece(*i);
      if (piece.size() > 0) pieces[count++] = piece;
    }
    return pieces;
  }

  template <typename Handler>
  std::unique_ptr<Transfer> transfer_for(Handler handler) {
    return std::make_unique<Transfer_For<Handler>>(std::move(handler), executor_);
  }

  void read_some(const Reads& pieces, std::unique_ptr<Transfer> transfer);
  void write_some(const Writes& pieces, std::unique_ptr<Transfer> transfer);

  const net::any_io_executor executor_;
  const std::chrono::milliseconds linger_;
  Message_Meter meter_;
  std::unique_ptr<Lower> lower_;
};

/// For Beast's WebSocket: its clock ends a connection.
inline void beast_close_socket(Stream& stream) {
  stream.close();
}

/// For Beast's WebSocket: behind the last frame.
template <typename Handler>
void async_teardown(beast::role_type, Stream& stream, Handler&& handler) {
  const auto executor = net::get_associated_executor(handler, stream.get_executor());
  net::co_spawn(
      stream.get_executor(), [&stream] { return stream.linger(); },
      net::bind_executor(executor, [handler = std::forward<Handler>(handler)](std::exception_ptr) mutable {
        std::move(handler)(beast::error_code());
      }));
}

}  // namespace http_wire
