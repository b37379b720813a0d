#include "support/kube_sim/front_state.h"

#include <sys/socket.h>

#include "support/request_list.h"

namespace kube_sim {

using Guard = std::lock_guard<std::mutex>;

Fault Front_State::record(const Request& request) {
  test_support::note_request(request.method, request.target);
  const Guard guard(lock_);
  if (options_.record) requests_.push_back(request);
  return faults_.take(request);
}

bool Front_State::pause(std::chrono::milliseconds time) {
  std::unique_lock<std::mutex> guard(lock_);
  return !stopped_.wait_for(guard, time, [this] { return stopping_; });
}

bool Front_State::stopping() const {
  const Guard guard(lock_);
  return stopping_;
}

bool Front_State::add(int socket) {
  const Guard guard(lock_);
  if (!stopping_) sockets_.insert(socket);
  return !stopping_;
}

void Front_State::remove(int socket) {
  const Guard guard(lock_);
  sockets_.erase(socket);
  encrypted_.erase(socket);
}

void Front_State::handshake_done(int socket) {
  const Guard guard(lock_);
  encrypted_.insert(socket);
  ++connections_;
}

void Front_State::stop() {
  const Guard guard(lock_);
  stopping_ = true;
  for (const int socket : sockets_) shutdown(socket, SHUT_RDWR);
  stopped_.notify_all();
}

std::vector<Request> Front_State::requests() const {
  const Guard guard(lock_);
  return requests_;
}

void Front_State::clear_requests() {
  const Guard guard(lock_);
  requests_.clear();
}

size_t Front_State::connections() const {
  const Guard guard(lock_);
  return connections_;
}

size_t Front_State::open_connections() const {
  const Guard guard(lock_);
  return encrypted_.size();
}

void Front_State::fail(const Match& match, const Fault& fault) {
  const Guard guard(lock_);
  faults_.add(match, fault);
}

void Front_State::clear_faults() {
  const Guard guard(lock_);
  faults_.clear();
}

size_t Front_State::faults_hit() const {
  const Guard guard(lock_);
  return faults_.hits();
}

}  // namespace kube_sim
