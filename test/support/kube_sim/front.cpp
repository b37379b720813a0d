#include "support/kube_sim/front.h"

#include <fcntl.h>
#include <sys/socket.h>

#include <list>
#include <stdexcept>
#include <thread>

#include "http/host_in_url.h"
#include "support/kube_sim/front_connection.h"

namespace kube_sim {

class Front::Impl {
 public:
  Impl(Api& api, const Front_Options& options);
  ~Impl();

  Front_State state;
  std::unique_ptr<Certificates> own_certificates;
  const Certificates& certificates;
  unsigned short port = 0;

 private:
  struct Worker {
    Peer peer;
    std::thread thread;
    std::atomic<bool> done = false;
  };

  void use_certificate();
  void listen();
  void accept();
  void serve(Worker& worker);

  net::ssl::context tls_{net::ssl::context::tls_server};
  net::io_context context_;
  net::ip::tcp::acceptor acceptor_{context_};
  std::list<Worker> workers_;  // of the accepting thread, until that has ended
  std::thread accepting_;
};

Front::Impl::Impl(Api& api, const Front_Options& options)
    : state(api, options),
      own_certificates(options.certificates == nullptr ? std::make_unique<Certificates>() : nullptr),
      certificates(own_certificates ? *own_certificates : *options.certificates) {
  use_certificate();
  listen();
  accepting_ = std::thread([this] { accept(); });
}

Front::Impl::~Impl() {
  state.stop();
  ::shutdown(acceptor_.native_handle(), SHUT_RDWR);
  accepting_.join();
  for (Worker& worker : workers_) worker.thread.join();
}

void Front::Impl::use_certificate() {
  const Certificate certificate = certificates.server(state.options().certificate);
  tls_.use_certificate_chain(net::buffer(certificate.certificate));
  tls_.use_private_key(net::buffer(certificate.key), net::ssl::context::pem);
}

void Front::Impl::listen() {
  const Front_Options& options = state.options();
  try {
    const net::ip::tcp::endpoint endpoint(net::ip::make_address(options.address), options.port);
    acceptor_.open(endpoint.protocol());
    fcntl(acceptor_.native_handle(), F_SETFD, FD_CLOEXEC);
    acceptor_.set_option(net::socket_base::reuse_address(true));
    acceptor_.bind(endpoint);
    acceptor_.listen();
    port = acceptor_.local_endpoint().port();
  } catch (const boost::system::system_error& error) {
    throw std::runtime_error("can't listen on " + options.address + " port " + std::to_string(options.port) + ": " +
                             error.code().message());
  }
}

void Front::Impl::accept() {
  while (!state.stopping()) {
    Worker& worker = workers_.emplace_back();
    beast::error_code error;
    acceptor_.accept(worker.peer.socket, error);
    if (error || !state.add(worker.peer.socket.native_handle())) {
      workers_.pop_back();
      state.pause(std::chrono::milliseconds(10));  // for descriptors to come free
      continue;
    }
    worker.thread = std::thread([this, &worker] { serve(worker); });
    workers_.remove_if([](Worker& other) {
      if (!other.done) return false;
      other.thread.join();
      return true;
    });
  }
}

void Front::Impl::serve(Worker& worker) {
  net::ip::tcp::socket& socket = worker.peer.socket;
  fcntl(socket.native_handle(), F_SETFD, FD_CLOEXEC);
  beast::error_code error;
  socket.set_option(net::ip::tcp::no_delay(true), error);
  Front_Connection(state, tls_, worker.peer).run();
  state.remove(socket.native_handle());
  socket.close(error);
  worker.done = true;
}

Front::Front(Api& api, const Front_Options& options) : impl_(std::make_unique<Impl>(api, options)) {}

Front::~Front() = default;

unsigned short Front::port() const {
  return impl_->port;
}

std::string Front::url() const {
  return "https://" + host_in_url(impl_->state.options().address) + ":" + std::to_string(port());
}

const std::string& Front::ca() const {
  return impl_->certificates.ca();
}

std::vector<Request> Front::requests() const {
  return impl_->state.requests();
}

void Front::clear_requests() {
  impl_->state.clear_requests();
}

size_t Front::connections() const {
  return impl_->state.connections();
}

size_t Front::open_connections() const {
  return impl_->state.open_connections();
}

void Front::fail(const Match& match, const Fault& fault) {
  impl_->state.fail(match, fault);
}

void Front::clear_faults() {
  impl_->state.clear_faults();
}

size_t Front::faults_hit() const {
  return impl_->state.faults_hit();
}

}  // namespace kube_sim
