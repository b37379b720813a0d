#pragma once

#include "json_spirit/json_spirit_value.h"

namespace kube_sim {

/// Stores @a value unless the object has such a member.
void set_default(json_spirit::Object& object, const char* key, json_spirit::Value value);

/// The defaults of what a pod, or a pod of a workload's template, is to be.
void default_pod_spec(json_spirit::Object& spec);
/// The defaults of a pod: of what it is to be, the service account's token as a volume, and the status.
void default_pod(json_spirit::Object& pod);

}  // namespace kube_sim
