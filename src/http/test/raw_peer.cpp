#include "http/test/raw_peer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

Raw_Peer::Raw_Peer(int fd) : fd_(fd) {
  const timeval patience{60, 0};
  setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  setsockopt(fd_, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
}

Raw_Peer::~Raw_Peer() {
  hang_up();
}

Raw_Peer Raw_Peer::to_unix(const std::string& path) {
  Raw_Peer peer(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  if (connect(peer.fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) == -1) peer.hang_up();
  return peer;
}

Raw_Peer Raw_Peer::to_tcp(unsigned short port) {
  Raw_Peer peer(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (connect(peer.fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) == -1) peer.hang_up();
  return peer;
}

void Raw_Peer::hang_up() {
  if (fd_ != -1) close(fd_);
  fd_ = -1;
}

bool Raw_Peer::say(const std::string& bytes) {
  for (size_t sent = 0; sent < bytes.size();) {
    const ssize_t n = send(fd_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (n <= 0) return false;
    sent += static_cast<size_t>(n);
  }
  return true;
}

bool Raw_Peer::read_more() {
  char buffer[4096];
  const ssize_t n = recv(fd_, buffer, sizeof buffer, 0);
  if (n <= 0) return false;
  read_ahead_.append(buffer, static_cast<size_t>(n));
  return true;
}

std::string Raw_Peer::hear() {
  size_t end;
  while ((end = read_ahead_.find("\r\n\r\n")) == std::string::npos) {
    if (!read_more()) return hear(read_ahead_.size());
  }
  const std::string field = "Content-Length: ";
  const size_t at = read_ahead_.find(field);
  const size_t length = at < end ? std::stoul(read_ahead_.substr(at + field.size())) : 0;
  return hear(end + 4 + length);
}

std::string Raw_Peer::hear(size_t bytes) {
  while (read_ahead_.size() < bytes && read_more()) {
  }
  const std::string heard = read_ahead_.substr(0, bytes);
  read_ahead_.erase(0, bytes);
  return heard;
}

std::string Raw_Peer::hear_all() {
  return hear(std::string::npos);
}

bool Raw_Peer::ends() {
  char byte;
  const ssize_t n = recv(fd_, &byte, 1, 0);
  return read_ahead_.empty() && (n == 0 || (n == -1 && errno == ECONNRESET));
}

std::string post(const std::string& body, const std::string& fields) {
  return "POST /d2/jr HTTP/1.1\r\nHost: x\r\n" + fields + "Content-Length: " + std::to_string(body.size()) +
         "\r\n\r\n" + body;
}

std::string upgrade(const std::string& fields) {
  return "GET /d2/jr HTTP/1.1\r\nHost: x\r\nConnection: Upgrade\r\nUpgrade: websocket\r\nSec-WebSocket-Version: "
         "13\r\n" +
         fields + "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n\r\n";
}

std::string frame(unsigned char first, const std::string& payload) {
  std::string bytes(1, static_cast<char>(first));
  if (payload.size() < 126) {
    bytes += static_cast<char>(0x80 | payload.size());
  } else {
    const bool is_short = payload.size() < 65536;
    bytes += static_cast<char>(0x80 | (is_short ? 126 : 127));
    for (int shift = is_short ? 8 : 56; shift >= 0; shift -= 8) bytes += static_cast<char>(payload.size() >> shift);
  }
  const char mask[] = {1, 2, 3, 4};
  bytes.append(mask, 4);
  for (size_t i = 0; i < payload.size(); ++i) bytes += static_cast<char>(payload[i] ^ mask[i % 4]);
  return bytes;
}

std::string hear_frame(Raw_Peer& peer) {
  const std::string head = peer.hear(2);
  return head.size() == 2 ? peer.hear(static_cast<unsigned char>(head[1]) & 0x7f) : "";
}
