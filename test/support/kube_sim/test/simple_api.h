#pragma once

#include <functional>

#include "support/kube_sim/api.h"

namespace kube_sim_test {

/// An API made of functions.
class Simple_Api : public kube_sim::Api {
 public:
  std::function<kube_sim::Answer(const kube_sim::Request&)> on_request = [](const kube_sim::Request& request) {
    kube_sim::Answer answer;
    answer.body = request.method + " " + request.path;
    return answer;
  };
  std::function<bool(const kube_sim::Request&, kube_sim::Watch_Sink&)> on_watch;
  std::function<std::unique_ptr<kube_sim::Exec>()> on_exec;

  kube_sim::Answer answer(const kube_sim::Request& request) override { return on_request(request); }
  bool watch(const kube_sim::Request& request, kube_sim::Watch_Sink& sink) override {
    return on_watch && on_watch(request, sink);
  }
  std::unique_ptr<kube_sim::Exec> exec(const kube_sim::Request&, kube_sim::Answer&) override {
    return on_exec ? on_exec() : nullptr;
  }
};

/// An exec made of a function.
class Simple_Exec : public kube_sim::Exec {
 public:
  explicit Simple_Exec(std::function<void(kube_sim::Exec_Stream&)> body) : body_(std::move(body)) {}
  void run(kube_sim::Exec_Stream& stream) override { body_(stream); }

 private:
  std::function<void(kube_sim::Exec_Stream&)> body_;
};

}  // namespace kube_sim_test
