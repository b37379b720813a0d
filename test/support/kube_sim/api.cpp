#include "support/kube_sim/api.h"

namespace kube_sim {

Watch_Sink::~Watch_Sink() = default;
Exec_Stream::~Exec_Stream() = default;
Exec::~Exec() = default;
Api::~Api() = default;

bool Api::watch(const Request&, Watch_Sink&) {
  return false;
}

std::unique_ptr<Exec> Api::exec(const Request&, Answer&) {
  return nullptr;
}

}  // namespace kube_sim
