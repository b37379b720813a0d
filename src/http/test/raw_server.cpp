#include "http/test/raw_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>

Raw_Server::Raw_Server(Script script) : script_(std::move(script)), listener_(::socket(AF_INET, SOCK_STREAM, 0)) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  if (::bind(listener_, reinterpret_cast<sockaddr*>(&address), size) != 0 || ::listen(listener_, 8) != 0 ||
      ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size) != 0)
    throw std::runtime_error("no port for a server");
  port_ = ntohs(address.sin_port);
  thread_ = std::thread([this] { serve(); });
}

Raw_Server::~Raw_Server() {
  ::shutdown(listener_, SHUT_RDWR);  // ends accept(); who is being served ends by the client's hand or by time
  thread_.join();
  ::close(listener_);
}

void Raw_Server::serve() {
  for (;;) {
    const int fd = ::accept(listener_, nullptr, nullptr);
    if (fd == -1) return;
    const timeval patience{20, 0};
    ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
    Peer peer(fd);
    script_(peer);
    ::close(fd);
  }
}

std::string Raw_Server::Peer::read_to(const std::string& end) {
  for (;;) {
    const std::size_t found = read_ahead_.find(end);
    if (found != std::string::npos) {
      const std::string text = read_ahead_.substr(0, found + end.size());
      read_ahead_.erase(0, text.size());
      return text;
    }
    char bytes[4096];
    const ssize_t n = ::recv(fd_, bytes, sizeof bytes, 0);
    if (n <= 0) return std::move(read_ahead_);
    read_ahead_.append(bytes, static_cast<std::size_t>(n));
  }
}

bool Raw_Server::Peer::write(const std::string& bytes) {
  for (std::size_t sent = 0; sent < bytes.size();) {
    const ssize_t n = ::send(fd_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (n <= 0) return false;
    sent += static_cast<std::size_t>(n);
  }
  return true;
}
