#include "support/kube_sim/fault_script.h"

#include <limits>

namespace kube_sim {

void Fault_Script::add(const Match& match, const Fault& fault) {
  const int last = match.count == 0 ? std::numeric_limits<int>::max() : match.nth + match.count - 1;
  entries_.push_back({match.method, std::regex(match.path), match.path.empty(), match.nth, last, fault});
}

void Fault_Script::clear() {
  entries_.clear();
}

Fault Fault_Script::take(const Request& request) {
  const Fault* hit = nullptr;
  for (Entry& entry : entries_) {
    if (!entry.method.empty() && entry.method != request.method) continue;
    if (!entry.any_path && !std::regex_match(request.path, entry.path)) continue;
    ++entry.seen;
    if (hit == nullptr && entry.seen >= entry.first && entry.seen <= entry.last) hit = &entry.fault;
  }
  if (hit == nullptr) return {};
  ++hits_;
  return *hit;
}

}  // namespace kube_sim
