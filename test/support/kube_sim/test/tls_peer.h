#pragma once

#include <openssl/ssl.h>

#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <string_view>

namespace kube_sim_test {

/// An answer as a client reads it.
struct Reply {
  int status = 0;
  std::string head;
  std::map<std::string, std::string> headers;  ///< by lower-case names
  std::string body;                            ///< the framing of chunks taken off
  bool whole = false;                          ///< false where the connection ended first
};

/// One WebSocket frame of the server.
struct Frame {
  int opcode = -1;  ///< -1: the connection ended
  std::string payload;
};

/// How a connection stands.
enum class State { OPEN, CLOSED, RESET };

/// A client that shares no code with the server: OpenSSL on a plain socket.
class Tls_Peer {
 public:
  /// Connects. The server's certificate has to be good for @a name (a host name or an address) by @a ca, PEM.
  Tls_Peer(unsigned short port, const std::string& ca, const std::string& name = "127.0.0.1");
  ~Tls_Peer();

  bool connected() const { return connected_; }
  void send(std::string_view bytes);
  /// Sends a GET with a Host header and @a more header lines.
  void get(const std::string& target, const std::string& more = "");
  Reply reply();
  Reply reply_to(const std::string& target, const std::string& more = "") { return get(target, more), reply(); }
  /// Reads up to the end of @a mark, which is in the result; what there is, where the connection ends first.
  std::string read_to(const std::string& mark);
  /// Reads so many bytes.
  std::string read(size_t length);
  std::string read_all();
  /// What became of the connection, after at most @a patience.
  State state(std::chrono::milliseconds patience = std::chrono::milliseconds(300));

  /// Asks for an upgrade; the answer to it.
  Reply upgrade(const std::string& target, const std::string& protocols);
  Frame frame();
  void send_frame(int opcode, const std::string& payload);

 private:
  bool fill();

  int socket_ = -1;
  std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context_;
  std::unique_ptr<SSL, decltype(&SSL_free)> ssl_;
  bool connected_ = false;
  State state_ = State::OPEN;
  std::string buffer_;
};

}  // namespace kube_sim_test
