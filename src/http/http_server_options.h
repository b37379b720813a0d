#pragma once

#include <chrono>
#include <cstddef>
#include <string>

/// What a peer of HTTP_Server may take of bytes, connections and time. Time spans are counted from the begin of what
/// they bound, so that a byte now and then does not stretch them. 0 of a time span: no limit.
struct HTTP_Server_Limits {
  size_t head_bytes = 8 * 1024;               ///< request line and header fields; more is answered with 431
  size_t body_bytes = 4 * 1024 * 1024;        ///< more is answered with 413, from Content-Length before a byte is read
  size_t message_bytes = 4 * 1024 * 1024;     ///< a WebSocket message; more ends the connection with code 1009
  size_t message_overhead_bytes = 64 * 1024;  ///< what fragment headers may add to a message, empty fragments included
  size_t unsent_bytes = 8 * 1024 * 1024;      ///< answers that a WebSocket peer does not take; more ends the connection
  size_t connections = 256;                   ///< in all
  size_t connections_per_peer = 128;          ///< of one address (TCP) or user (unix socket)

  std::chrono::milliseconds tls_handshake = std::chrono::seconds(10);
  std::chrono::milliseconds access = std::chrono::seconds(15);  ///< to find out who a caller is; then 503
  std::chrono::milliseconds head =
      std::chrono::seconds(10);  ///< from the first byte (or accept) to the end of the head
  std::chrono::milliseconds body = std::chrono::seconds(60);   ///< from the end of the head to the end of the body
  std::chrono::milliseconds idle = std::chrono::seconds(60);   ///< between two requests; WebSocket: without any traffic
  std::chrono::milliseconds write = std::chrono::seconds(30);  ///< for an answer to be taken by the peer
  std::chrono::milliseconds handshake = std::chrono::seconds(10);  ///< of a WebSocket
  std::chrono::milliseconds answer = std::chrono::minutes(10);     ///< for the service to answer; then 504
  std::chrono::milliseconds linger = std::chrono::seconds(2);  ///< for the peer to read why its connection is closed
};

/// What a server proves itself with: PEM files, read again when they have changed.
struct TLS_Files {
  std::string certificate;  ///< the server's, then those between it and the root
  std::string key;          ///< its private key, without a passphrase; readable by no one else
};

struct HTTP_Server_Options {
  std::string path = "/";  ///< what the service is reached by; any other path is answered with 404
  size_t threads = 2;      ///< that read, write and call the service
  HTTP_Server_Limits limits;
};
