#pragma once

#include "json_spirit/json_spirit_value.h"
#include "support/kube_sim/resource_table.h"
#include "support/kube_sim/status_document.h"

namespace kube_sim {

/// What is wrong with an object that is about to be stored. Looks at names, labels and the members that have to be
/// there; what else an object says is not looked at.
Causes validate(const Resource& resource, const json_spirit::Object& object);

/// What an update changes that must not change.
Causes validate_update(const Resource& resource, const json_spirit::Object& before, const json_spirit::Object& after);

}  // namespace kube_sim
