#include "http/http_connection.h"

#include <algorithm>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/ssl/error.hpp>
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
  Connection(Shared& shared, net::generic::stream_protocol::socket socket, const Admission& admission)
      : shared_(shared),
        limits_(shared.options.limits),
        access_(admission.access),
        peer_(admission.peer),
        stream_(std::move(socket), admission.tls.get(), limits_.linger),
        buffer_(limits_.head_bytes + 16 * 1024),
        answer_timer_(stream_.get_executor()) {
    open_connections.add(1);
  }
  ~Connection() {
    shared_.table.leave(place_);
    open_connections.add(-1);
  }

  void start();

 private:
  net::awaitable<void> run();
  net::awaitable<bool> handshake();
  net::awaitable<bool> serve_one();
  net::awaitable<beast::error_code> read_head(Parser& parser);
  net::awaitable<beast::error_code> read_body(Parser& parser);
  net::awaitable<bool> post(Request request);
  std::shared_ptr<Pending_Answer> make_pending();
  net::awaitable<void> await_answer(std::shared_ptr<Pending_Answer> answer, std::chrono::milliseconds span);
  void watch_peer(std::shared_ptr<Pending_Answer> answer);
  net::awaitable<unsigned> ask_access(const Request& request);
  unsigned check(const Request& request, const HTTP_Page* page, unsigned access) const;
  net::awaitable<bool> refuse(unsigned status, bool keep_alive);
  net::awaitable<bool> answer(HTTP_Content content, bool keep_alive);
  void close();

  Shared& shared_;
  const HTTP_Server_Limits& limits_;
  const std::shared_ptr<Access_Check> access_;
  const std::string peer_;
  Stream stream_;
  beast::flat_buffer buffer_;
  net::steady_timer answer_timer_;  // ends when the answer has arrived
  Connection_Table::Id place_ = 0;
  bool first_ = true;         // no request has been served yet
  bool to_head_ = false;      // the request is a HEAD: its answer has no body
  const char* allowed_ = "";  // what a refusal with 405 names
  bool watching_ = false;     // whether the peer goes; it is being read from
  bool closed_ = false;
};

void Connection::start() {
  auto close = [executor = stream_.get_executor(), weak = weak_from_this()] {
    net::post(executor, [weak] {
      if (const auto self = weak.lock()) self->close();
    });
  };
  place_ = shared_.table.admit(peer_, std::move(close));
  if (place_ == 0) {
    refused_connections.add();
    ACE_ERROR((LM_ERROR, ACE_TEXT("Connection of %C refused: too many.\n"), peer_.c_str()));
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
  bool go_on = co_await handshake();
  while (go_on && !closed_) {
    go_on = co_await serve_one();
    first_ = false;
  }
  close();
}

net::awaitable<bool> Connection::handshake() {
  stream_.set_deadline(limits_.tls_handshake);
  const auto error = co_await stream_.handshake(beast::role_type::server);
  // Who only looks whether the port is open is not worth a line.
  if (error.category() == net::error::get_ssl_category()) shared_.refusals.tell(peer_, error.message());
  co_return !error;
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

/// Whether the caller may use the channel: 200, or the status of the refusal.
net::awaitable<unsigned> Connection::ask_access(const Request& request) {
  if (!access_) co_return 200;
  // One that is told twice might be read differently elsewhere.
  std::string token;
  if (request.count(http::field::authorization) != 1 ||
      !bearer_token(std::string_view(request[http::field::authorization]), token)) {
    co_return 401;
  }
  const auto verdict = make_pending();
  unsigned status = access_->check(token, verdict);
  if (status != 0) co_return status;
  co_await await_answer(verdict, limits_.access);
  std::string unused;
  co_return verdict->end(status, unused) ? status : 503;
}

/// The status that a request is refused with before its body is read; 0 for a good one.
unsigned Connection::check(const Request& request, const HTTP_Page* page, unsigned access) const {
  const bool open = page && page->access == HTTP_Page::ACCESS_OPEN;
  if (access != 200 && !open) return access;
  if (page) {
    if (request.method() != http::verb::get && request.method() != http::verb::head) return 405;
    return has_body(request) ? 400 : 0;
  }
  if (path_of(request) != shared_.options.path) return 404;
  if (beast::websocket::is_upgrade(request)) return buffer_.size() == 0 ? 0 : 400;
  if (request.method() != http::verb::post) return 405;
  // A body whose end cannot be told would be read as the next request.
  if (request.find(http::field::transfer_encoding) != request.end() && !request.chunked()) return 400;
  const std::string_view expect(request[http::field::expect]);
  return expect.empty() || beast::iequals(expect, "100-continue") ? 0 : 417;
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

  // Until its request is whole, a peer may have to give way: one that stalls in its body, too, shows a token that must
  // be asked for, or reads no refusal.
  shared_.table.waiting(place_);
  beast::error_code error = co_await read_head(parser);
  if (error) co_return co_await refuse(status_of(error), false);

  to_head_ = parser.get().method() == http::verb::head;
  const HTTP_Page* const page = find_page(shared_, parser.get());
  const unsigned access = co_await ask_access(parser.get());
  if (closed_) co_return false;
  if (const unsigned status = check(parser.get(), page, access)) {
    if (status == access) shared_.refusals.tell(peer_, "status " + std::to_string(status));
    // Without a body the next request begins right behind the head.
    allowed_ = page ? "GET, HEAD" : "POST";
    co_return co_await refuse(status, status != 400 && !has_body(parser.get()) && parser.keep_alive());
  }
  if (page) {
    shared_.table.busy(place_);
    HTTP_Content content = page->content({access == 200});
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
    stream_.set_deadline(limits_.idle);
    error = std::get<0>(co_await http::async_read_some(stream_, buffer_, parser, as_tuple));
  }
  if (!error && !parser.is_header_done()) {
    stream_.set_deadline(limits_.head);
    error = std::get<0>(co_await http::async_read_header(stream_, buffer_, parser, as_tuple));
  }
  co_return error;
}

net::awaitable<beast::error_code> Connection::read_body(Parser& parser) {
  beast::error_code error;
  stream_.set_deadline(limits_.body);
  if (!parser.get()[http::field::expect].empty()) {
    http::response<http::empty_body> go_on(http::status::continue_, 11);
    error = std::get<0>(co_await http::async_write(stream_, go_on, as_tuple));
  }
  if (!error) error = std::get<0>(co_await http::async_read(stream_, buffer_, parser, as_tuple));
  co_return error;
}

std::shared_ptr<Pending_Answer> Connection::make_pending() {
  return std::make_shared<Pending_Answer>([self = shared_from_this()] {
    net::post(self->stream_.get_executor(), [self] { self->answer_timer_.cancel(); });
  });
}

net::awaitable<bool> Connection::post(Request request) {
  const bool keep_alive = request.keep_alive();
  const auto pending = make_pending();
  std::shared_ptr<void> kept = shared_.service.post(std::move(request.body()), pending);
  co_await await_answer(pending, limits_.answer);

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
net::awaitable<void> Connection::await_answer(std::shared_ptr<Pending_Answer> pending, std::chrono::milliseconds span) {
  if (pending->has_arrived()) co_return;
  constexpr auto never = net::steady_timer::time_point::max();
  const auto end = span.count() > 0 ? net::steady_timer::clock_type::now() + span : never;
  stream_.set_deadline({});
  watch_peer(pending);
  answer_timer_.expires_at(end);
  while (!pending->has_arrived() && !closed_ && net::steady_timer::clock_type::now() < end) {
    co_await answer_timer_.async_wait(as_tuple);
  }
  if (watching_) stream_.cancel();
  answer_timer_.expires_at(never);
  while (watching_) co_await answer_timer_.async_wait(as_tuple);
}

// A peer that closes while its answer is made has gone. What it sends meanwhile goes on with its request, or begins the
// next one; it is only looked at again later.
void Connection::watch_peer(std::shared_ptr<Pending_Answer> pending) {
  constexpr size_t bytes = 512;
  if (watching_ || buffer_.max_size() - buffer_.size() < bytes) return;
  watching_ = true;
  stream_.async_read_some(buffer_.prepare(bytes),
                          [self = shared_from_this(), pending](beast::error_code error, size_t received) {
                            self->watching_ = false;
                            self->buffer_.commit(received);
                            if (error && error != net::error::operation_aborted && !pending->has_arrived())
                              self->close();
                            self->answer_timer_.cancel();
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

  stream_.set_deadline(limits_.write);
  const auto error = std::get<0>(co_await http::async_write(stream_, response, as_tuple));
  if (error) co_return false;
  if (!keep_alive) co_await stream_.linger();
  co_return keep_alive;
}

}  // namespace

void serve(Shared& shared, net::generic::stream_protocol::socket socket, const Admission& admission) {
  std::make_shared<Connection>(shared, std::move(socket), admission)->start();
}

}  // namespace http_server
