#include "http/listener.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/asio/ip/address.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/strand.hpp>
#include <cerrno>

#include "ace/Log_Msg.h"
#include "kolt/without_bad_alloc.h"

namespace http_server {

namespace net = boost::asio;

namespace {

/// Removes a socket that nobody listens on any more. @retval -1  something else stands there.
int clear_place(const std::string& path, const net::local::stream_protocol::endpoint& endpoint) {
  struct stat status;
  if (::lstat(path.c_str(), &status) == -1) return errno == ENOENT ? 0 : -1;
  if (!S_ISSOCK(status.st_mode)) {
    errno = EEXIST;
    return -1;
  }
  net::io_context context;
  net::local::stream_protocol::socket probe(context);
  boost::system::error_code error;
  probe.connect(endpoint, error);
  if (!error) {
    errno = EADDRINUSE;
    return -1;
  }
  return ::unlink(path.c_str());
}

std::string peer_of(int socket) {
  sockaddr_storage address{};
  socklen_t length = sizeof address;
  ::getpeername(socket, reinterpret_cast<sockaddr*>(&address), &length);
  char text[INET6_ADDRSTRLEN] = "";
  if (address.ss_family == AF_INET) {
    return ::inet_ntop(AF_INET, &reinterpret_cast<sockaddr_in&>(address).sin_addr, text, sizeof text);
  }
  if (address.ss_family == AF_INET6) {
    return ::inet_ntop(AF_INET6, &reinterpret_cast<sockaddr_in6&>(address).sin6_addr, text, sizeof text);
  }
  ucred user{};
  length = sizeof user;
  ::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &user, &length);
  return "uid " + std::to_string(user.uid);
}

}  // namespace

Listener::Listener(net::io_context& context, Shared& shared)
    : context_(context), shared_(shared), acceptor_(net::make_strand(context)), pause_(acceptor_.get_executor()) {}

Listener::~Listener() {
  close();
}

int Listener::open_unix(const std::string& path) {
  if (path.size() >= sizeof(sockaddr_un::sun_path)) {
    errno = ENAMETOOLONG;
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to listen on '%C': %m\n"), path.c_str()), -1);
  }
  const net::local::stream_protocol::endpoint endpoint(path);
  if (clear_place(path, endpoint) == -1) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to listen on '%C': %m\n"), path.c_str()), -1);
  }
  if (open(endpoint, path) == -1) return -1;
  path_ = path;
  return 0;
}

int Listener::open_tcp(const std::string& address, unsigned short port, const TLS_Files* files,
                       std::shared_ptr<Access_Check> access) {
  const std::string name = address + " port " + std::to_string(port);
  boost::system::error_code error;
  const auto ip = net::ip::make_address(address, error);
  if (error || !access) {
    errno = EINVAL;
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to listen on %C: %C\n"), name.c_str(),
                      error ? "not a numeric address" : "no token to ask for"),
                     -1);
  }
  if (!files && !ip.is_loopback()) {
    errno = EACCES;
    ACE_ERROR_RETURN(
        (LM_ERROR, ACE_TEXT("Failed to listen on %C: only loopback addresses go without TLS.\n"), name.c_str()), -1);
  }
  if (files && identity_.emplace(*files).load() == -1) {
    errno = EINVAL;
    return -1;
  }
  if (open(net::ip::tcp::endpoint(ip, port), name) == -1) return -1;
  access_ = std::move(access);

  sockaddr_storage bound{};
  socklen_t length = sizeof bound;
  ::getsockname(acceptor_.native_handle(), reinterpret_cast<sockaddr*>(&bound), &length);
  port_ = ntohs(ip.is_v4() ? reinterpret_cast<sockaddr_in&>(bound).sin_port
                           : reinterpret_cast<sockaddr_in6&>(bound).sin6_port);
  return 0;
}

int Listener::open(const Protocol::endpoint& endpoint, const std::string& name) {
  boost::system::error_code error;
  acceptor_.open(endpoint.protocol(), error);
  if (!error && endpoint.protocol().family() == AF_UNIX) {
    // The mode of the socket becomes the mode of its file, without a moment in which it is open to others.
    ::fchmod(acceptor_.native_handle(), S_IRUSR | S_IWUSR);
  } else if (!error) {
    acceptor_.set_option(net::socket_base::reuse_address(true), error);
  }
  if (!error) acceptor_.bind(endpoint, error);
  if (!error) acceptor_.listen(net::socket_base::max_listen_connections, error);
  if (error) {
    errno = error.value();
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to listen on %C: %m\n"), name.c_str()), -1);
  }
  return 0;
}

void Listener::start() {
  accept();
}

void Listener::close() {
  boost::system::error_code ignored;
  acceptor_.close(ignored);
  pause_.cancel();
  if (!path_.empty()) ::unlink(path_.c_str());
  path_.clear();
}

void Listener::accept() {
  acceptor_.async_accept(net::make_strand(context_), [this](boost::system::error_code error, Protocol::socket socket) {
    if (!acceptor_.is_open()) return;
    if (!error) {
      const auto serve_it = [&] {
        accepted(std::move(socket));
        return true;
      };
      (void)without_bad_alloc(serve_it);  // told; the next one is let in
      accept();
      return;
    }
    // Most likely out of descriptors: others give theirs back in time.
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to accept a connection: %C\n"), error.message().c_str()));
    pause_.expires_after(std::chrono::milliseconds(100));
    pause_.async_wait([this](boost::system::error_code) {
      if (acceptor_.is_open()) accept();
    });
  });
}

void Listener::accepted(Protocol::socket socket) {
  const int handle = socket.native_handle();
  const int on = 1;
  if (access_) ::setsockopt(handle, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  const auto tls = identity_ ? identity_->current() : nullptr;
  serve(shared_, std::move(socket), {peer_of(handle), tls, access_});
}

}  // namespace http_server
