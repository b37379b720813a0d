#pragma once

#include "json_spirit/json_spirit_value.h"

namespace kube_sim {

/// Stores @a value unless the object has such a member.
void set_default(json_spirit::Object& object, const char* key, json_spirit::Value value);

/// The defaults of the spec of a pod, or of the pods in a workload's template.
void default_pod_spec(json_spirit::Object& spec);
/// The defaults of a pod: of its spec, the service account's token as a volume, and the status.
void default_pod(json_spirit::Object& pod);

}  // namespace kube_sim
