#pragma once

#include <string>

#include "support/kube_sim/behaviour.h"
#include "support/kube_sim/cluster.h"
#include "support/kube_sim/front.h"

namespace kube_sim {

/// The command line of kube-sim.
struct Program_Options {
  Front_Options front;
  Cluster_Options cluster;
  Behaviour behaviour;
  std::string state_directory = "kube-sim-state";
  /// Empty: none.
  std::string service_account_directory;
  std::string objects_file;
  size_t nodes = 1;
  size_t pods = 0;
};

/// @return -1: go on; otherwise the exit code, all having been said (help, or what is wrong).
int parse(int argc, char** argv, Program_Options& options);

}  // namespace kube_sim
