#pragma once

#include "support/kube_sim/answer.h"
#include "support/kube_sim/resource_table.h"
#include "support/kube_sim/target.h"

namespace kube_sim {

/// Answers what is no object: /version, health, the lists of groups, versions and resources, and as much of OpenAPI as
/// a client needs to see that fields are validated by the server. Throws Refusal.
Answer discovery_answer(const std::string& method, const Target& target, const Resource_Table& table,
                        const std::string& version);

/// 36 for "v1.36.2".
int minor_of(const std::string& version);

}  // namespace kube_sim
