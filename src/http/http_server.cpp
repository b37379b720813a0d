#include "http/http_server.h"

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <cerrno>
#include <latch>
#include <list>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "ace/Log_Msg.h"
#include "http/listener.h"
#include "kolt/without_bad_alloc.h"

namespace net = boost::asio;

class HTTP_Server::Impl {
 public:
  Impl(HTTP_Service& service, const HTTP_Server_Options& options)
      : shared_{service, options, {options.limits.connections, options.limits.connections_per_peer}, {}, {}} {}

  void add_page(const std::string& path, HTTP_Page page) { shared_.pages[path] = std::move(page); }

  int listen_unix(const std::string& path) { return keep(make_listener().open_unix(path)); }

  int listen_tcp(const std::string& address, unsigned short port, const TLS_Files* files,
                 std::shared_ptr<Access_Check> access) {
    return keep(make_listener().open_tcp(address, port, files, std::move(access)));
  }

  unsigned short port() const {
    for (auto listener = listeners_.rbegin(); listener != listeners_.rend(); ++listener) {
      if (listener->port() != 0) return listener->port();
    }
    return 0;
  }

  int start() {
    work_.emplace(context_.get_executor());
    for (auto& listener : listeners_) listener.start();
    try {
      while (threads_.size() < shared_.options.threads) threads_.emplace_back([this] { run(); });
    } catch (const std::system_error& e) {
      ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to start a thread of the HTTP server: %C\n"), e.what()));
      close();
      return -1;
    }
    return 0;
  }

  // The threads end by themselves when the last connection has ended.
  void close() {
    stop_to_listen();
    shared_.table.close_all();
    work_.reset();
    for (auto& thread : threads_) thread.join();
    threads_.clear();
    listeners_.clear();
  }

 private:
  http_server::Listener& make_listener() { return listeners_.emplace_back(context_, shared_); }

  int keep(int result) {
    const int error = errno;
    if (result == -1) listeners_.pop_back();
    errno = error;
    return result;
  }

  // A handler that finds no memory loses its own connection, and not the others'.
  void run() {
    const auto serve = [this] {
      context_.run();
      return true;
    };
    while (!without_bad_alloc(serve)) {
    }
  }

  // When it returns, no connection is being accepted and none will be.
  void stop_to_listen() {
    if (threads_.empty()) return;
    std::latch closed(static_cast<std::ptrdiff_t>(listeners_.size()));
    for (auto& listener : listeners_) {
      net::post(listener.executor(), [&listener, &closed] {
        listener.close();
        closed.count_down();
      });
    }
    closed.wait();
  }

  net::io_context context_;
  http_server::Shared shared_;
  std::list<http_server::Listener> listeners_;
  std::optional<net::executor_work_guard<net::io_context::executor_type>> work_;
  std::vector<std::thread> threads_;
};

HTTP_Server::HTTP_Server(HTTP_Service& service, const HTTP_Server_Options& options)
    : impl_(std::make_unique<Impl>(service, options)) {}

HTTP_Server::~HTTP_Server() {
  close();
}

void HTTP_Server::add_page(const std::string& path, HTTP_Page page) {
  impl_->add_page(path, std::move(page));
}

int HTTP_Server::listen_unix(const std::string& path) {
  return impl_->listen_unix(path);
}

int HTTP_Server::listen_tcp(const std::string& address, unsigned short port, const std::string& token) {
  return listen_tcp(address, port, token.empty() ? nullptr : std::make_shared<Token_Check>(token));
}

int HTTP_Server::listen_tcp(const std::string& address, unsigned short port, std::shared_ptr<Access_Check> access) {
  return impl_->listen_tcp(address, port, nullptr, std::move(access));
}

int HTTP_Server::listen_tls(const std::string& address, unsigned short port, const TLS_Files& files,
                            std::shared_ptr<Access_Check> access) {
  return impl_->listen_tcp(address, port, &files, std::move(access));
}

unsigned short HTTP_Server::port() const {
  return impl_->port();
}

int HTTP_Server::start() {
  return impl_->start();
}

void HTTP_Server::close() {
  impl_->close();
}
