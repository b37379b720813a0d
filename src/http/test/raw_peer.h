#pragma once

#include <string>

/// A peer that says exactly what it is told, for whatever protocol. All waits end after a minute.
class Raw_Peer {
 public:
  /// Connected, or ok() is false.
  static Raw_Peer to_unix(const std::string& path);
  static Raw_Peer to_tcp(unsigned short port);
  Raw_Peer(Raw_Peer&& other) noexcept : fd_(other.fd_), read_ahead_(std::move(other.read_ahead_)) { other.fd_ = -1; }
  ~Raw_Peer();

  bool ok() const { return fd_ != -1; }
  /// @retval false  the other side has closed.
  bool say(const std::string& bytes);
  /// One HTTP answer: head and, by Content-Length, body. What came before the end, if the connection ended.
  std::string hear();
  /// The next so many bytes; fewer if the connection ended.
  std::string hear(size_t bytes);
  /// All up to the end of the connection.
  std::string hear_all();
  /// Whether the connection has ended, or ends, without another byte.
  bool ends();
  void hang_up();

 private:
  explicit Raw_Peer(int fd);
  bool read_more();

  int fd_;
  std::string read_ahead_;
};

/// A POST to /d2/jr.
std::string post(const std::string& body, const std::string& fields = "");
/// The request for a WebSocket on /d2/jr.
std::string upgrade(const std::string& fields = "");
/// A frame with a mask.   @param first  the first byte: 0x81 is a text, 0x01 its first fragment, 0x00 a further one.
std::string frame(unsigned char first, const std::string& payload);
/// The payload of a short unmasked frame that a server has sent.
std::string hear_frame(Raw_Peer& peer);
