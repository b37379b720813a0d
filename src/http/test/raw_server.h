#pragma once

#include <functional>
#include <string>
#include <thread>

/**
 * A plain server on 127.0.0.1 that does to each connection, one after the other, what a test tells it. The connection
 * is closed behind that. All waits end after 20 seconds or with the server.
 */
class Raw_Server {
 public:
  class Peer {
   public:
    explicit Peer(int fd) : fd_(fd) {}
    /// All up to and with @a end; up to the end of the connection if it doesn't come.
    std::string read_to(const std::string& end);
    /// @retval false  the other side has gone.
    bool write(const std::string& bytes);

   private:
    const int fd_;
    std::string read_ahead_;
  };
  typedef std::function<void(Peer&)> Script;

  explicit Raw_Server(Script script);
  ~Raw_Server();
  unsigned short port() const { return port_; }

 private:
  void serve();

  const Script script_;
  int listener_;
  unsigned short port_ = 0;
  std::thread thread_;
};
