#include "support/socket_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace test_support {

namespace {

sockaddr_in loopback(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<uint16_t>(port));
  return address;
}

bool receive_more(int fd, std::string& into) {
  char bytes[65536];
  const ssize_t got = recv(fd, bytes, sizeof bytes, 0);
  if (got > 0) into.append(bytes, static_cast<size_t>(got));
  return got > 0;
}

void parse_head(Wire_Message& message) {
  size_t at = message.head.find("\r\n");
  message.first_line = message.head.substr(0, at);
  message.headers.clear();
  while ((at += 2) < message.head.size()) {
    const size_t end = message.head.find("\r\n", at);
    const std::string line = message.head.substr(at, end - at);
    const size_t colon = line.find(':');
    if (colon != line.npos) {
      std::string name = line.substr(0, colon);
      std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) { return tolower(c); });
      const size_t value = line.find_first_not_of(' ', colon + 1);
      message.headers[name] = value == line.npos ? "" : line.substr(value);
    }
    at = end;
  }
}

}  // namespace

std::string Wire_Message::header(const std::string& lower_name) const {
  const auto found = headers.find(lower_name);
  return found == headers.end() ? std::string() : found->second;
}

bool read_message(int fd, std::string& ahead, Wire_Message& message) {
  size_t end;
  while ((end = ahead.find("\r\n\r\n")) == ahead.npos)
    if (!receive_more(fd, ahead)) return false;
  message.head = ahead.substr(0, end + 4);
  parse_head(message);
  const size_t whole = end + 4 + strtoull(message.header("content-length").c_str(), nullptr, 10);
  while (ahead.size() < whole)
    if (!receive_more(fd, ahead)) return false;
  message.body = ahead.substr(end + 4, whole - end - 4);
  ahead.erase(0, whole);
  return true;
}

bool write_all(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t put = send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (put <= 0) return false;
    bytes.remove_prefix(static_cast<size_t>(put));
  }
  return true;
}

int connect_to_port(int port) {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const sockaddr_in address = loopback(port);
  if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return fd;
  close(fd);
  return -1;
}

Socket_Server::Socket_Server(Handler handler) : handler_(std::move(handler)) {
  listen();
}

Socket_Server::~Socket_Server() {
  stop();
}

void Socket_Server::refuse(bool refuse) {
  stop();
  if (!refuse) listen();
}

void Socket_Server::listen() {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int on = 1;
  setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in address = loopback(port_);
  socklen_t size = sizeof address;
  if (bind(fd, reinterpret_cast<const sockaddr*>(&address), size) != 0 || ::listen(fd, 64) != 0) {
    perror("test server");
    abort();
  }
  getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size);
  port_ = ntohs(address.sin_port);
  listener_ = fd;
  acceptor_ = std::thread([this] { accept_all(); });
}

void Socket_Server::accept_all() {
  for (;;) {
    const int fd = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0 && (errno == EINTR || errno == ECONNABORTED)) continue;
    if (fd < 0) return;  // shut down
    const int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    const std::lock_guard<std::mutex> guard(lock_);
    open_.push_back(fd);
    connections_.emplace_back([this, fd] { serve(fd); });
  }
}

void Socket_Server::serve(int fd) {
  handler_(fd);
  const std::lock_guard<std::mutex> guard(lock_);
  std::erase(open_, fd);
  close(fd);
}

void Socket_Server::stop() {
  if (listener_ < 0) return;
  shutdown(listener_, SHUT_RDWR);
  acceptor_.join();
  close(listener_);
  listener_ = -1;
  std::vector<std::thread> threads;
  {
    const std::lock_guard<std::mutex> guard(lock_);
    for (const int fd : open_) shutdown(fd, SHUT_RDWR);
    threads.swap(connections_);
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace test_support
