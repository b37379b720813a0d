#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace test_support {

/// One HTTP message as it is on the wire.
struct Wire_Message {
  std::string head;  ///< with the empty line behind it
  std::string first_line;
  std::map<std::string, std::string> headers;  ///< names in lower case
  std::string body;

  /// The value of a header; empty if absent.
  std::string header(const std::string& lower_name) const;
};

/// Reads a message with a Content-Length or no body. @a ahead keeps what came behind it. False at the end of the
/// connection.
bool read_message(int fd, std::string& ahead, Wire_Message& message);
bool write_all(int fd, std::string_view bytes);
/// A connection to a port of this machine; -1 on failure.
int connect_to_port(int port);

/**
 * Listens on a port of its own on 127.0.0.1 and gives each connection a thread. Threads: the handler is called by
 * several at once; all else belongs to the test.
 */
class Socket_Server {
 public:
  /// Serves one connection; it is closed when the handler comes back.
  typedef std::function<void(int fd)> Handler;

  explicit Socket_Server(Handler handler);
  /// Breaks all connections off.
  ~Socket_Server();
  Socket_Server(const Socket_Server&) = delete;
  Socket_Server& operator=(const Socket_Server&) = delete;

  int port() const { return port_; }
  /// Refuses connections from now on, and breaks off those that there are; or listens again on the same port.
  void refuse(bool refuse);

 private:
  void listen();
  void accept_all();
  void serve(int fd);
  void stop();

  const Handler handler_;
  int port_ = 0;
  int listener_ = -1;
  std::thread acceptor_;
  std::mutex lock_;
  std::vector<int> open_;                 // guarded by lock_
  std::vector<std::thread> connections_;  // guarded by lock_
};

}  // namespace test_support
