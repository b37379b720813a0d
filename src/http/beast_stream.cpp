#include "http/beast_stream.h"

#include <openssl/ssl.h>
#include <sys/socket.h>

#include <algorithm>
#include <boost/asio/ssl/stream.hpp>
#include <boost/beast/core/basic_stream.hpp>
#include <optional>
#include <vector>

namespace http_wire {

namespace {

typedef beast::basic_stream<net::generic::stream_protocol, net::any_io_executor> Plain;
typedef net::ssl::stream<Plain&> TLS;

/// A record of TLS holds no more.
constexpr size_t record_bytes = 16 * 1024;

/// The one kind of handler that sockets and TLS know.
class Upcall {
 public:
  typedef net::any_io_executor executor_type;

  Upcall(std::unique_ptr<Transfer> transfer, Message_Meter* meter)
      : executor_(transfer->executor()), transfer_(std::move(transfer)), meter_(meter) {}

  void operator()(beast::error_code error, size_t bytes) {
    if (meter_) meter_->received(bytes);
    Transfer* const transfer = transfer_.get();
    transfer->ended(std::move(transfer_), error, bytes);
  }
  executor_type get_executor() const noexcept { return executor_; }

 private:
  net::any_io_executor executor_;
  std::unique_ptr<Transfer> transfer_;
  Message_Meter* meter_;
};

}  // namespace

class Stream::Lower {
 public:
  Lower(net::generic::stream_protocol::socket socket, SSL_CTX* context) : plain(std::move(socket)) {
    if (context) tls.emplace(plain, ::SSL_new(context));
  }

  Plain plain;
  std::optional<TLS> tls;
  std::vector<char> record;  // what is being written, in one piece
};

Stream::Stream(net::generic::stream_protocol::socket socket, SSL_CTX* tls, std::chrono::milliseconds linger)
    : executor_(socket.get_executor()), linger_(linger), lower_(std::make_unique<Lower>(std::move(socket), tls)) {}

Stream::~Stream() = default;

net::awaitable<beast::error_code> Stream::handshake(beast::role_type role) {
  if (!lower_->tls) co_return beast::error_code();
  const auto type = role == beast::role_type::server ? net::ssl::stream_base::server : net::ssl::stream_base::client;
  co_return std::get<0>(co_await lower_->tls->async_handshake(type, as_tuple));
}

SSL* Stream::tls() {
  return lower_->tls ? lower_->tls->native_handle() : nullptr;
}

void Stream::set_deadline(std::chrono::milliseconds span) {
  if (span.count() > 0) {
    lower_->plain.expires_after(span);
  } else {
    lower_->plain.expires_never();
  }
}

void Stream::cancel() {
  lower_->plain.cancel();
}

void Stream::close() {
  lower_->plain.close();
}

net::awaitable<void> Stream::linger() {
  set_deadline(linger_);
  beast::error_code error;
  if (lower_->tls) co_await lower_->tls->async_shutdown(as_tuple);
  lower_->plain.socket().shutdown(net::socket_base::shutdown_send, error);
  std::array<char, 4096> waste;
  while (!error) error = std::get<0>(co_await lower_->plain.async_read_some(net::buffer(waste), as_tuple));
}

void Stream::read_some(const Reads& pieces, std::unique_ptr<Transfer> transfer) {
  Upcall upcall(std::move(transfer), &meter_);
  if (lower_->tls) {
    lower_->tls->async_read_some(pieces[0], std::move(upcall));
  } else {
    lower_->plain.async_read_some(pieces, std::move(upcall));
  }
}

// TLS makes a record of each piece that it is given.
void Stream::write_some(const Writes& pieces, std::unique_ptr<Transfer> transfer) {
  Upcall upcall(std::move(transfer), nullptr);
  if (!lower_->tls) return lower_->plain.async_write_some(pieces, std::move(upcall));
  auto& record = lower_->record;
  record.resize(std::min(net::buffer_size(pieces), record_bytes));
  net::buffer_copy(net::buffer(record), pieces);
  lower_->tls->async_write_some(net::buffer(record), std::move(upcall));
}

}  // namespace http_wire
