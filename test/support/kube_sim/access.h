#pragma once

#include "support/kube_sim/accounts.h"
#include "support/kube_sim/cluster.h"
#include "support/kube_sim/target.h"

namespace kube_sim {

/// Who sends a request, and whether that one may. Throws a Refusal (401 or 403) when not.
void check_access(const Cluster_Options& options, const Accounts& accounts, const Request& request,
                  const Target& target);

}  // namespace kube_sim
