#include "http/http_connection.h"

#include <sys/socket.h>

#include <array>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/websocket/rfc6455.hpp>
#include <string>
#include <string_view>

#include "ace/Log_Msg.h"
#include "http/bearer_token.h"
#include "http/beast_stream.h"
#include "http/pending_answer.h"
#include "http/websocket_session.h"
#include "kolt/metrics.h"

namespace http_server {

namespace http = beast::http;

namespace {

typedef http::request_parser<http::string_body> Parser;
typedef http::response<http::string_body> Response;

const kolt::Gauge open_connections("tessarin_http_connections", "Peers that are connected to the channel.");
const kolt::Counter refused_connections("tessarin_http_connections_refused_total",
                                        "Connections to the channel for which there was no place.");

kolt::Counter responses(unsigned status) {
  return kolt::Counter("tessarin_http_responses_total", "Answers of the channel, by status.",
                       {{"code", std::to_string(status)}});
}

const kolt::Counter good_responses = responses(200);

/// One peer. All operations run on the strand of the socket.
class Connection : public std::enable_shared_from_this<Connection> {
 public:
  Connection(Shared& shared, net::generic::stream_protocol::socket socket, std::shared_ptr<const std::string> token)
      : shared_(shared),
        limits_(shared.options.limits),
        token_(std::move(token)),
        stream_(std::move(socket)),
        buffer_(limits_.head_bytes + 16 * 1024),
        answer_timer_(stream_.get_executor()) {
    open_connections.add(1);
  }
  ~Connection() {
    shared_.table.leave(place_);
    open_connections.add(-1);
  }

  void start(const std::string& peer);

 private:
  net::awaitable<void> run();
  net::awaitable<bool> serve_one();
  net::awaitable<beast::error_code> read_head(Parser& parser);
  net::awaitable<beast::error_code> read_body(Parser& parser);
  net::awaitable<bool> post(Request request);
  net::awaitable<void> await_answer(std::shared_ptr<Pending_Answer> answer);
  void watch_peer(std::shared_ptr<Pending_Answer> answer);
  bool is_trusted(const Request& request) const;
  unsigned check(const Request& request) const;
  unsigned check_page(const Request& request, const HTTP_Page& page) const;
  net::awaitable<bool> refuse(unsigned status, bool keep_alive);
  net::awaitable<bool> answer(HTTP_Content content, bool keep_alive);
  net::awaitable<void> linger();
  void close();

  Shared& shared_;
  const HTTP_Server_Limits& limits_;
  const std::shared_ptr<const std::string> token_;
  Stream stream_;
  beast::flat_buffer buffer_;
  net::steady_timer answer_timer_;  // ends when the answer has arrived
  Connection_Table::Id place_ = 0;
  bool first_ = true;         // no request has been served yet
  bool to_head_ = false;      // the request is a HEAD: its answer has no body
  const char* allowed_ = "";  // what a refusal with 405 names
  bool closed_ = false;
};

void Connection::start(const std::string& peer) {
  auto close = [executor = stream_.get_executor(), weak = weak_from_this()] {
    net::post(executor, [weak] {
      if (const auto self = weak.lock()) self->close();
    });
  };
  place_ = shared_.table.admit(peer, std::move(close));
  if (place_ == 0) {
    refused_connections.add();
    ACE_ERROR((LM_ERROR, ACE_TEXT("Connection of %C refused: too many.\n"), peer.c_str()));
    return;
  }
  net::co_spawn(
      stream_.get_executor(), [self = shared_from_this()] { return self->run(); }, net::detached);
}

void Connection::close() {
  closed_ = true;
  answer_timer_.cancel();
  stream_.close();
}

net::awaitable<void> Connection::run() {
  const auto self = shared_from_this();
  while (!closed_) {
    const bool go_on = co_await serve_one();
    if (!go_on) break;
    first_ = false;
  }
  close();
}

bool has_body(const Request& request) {
  const std::string_view length(request[http::field::content_length]);
  return request.find(http::field::transfer_encoding) != request.end() || !(length.empty() || length == "0");
}

std::string_view path_of(const Request& request) {
  const std::string_view target(request.target());
  return target.substr(0, target.find('?'));
}

/// The page that is asked for, or null.
const HTTP_Page* find_page(const Shared& shared, const Request& request) {
  const auto found = shared.pages.find(path_of(request));
  return found == shared.pages.end() ? nullptr : &found->second;
}

bool Connection::is_trusted(const Request& request) const {
  return !token_ || bearer_token_fits(std::string_view(request[http::field::authorization]), *token_);
}

// The status that a request is refused with before its body is read; 0 for a good one.
unsigned Connection::check(const Request& request) const {
  if (const HTTP_Page* page = find_page(shared_, request)) return check_page(request, *page);
  if (!is_trusted(request)) return 401;
  if (path_of(request) != shared_.options.path) return 404;
  if (beast::websocket::is_upgrade(request)) return buffer_.size() == 0 ? 0 : 400;
  if (request.method() != http::verb::post) return 405;
  // A body whose end cannot be told would be read as the next request.
  if (request.find(http::field::transfer_encoding) != request.end() && !request.chunked()) return 400;
  const std::string_view expect(request[http::field::expect]);
  return expect.empty() || beast::iequals(expect, "100-continue") ? 0 : 417;
}

unsigned Connection::check_page(const Request& request, const HTTP_Page& page) const {
  if (page.access == HTTP_Page::ACCESS_TRUSTED && !is_trusted(request)) return 401;
  if (request.method() != http::verb::get && request.method() != http::verb::head) return 405;
  return has_body(request) ? 400 : 0;
}

unsigned status_of(beast::error_code error) {
  if (error == http::error::body_limit) return 413;
  if (error == http::error::header_limit || error == http::error::buffer_overflow) return 431;
  if (error == http::error::end_of_stream || error == http::error::partial_message) return 0;
  const bool malformed = error.category() == make_error_code(http::error::bad_version).category();
  return malformed ? 400 : 0;
}

/// @return whether the connection serves another request.
net::awaitable<bool> Connection::serve_one() {
  Parser parser;
  parser.header_limit(static_cast<std::uint32_t>(limits_.head_bytes));
  parser.body_limit(limits_.body_bytes);
  to_head_ = false;

  // Until its request is whole, a peer may have to give way: one that stalls in its body, too, or reads no refusal.
  shared_.table.waiting(place_);
  beast::error_code error = co_await read_head(parser);
  if (error) co_return co_await refuse(status_of(error), false);

  to_head_ = parser.get().method() == http::verb::head;
  if (const unsigned status = check(parser.get())) {
    // Without a body the next request begins right behind the head.
    allowed_ = find_page(shared_, parser.get()) ? "GET, HEAD" : "POST";
    co_return co_await refuse(status, status != 400 && !has_body(parser.get()) && parser.keep_alive());
  }
  if (const HTTP_Page* page = find_page(shared_, parser.get())) {
    shared_.table.busy(place_);
    HTTP_Content content = page->content({is_trusted(parser.get())});
    content.fields.insert(content.fields.end(), {{"Cache-Control", "no-store"}, {"X-Content-Type-Options", "nosniff"}});
    co_return co_await answer(std::move(content), parser.keep_alive());
  }
  if (beast::websocket::is_upgrade(parser.get())) {
    shared_.table.busy(place_);
    Request request = parser.release();
    co_await serve_websocket(shared_from_this(), stream_, std::move(request), shared_.service, limits_);
    co_return false;
  }
  error = co_await read_body(parser);
  if (error) co_return co_await refuse(status_of(error), false);
  shared_.table.busy(place_);
  Request request = parser.release();
  co_return co_await post(std::move(request));
}

net::awaitable<beast::error_code> Connection::read_head(Parser& parser) {
  beast::error_code error;
  if (!first_ && buffer_.size() == 0) {  // else the head has begun
    set_deadline(stream_, limits_.idle);
    error = std::get<0>(co_await http::async_read_some(stream_, buffer_, parser, as_tuple));
  }
  if (!error && !parser.is_header_done()) {
    set_deadline(stream_, limits_.head);
    error = std::get<0>(co_await http::async_read_header(stream_, buffer_, parser, as_tuple));
  }
  co_return error;
}

net::awaitable<beast::error_code> Connection::read_body(Parser& parser) {
  beast::error_code error;
  set_deadline(stream_, limits_.body);
  if (!parser.get()[http::field::expect].empty()) {
    http::response<http::empty_body> go_on(http::status::continue_, 11);
    error = std::get<0>(co_await http::async_write(stream_, go_on, as_tuple));
  }
  if (!error) error = std::get<0>(co_await http::async_read(stream_, buffer_, parser, as_tuple));
  co_return error;
}

net::awaitable<bool> Connection::post(Request request) {
  const bool keep_alive = request.keep_alive();
  const auto pending = std::make_shared<Pending_Answer>([self = shared_from_this()] {
    net::post(self->stream_.get_executor(), [self] { self->answer_timer_.cancel(); });
  });
  std::shared_ptr<void> kept = shared_.service.post(std::move(request.body()), pending);
  co_await await_answer(pending);

  unsigned status = 504;
  std::string body;
  const bool answered = pending->end(status, body);
  kept.reset();
  if (closed_) co_return false;
  if (!answered) co_return co_await refuse(504, keep_alive);
  HTTP_Content content{status, "application/json", std::move(body)};
  co_return co_await answer(std::move(content), keep_alive);
}

// Comes back when the answer has arrived, its time is over or the peer has gone.
net::awaitable<void> Connection::await_answer(std::shared_ptr<Pending_Answer> pending) {
  if (pending->has_arrived()) co_return;
  if (limits_.answer.count() > 0) {
    answer_timer_.expires_after(limits_.answer);
  } else {
    answer_timer_.expires_at(net::steady_timer::time_point::max());
  }
  stream_.expires_never();
  watch_peer(pending);
  co_await answer_timer_.async_wait(as_tuple);
  beast::error_code ignored;
  stream_.socket().cancel(ignored);  // the watch
}

// A peer that closes while its answer is made has gone; one that sends its next request is only looked at again later.
void Connection::watch_peer(std::shared_ptr<Pending_Answer> pending) {
  stream_.socket().async_wait(
      net::socket_base::wait_read, [self = shared_from_this(), pending](beast::error_code error) {
        char byte;
        if (error || pending->has_arrived()) return;
        if (::recv(self->stream_.socket().native_handle(), &byte, 1, MSG_PEEK | MSG_DONTWAIT) <= 0) self->close();
      });
}

net::awaitable<bool> Connection::refuse(unsigned status, bool keep_alive) {
  if (status == 0) co_return false;
  HTTP_Content content{status, "text/plain", std::string(http::obsolete_reason(static_cast<http::status>(status)))};
  content.body += '\n';
  co_return co_await answer(std::move(content), keep_alive);
}

// Callers name the content: GCC 12 destroys a braced temporary of a coroutine's argument twice.
net::awaitable<bool> Connection::answer(HTTP_Content content, bool keep_alive) {
  responses(content.status).add();
  Response response(static_cast<http::status>(content.status), 11);
  response.keep_alive(keep_alive);
  if (content.status == 401) response.set(http::field::www_authenticate, "Bearer");
  if (content.status == 405) response.set(http::field::allow, allowed_);
  if (!content.body.empty()) response.set(http::field::content_type, content.type);
  for (const auto& [name, value] : content.fields) response.set(name, value);
  if (content.status != 204) response.content_length(content.body.size());
  if (!to_head_) response.body() = std::move(content.body);

  set_deadline(stream_, limits_.write);
  const auto error = std::get<0>(co_await http::async_write(stream_, response, as_tuple));
  if (error) co_return false;
  if (!keep_alive) co_await linger();
  co_return keep_alive;
}

// Closing while the peer still sends would reset the connection and could take the answer away from it.
net::awaitable<void> Connection::linger() {
  beast::error_code error;
  stream_.socket().shutdown(net::socket_base::shutdown_send, error);
  set_deadline(stream_, limits_.linger);
  std::array<char, 4096> waste;
  while (!error) {
    error = std::get<0>(co_await stream_.async_read_some(net::buffer(waste), as_tuple));
  }
}

}  // namespace

void serve(Shared& shared, net::generic::stream_protocol::socket socket, const std::string& peer,
           std::shared_ptr<const std::string> token) {
  std::make_shared<Connection>(shared, std::move(socket), std::move(token))->start(peer);
}

}  // namespace http_server
