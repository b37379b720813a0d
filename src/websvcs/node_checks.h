#pragma once

#include <string>
#include <vector>

#include "websvcs/self_checks.h"

/// Where the checks of the node look.
struct Node_Paths {
  std::string kubelet_dir;
  std::string private_dir = "/var/cache/velmora/tessarin";  ///< in which jobs make their directory "k8s"
  std::string state_dir;
  std::string pool;  ///< URL, or the path of a file with a pool's JSON description; empty: no check
};

/**
 * What has to be in order on the node before a job can succeed:
 *
 * | Name | Is fine when |
 * |---|---|
 * | "kubelet" | the kubelet's directory is there and can be read |
 * | "propagation" | volumes that are mounted from now on below the kubelet's directory will be seen |
 * | "bind" | a directory can be bound to another one; tried once, in "self-check" in the state directory |
 * | "private" | a directory can be made in the private directory |
 * | "state" | a file can be written and synced in the state directory |
 * | "pool" | the pool can be listed; only where one is named |
 */
std::vector<Check> node_checks(const Node_Paths& paths);
