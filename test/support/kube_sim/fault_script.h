#pragma once

#include <list>
#include <regex>

#include "support/kube_sim/front.h"

namespace kube_sim {

/// The faults that a front still has to make. Threads: the caller locks.
class Fault_Script {
 public:
  void add(const Match& match, const Fault& fault);
  void clear();
  size_t hits() const { return hits_; }
  /// The fault that @a request meets. Counts the request for all others as well.
  Fault take(const Request& request);

 private:
  struct Entry {
    std::string method;
    std::regex path;
    bool any_path;
    int first, last;
    Fault fault;
    int seen = 0;
  };

  std::list<Entry> entries_;
  size_t hits_ = 0;
};

}  // namespace kube_sim
