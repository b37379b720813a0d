#pragma once

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/basic_socket_acceptor.hpp>
#include <boost/asio/generic/stream_protocol.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <memory>
#include <optional>
#include <string>

#include "http/http_connection.h"
#include "http/tls_identity.h"

namespace http_server {

/// Waits for peers on one socket and has them served.
class Listener {
 public:
  Listener(boost::asio::io_context& context, Shared& shared);
  /// Closes.
  ~Listener();

  /// As HTTP_Server::listen_unix().
  int open_unix(const std::string& path);
  /// As HTTP_Server::listen_tcp() and listen_tls().
  /// @param files  null: no TLS.
  int open_tcp(const std::string& address, unsigned short port, const TLS_Files* files,
               std::shared_ptr<Access_Check> access);
  /// Of a TCP socket, 0 of others.
  unsigned short port() const { return port_; }

  void start();
  /// Removes the socket's file, too. Called on the executor, or when the context does not run.
  void close();
  boost::asio::any_io_executor executor() { return acceptor_.get_executor(); }

 private:
  typedef boost::asio::generic::stream_protocol Protocol;

  int open(const Protocol::endpoint& endpoint, const std::string& name);
  void accept();
  void accepted(Protocol::socket socket);

  boost::asio::io_context& context_;
  Shared& shared_;
  boost::asio::basic_socket_acceptor<Protocol> acceptor_;
  boost::asio::steady_timer pause_;
  std::shared_ptr<Access_Check> access_;
  std::optional<TLS_Identity> identity_;
  std::string path_;  // of a unix socket that has been made
  unsigned short port_ = 0;
};

}  // namespace http_server
