#include "channel_peer.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <boost/asio/io_context.hpp>
#include <boost/asio/strand.hpp>
#include <chrono>
#include <cstdlib>

#include "http/http_connection.h"

namespace net = boost::asio;

namespace {

/// The peer's end.
class Peer {
 public:
  explicit Peer(int fd) : fd_(fd) {}
  ~Peer() { ::close(fd_); }

  void say(std::string_view bytes) {
    if (::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL) == -1) return;  // the server has ended the connection
  }
  void say_no_more() { ::shutdown(fd_, SHUT_WR); }
  void hear(std::string& all) {
    char buffer[65536];
    for (ssize_t n; (n = ::recv(fd_, buffer, sizeof buffer, 0)) > 0;) all.append(buffer, static_cast<size_t>(n));
  }

 private:
  const int fd_;
};

}  // namespace

std::string said_to(std::string_view head, std::string_view bytes, size_t piece, HTTP_Service& service,
                    const HTTP_Server_Options& options) {
  net::io_context context(1);
  http_server::Shared shared{
      service, options, {options.limits.connections, options.limits.connections_per_peer}, {}, {}};
  int ends[2];
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends) == -1) std::abort();
  Peer peer(ends[0]);
  net::generic::stream_protocol::socket socket(net::make_strand(context));
  socket.assign(net::generic::stream_protocol(AF_UNIX, 0), ends[1]);
  http_server::serve(shared, std::move(socket), {"peer", nullptr, nullptr});

  std::string all;
  const auto say = [&](std::string_view some) {
    peer.say(some);
    context.poll();
    peer.hear(all);
  };
  if (!head.empty()) say(head);
  const size_t step = piece == 0 ? std::max<size_t>(bytes.size(), 1) : piece;
  for (size_t at = 0; at < bytes.size(); at += step) say(bytes.substr(at, step));
  peer.say_no_more();
  while (!context.stopped()) {
    if (context.run_one_for(std::chrono::seconds(5)) == 0 && !context.stopped()) std::abort();
    context.poll();
    peer.hear(all);
  }
  peer.hear(all);
  return all;
}
