#include "support/kube_sim/exec_websocket.h"

#include <boost/beast/core/buffers_to_string.hpp>
#include <boost/beast/http/rfc7230.hpp>
#include <boost/beast/websocket/ssl.hpp>

#include "kolt/base64_decoder.h"
#include "kolt/base64_encoder.h"

namespace kube_sim {

namespace websocket = boost::beast::websocket;

namespace {

constexpr std::string_view known_protocols[] = {"v5.channel.k8s.io",    "v4.channel.k8s.io", "v3.channel.k8s.io",
                                                "v2.channel.k8s.io",    "channel.k8s.io",    "v5.base64.channel.k8s.io",
                                                "base64.channel.k8s.io"};
constexpr std::chrono::seconds close_patience{1};

/// A frame of the base64 protocol: the channel as a digit, the rest encoded.
std::string decoded(const std::string& frame) {
  Base64_Decoder decoder;
  if (frame.empty() || !decoder.set(frame.data() + 1, static_cast<int>(frame.size() - 1))) return frame;
  return static_cast<char>(frame[0] - '0') +
         std::string(reinterpret_cast<const char*>(decoder.get()), decoder.length());
}

}  // namespace

std::optional<std::string> agreed_protocol(const Request& request) {
  const std::string asked = request.header("sec-websocket-protocol");
  if (asked.empty()) return "";
  for (const auto token : http::token_list(asked))
    for (const std::string_view known : known_protocols)
      if (std::string_view(token.data(), token.size()) == known) return std::string(known);
  return std::nullopt;
}

Exec_WebSocket::Exec_WebSocket(Front_State& state, Peer& peer, Tls_Stream& stream, const std::string& protocol)
    : state_(state), peer_(peer), socket_(stream), protocol_(protocol) {}

Exec_WebSocket::~Exec_WebSocket() {
  // The read that is under way ends before what it fills is gone.
  drop();
  peer_.context.restart();
  peer_.context.run_for(close_patience);
}

bool Exec_WebSocket::accept(const http::request<http::string_body>& upgrade) {
  socket_.set_option(websocket::stream_base::decorator(
      [this](websocket::response_type& response) { response.set(http::field::sec_websocket_protocol, protocol_); }));
  socket_.auto_fragment(false);
  beast::error_code error;
  socket_.accept(upgrade, error);
  open_ = !error;
  if (open_) read();
  return open_;
}

void Exec_WebSocket::read() {
  socket_.async_read(incoming_, [this](beast::error_code error, size_t) {
    if (error) {
      open_ = false;
      return;
    }
    const std::string frame = beast::buffers_to_string(incoming_.data());
    incoming_.consume(incoming_.size());
    frames_.push_back(base64() ? decoded(frame) : frame);
    read();
  });
}

void Exec_WebSocket::run_until(const bool& done) {
  peer_.context.restart();
  while (!done && peer_.context.run_one() > 0) continue;
}

bool Exec_WebSocket::send(unsigned char channel, std::string_view payload) {
  if (base64()) return send_raw(static_cast<char>('0' + channel) + base64_encode(payload), true);
  return send_raw(static_cast<char>(channel) + std::string(payload), false);
}

bool Exec_WebSocket::send_raw(std::string_view payload, bool text) {
  if (!open()) return false;
  socket_.text(text);
  bool done = false, good = false;
  socket_.async_write(net::buffer(payload), [&](beast::error_code error, size_t) {
    done = true;
    good = !error;
  });
  run_until(done);
  return good;
}

bool Exec_WebSocket::ping() {
  if (!open()) return false;
  bool done = false, good = false;
  socket_.async_ping({}, [&](beast::error_code error) {
    done = true;
    good = !error;
  });
  run_until(done);
  return good;
}

bool Exec_WebSocket::receive(std::string& frame, std::chrono::milliseconds patience) {
  const auto end = std::chrono::steady_clock::now() + patience;
  peer_.context.restart();
  while (frames_.empty() && open_ && peer_.context.run_one_until(end) > 0) continue;
  if (frames_.empty()) return false;
  frame = std::move(frames_.front());
  frames_.pop_front();
  return true;
}

bool Exec_WebSocket::open() {
  peer_.context.restart();
  peer_.context.poll();
  return open_ && !state_.stopping();
}

void Exec_WebSocket::close(unsigned short code, std::string_view reason) {
  if (!open()) return;
  bool done = false;
  const websocket::close_reason why(static_cast<websocket::close_code>(code), {reason.data(), reason.size()});
  socket_.async_close(why, [&](beast::error_code) { done = true; });
  const auto end = std::chrono::steady_clock::now() + close_patience;
  peer_.context.restart();
  while (!done && peer_.context.run_one_until(end) > 0) continue;
  drop();
  run_until(done);
}

void Exec_WebSocket::drop() {
  open_ = false;
  beast::error_code error;
  peer_.socket.shutdown(net::ip::tcp::socket::shutdown_both, error);
}

}  // namespace kube_sim
