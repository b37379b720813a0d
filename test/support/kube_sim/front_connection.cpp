#include "support/kube_sim/front_connection.h"

#include <poll.h>

#include <boost/asio/write.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/websocket/rfc6455.hpp>

#include "support/kube_sim/answer_text.h"
#include "support/kube_sim/exec_websocket.h"
#include "support/kube_sim/status_document.h"

namespace kube_sim {

namespace {

Answer plain_text(int status, std::string text) {
  Answer answer;
  answer.status = status;
  answer.content_type = text.empty() ? "" : "text/plain; charset=utf-8";
  answer.body = std::move(text);
  return answer;
}

Request to_request(const http::request<http::string_body>& message) {
  Request request;
  request.method = std::string(message.method_string());
  request.body = message.body();
  for (const auto& field : message) {
    std::string name(field.name_string());
    for (char& letter : name) letter = beast::detail::ascii_tolower(letter);
    request.headers[name] = std::string(field.value());
  }
  return request;
}

bool wants_watch(const Request& request) {
  const std::string* watch = request.parameter("watch");
  return request.method == "GET" && watch != nullptr && (*watch == "true" || *watch == "1");
}

/// Whether the peer has closed, or sent what nobody asked for.
bool peer_is_silent(int socket) {
  pollfd state{socket, POLLIN | POLLRDHUP, 0};
  return poll(&state, 1, 0) == 0;
}

}  // namespace

/// Sends a watch in chunks, up to the byte where a fault cuts it.
class Watch_Writer : public Watch_Sink {
 public:
  Watch_Writer(std::function<bool(std::string_view)> write, std::function<bool()> open, bool close,
               std::optional<size_t> cut_at)
      : write_(std::move(write)), open_(std::move(open)), close_(close), left_(cut_at) {}

  bool start() override {
    Answer head;
    head.chunked = true;
    started_ = true;
    return good_ = write_(head_text(head, close_));
  }
  bool send(std::string_view text) override {
    if (!good_ || text.empty()) return good_;
    const bool whole = !left_ || text.size() <= *left_;
    if (left_) *left_ -= whole ? text.size() : 0;
    const std::string framed = chunk(text);
    const size_t prefix = framed.size() - text.size() - 2;
    good_ = write_(whole ? std::string_view(framed) : std::string_view(framed).substr(0, prefix + *left_)) && whole;
    return good_;
  }
  bool open() override { return good_ = good_ && open_(); }
  /// Whether the whole answer went out.
  bool end() { return good_ && started_ && write_(last_chunk); }

 private:
  std::function<bool(std::string_view)> write_;
  std::function<bool()> open_;
  bool close_;
  std::optional<size_t> left_;
  bool started_ = false;
  bool good_ = true;
};

Front_Connection::Front_Connection(Front_State& state, net::ssl::context& tls, Peer& peer)
    : state_(state), peer_(peer), stream_(peer.socket, tls) {}

void Front_Connection::run() {
  beast::error_code error;
  stream_.handshake(net::ssl::stream_base::server, error);
  if (error) return;
  state_.handshake_done(peer_.socket.native_handle());
  for (bool go_on = true; go_on;) {
    Message message;
    go_on = read(message) && serve(message);
  }
}

bool Front_Connection::read(Message& message) {
  http::request_parser<http::string_body> parser;
  parser.header_limit(static_cast<std::uint32_t>(state_.options().head_limit));
  parser.body_limit(state_.options().body_limit);
  beast::error_code error;
  http::read_header(stream_, buffer_, parser, error);
  if (!error && beast::iequals(parser.get()[http::field::expect], "100-continue"))
    write("HTTP/1.1 100 Continue\r\n\r\n");
  if (!error) http::read(stream_, buffer_, parser, error);
  if (error) {
    refuse(error);
    return false;
  }
  message = parser.release();
  keep_ = message.keep_alive();
  return true;
}

void Front_Connection::refuse(const beast::error_code& error) {
  Answer answer;
  if (error == http::error::end_of_stream || error == http::error::partial_message) return;
  if (error == http::error::body_limit)
    answer = failure(413, "RequestEntityTooLarge",
                     "Request entity too large: limit is " + std::to_string(state_.options().body_limit));
  else if (error == http::error::header_limit)
    answer = plain_text(431, "431 Request Header Fields Too Large");
  else if (error.category() == beast::error_code(http::error::bad_target).category())
    answer = plain_text(400, "400 Bad Request");
  else
    return;
  keep_ = false;
  send({}, answer, {});
}

bool Front_Connection::serve(const Message& message) {
  Request request = to_request(message);
  const bool good_target = set_target(request, message.target());
  const Fault fault = state_.record(request);
  if (fault.delay.count() > 0 && !state_.pause(fault.delay)) return false;
  if (fault.answer) return send(request, *fault.answer, fault);
  if (message.version() == 11 && message.count(http::field::host) == 0) {
    keep_ = false;
    return send(request, plain_text(400, "400 Bad Request: missing required Host header"), fault);
  }
  if (!good_target) return send(request, plain_text(400, "400 Bad Request"), fault);
  const bool ends_early = fault.end != Fault::End::NONE && fault.end != Fault::End::CUT_BODY;
  const bool is_upgrade = beast::iequals(message[http::field::upgrade], "websocket");
  if (ends_early && (is_upgrade || wants_watch(request))) return send(request, {}, fault);
  if (is_upgrade) return upgrade(message, request);
  if (wants_watch(request)) {
    bool is_watch = false;
    const bool go_on = serve_watch(request, fault, is_watch);
    if (is_watch) return go_on;
  }
  return send(request, compressed_for(request, state_.api().answer(request)), fault);
}

bool Front_Connection::serve_watch(const Request& request, const Fault& fault, bool& is_watch) {
  std::optional<size_t> cut_at;
  if (fault.end == Fault::End::CUT_BODY) cut_at = fault.body_bytes;
  Watch_Writer writer([this](std::string_view bytes) { return write(bytes); },
                      [this] { return !state_.stopping() && peer_is_silent(peer_.socket.native_handle()); }, !keep_,
                      cut_at);
  is_watch = state_.api().watch(request, writer);
  if (!is_watch || !writer.end()) return false;
  if (!keep_) finish();
  return keep_;
}

bool Front_Connection::upgrade(const Message& message, const Request& request) {
  if (!beast::websocket::is_upgrade(message)) {
    keep_ = false;
    return send(request, request.method == "GET" ? plain_text(400, "400 Bad Request") : plain_text(405, "bad method"),
                {});
  }
  Answer refusal = plain_text(404, "404 page not found\n");
  const std::unique_ptr<Exec> exec = state_.api().exec(request, refusal);
  if (!exec) return send(request, refusal, {});
  const std::optional<std::string> protocol = agreed_protocol(request);
  if (!protocol) {
    keep_ = false;
    return send(request, plain_text(403, ""), {});
  }
  Exec_WebSocket stream(state_, peer_, stream_, *protocol);
  if (stream.accept(message)) {
    exec->run(stream);
    stream.close(1000, "");
  }
  return false;
}

bool Front_Connection::send(const Request& request, const Answer& answer, const Fault& fault) {
  if (fault.end == Fault::End::RESET) reset();
  if (fault.end == Fault::End::RESET || fault.end == Fault::End::DROP_BEFORE_HEAD) return false;
  const std::string head = head_text(answer, !keep_);
  if (fault.end == Fault::End::DROP_IN_HEAD) {
    write(std::string_view(head).substr(0, head.size() / 2));
    return false;
  }
  std::optional<size_t> cut_at;
  if (fault.end == Fault::End::CUT_BODY) cut_at = fault.body_bytes;
  const std::string body = request.method == "HEAD" ? "" : body_text(answer, cut_at);
  if (!write(head + body) || cut_at) return false;
  if (!keep_) finish();
  return keep_;
}

bool Front_Connection::write(std::string_view bytes) {
  beast::error_code error;
  net::write(stream_, net::buffer(bytes), error);
  return !error;
}

void Front_Connection::finish() {
  constexpr std::chrono::milliseconds patience(500);
  constexpr int most_reads = 16 * 1024;
  beast::error_code error;
  stream_.async_shutdown([](beast::error_code) {});
  peer_.context.restart();
  peer_.context.run_for(patience);
  peer_.socket.cancel(error);
  peer_.context.run();
  char ignored[16 * 1024];
  pollfd state{peer_.socket.native_handle(), POLLIN, 0};
  peer_.socket.shutdown(net::ip::tcp::socket::shutdown_send, error);
  for (int i = 0; i < most_reads && !error && poll(&state, 1, patience.count()) > 0; ++i)
    peer_.socket.read_some(net::buffer(ignored), error);
}

void Front_Connection::reset() {
  beast::error_code error;
  peer_.socket.set_option(net::socket_base::linger(true, 0), error);
}

}  // namespace kube_sim
