#pragma once

#include <string>

#include "kolt/posix_fd.h"

/**
 * Takes down what a crashed agent left on the node: the binds below the private data directory, deepest first and
 * lazily, since a process may still stand in one; then the directory itself, never anything below a mount.
 *
 * While the object lives no other agent sweeps the place.
 */
class Leftovers {
 public:
  /// Sweeps. When another agent uses the place, or it cannot be made, a line at LM_WARNING says so and nothing is
  /// touched. What cannot be taken down is logged at LM_ERROR and stays.
  void sweep(const std::string& base = "/var/cache/velmora/tessarin/k8s", const std::string& data = "data");

 private:
  Posix_Fd lock_;
};
