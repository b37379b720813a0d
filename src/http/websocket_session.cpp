#include "http/websocket_session.h"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/post.hpp>
#include <boost/beast/core/buffers_to_string.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/websocket/stream.hpp>
#include <deque>
#include <mutex>

#include "ace/Log_Msg.h"

namespace http_server {

namespace websocket = beast::websocket;

namespace {

/// What is sent to one WebSocket peer. Kept alive by who may send and by its own writes.
class Session : public std::enable_shared_from_this<Session> {
 public:
  Session(std::shared_ptr<void> owner, Stream& stream, const HTTP_Server_Limits& limits)
      : owner_(std::move(owner)), limits_(limits), stream_(stream), socket_(stream) {}

  net::awaitable<void> run(Request request, HTTP_Service& service);
  void queue(std::string text);

 private:
  net::awaitable<bool> accept(Request& request);
  net::awaitable<void> read(WebSocket_Receiver& receiver);
  net::awaitable<void> write();

  const std::shared_ptr<void> owner_;
  const HTTP_Server_Limits& limits_;
  Stream& stream_;
  websocket::stream<Stream&> socket_;
  std::deque<std::string> unsent_;
  size_t unsent_bytes_ = 0;
  bool writing_ = false;
  bool ended_ = false;
};

/// What a service holds of a session, also after its end. Threads: any.
class Sender : public WebSocket_Sender {
 public:
  Sender(std::shared_ptr<Session> session, net::any_io_executor executor)
      : session_(std::move(session)), executor_(std::move(executor)) {}

  int send(std::string text) override {
    const std::lock_guard guard(lock_);
    if (!session_) return -1;
    net::post(executor_, [session = session_, text = std::move(text)]() mutable { session->queue(std::move(text)); });
    return 0;
  }

  /// Nothing is sent from now on.
  void end() {
    const std::lock_guard guard(lock_);
    session_.reset();
    executor_ = net::any_io_executor();
  }

 private:
  std::mutex lock_;
  std::shared_ptr<Session> session_;  // guarded by lock_, as all below
  net::any_io_executor executor_;
};

net::awaitable<bool> Session::accept(Request& request) {
  websocket::stream_base::timeout timeout{};
  const auto span = [](std::chrono::milliseconds value) {
    return value.count() > 0 ? websocket::stream_base::duration(value) : websocket::stream_base::none();
  };
  timeout.handshake_timeout = span(limits_.handshake);
  timeout.idle_timeout = span(limits_.idle);
  timeout.keep_alive_pings = true;
  stream_.set_deadline({});  // the WebSocket has its own clock
  socket_.set_option(timeout);
  socket_.read_message_max(limits_.message_bytes);
  socket_.text(true);
  const auto error = std::get<0>(co_await socket_.async_accept(request, as_tuple));
  co_return !error;
}

net::awaitable<void> Session::run(Request request, HTTP_Service& service) {
  const auto self = shared_from_this();
  const bool accepted = co_await accept(request);
  if (!accepted) co_return;

  const auto sender = std::make_shared<Sender>(self, stream_.get_executor());
  auto receiver = service.upgraded(sender);
  if (receiver) co_await read(*receiver);
  sender->end();
  receiver.reset();
  ended_ = true;
  stream_.close();
}

net::awaitable<void> Session::read(WebSocket_Receiver& receiver) {
  auto& meter = stream_.meter();
  meter.limit(limits_.message_bytes + limits_.message_overhead_bytes, [self = shared_from_this()] {
    ACE_ERROR((LM_ERROR, ACE_TEXT("WebSocket ended: a message in too many fragments.\n")));
    net::post(self->stream_.get_executor(), [self] { self->stream_.close(); });
  });
  // A control frame may stand between the fragments of a message: 6 bytes of head, with the mask, and its payload.
  socket_.control_callback(
      [&meter](websocket::frame_type, beast::string_view payload) { meter.discount(6 + payload.size()); });
  for (;;) {
    beast::flat_buffer message;
    const auto error = std::get<0>(co_await socket_.async_read(message, as_tuple));
    if (error) break;
    meter.restart();
    receiver.message(beast::buffers_to_string(message.data()));
  }
  socket_.control_callback();
  meter.limit(0, nullptr);
}

void Session::queue(std::string text) {
  if (ended_) return;
  if (unsent_bytes_ + text.size() > limits_.unsent_bytes) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("WebSocket ended: its peer does not read.\n")));
    ended_ = true;
    stream_.close();
    return;
  }
  unsent_bytes_ += text.size();
  unsent_.push_back(std::move(text));
  if (writing_) return;
  writing_ = true;
  net::co_spawn(
      stream_.get_executor(), [self = shared_from_this()] { return self->write(); }, net::detached);
}

net::awaitable<void> Session::write() {
  const auto self = shared_from_this();
  while (!unsent_.empty() && !ended_) {
    const auto error = std::get<0>(co_await socket_.async_write(net::buffer(unsent_.front()), as_tuple));
    if (error) break;
    unsent_bytes_ -= unsent_.front().size();
    unsent_.pop_front();
  }
  writing_ = false;
}

}  // namespace

net::awaitable<void> serve_websocket(std::shared_ptr<void> owner, Stream& stream, Request request,
                                     HTTP_Service& service, const HTTP_Server_Limits& limits) {
  const auto session = std::make_shared<Session>(std::move(owner), stream, limits);
  co_await session->run(std::move(request), service);
}

}  // namespace http_server
