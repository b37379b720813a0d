#pragma once

// Slow to compile: for the sources of the front alone.

#include <boost/beast/websocket/stream.hpp>
#include <deque>

#include "support/kube_sim/front_connection.h"

namespace kube_sim {

/// The first of the sub-protocols asked for that exec knows; empty when none was asked for, nothing when all are
/// unknown.
std::optional<std::string> agreed_protocol(const Request& request);

/// The WebSocket of an exec connection. Reads all the time that it sends or waits, so that pings are answered.
class Exec_WebSocket : public Exec_Stream {
 public:
  Exec_WebSocket(Front_State& state, Peer& peer, Tls_Stream& stream, const std::string& protocol);
  ~Exec_WebSocket() override;

  /// Answers the handshake.
  bool accept(const http::request<http::string_body>& upgrade);

  const std::string& protocol() const override { return protocol_; }
  bool send(unsigned char channel, std::string_view payload) override;
  bool send_raw(std::string_view payload, bool text) override;
  bool ping() override;
  bool receive(std::string& frame, std::chrono::milliseconds patience) override;
  bool open() override;
  void close(unsigned short code, std::string_view reason) override;
  void drop() override;

 private:
  void read();
  /// Runs the context until @a done.
  void run_until(const bool& done);
  bool base64() const { return protocol_ == "base64.channel.k8s.io"; }

  Front_State& state_;
  Peer& peer_;
  boost::beast::websocket::stream<Tls_Stream&> socket_;
  const std::string protocol_;
  beast::flat_buffer incoming_;
  std::deque<std::string> frames_;
  bool open_ = false;
};

}  // namespace kube_sim
