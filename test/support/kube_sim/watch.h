#pragma once

#include "support/kube_sim/api.h"
#include "support/kube_sim/object_store.h"
#include "support/kube_sim/resource_table.h"
#include "support/kube_sim/target.h"

namespace kube_sim {

/// Streams the changes of a collection until the client has gone or timeoutSeconds are over. Throws a Refusal before
/// anything is sent.
void run_watch(const Request& request, const Target& target, const Resource& resource, Object_Store& store,
               Watch_Sink& sink);

}  // namespace kube_sim
