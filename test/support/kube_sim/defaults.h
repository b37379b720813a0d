#pragma once

#include <string>

#include "json_spirit/json_spirit_value.h"
#include "support/kube_sim/resource_table.h"

namespace kube_sim {

/// Fills in what the server itself puts into a new object: phases, finalizers, labels, and the defaults that a client
/// can meet. The object has its name and uid.
void apply_defaults(const Resource& resource, json_spirit::Object& object);

/// What an update of any kind keeps true: a data source is only kept where it means something, and both of its members
/// say the same.
void normalize(const Resource& resource, json_spirit::Object& object);

/// Random lower-case letters and digits, as in generated names.
std::string random_suffix();
std::string random_uid();
/// "2026-11-20T21:59:07Z", now and so many seconds later.
std::string timestamp(long seconds_from_now = 0);

}  // namespace kube_sim
