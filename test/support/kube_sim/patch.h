#pragma once

#include "json_spirit/json_spirit_value.h"

/// The three ways of PATCH to describe a change. All change @a target in place.
namespace kube_sim {

/// RFC 7396.
void merge_patch(json_spirit::Value& target, const json_spirit::Value& patch);

/// As merge_patch, but elements of the lists that have a merge key (containers by name, conditions by type and so on)
/// are merged one by one, and with the directives "$patch", "$retainKeys", "$deleteFromPrimitiveList/..." and
/// "$setElementOrder/..." (which is read over: merged elements keep their places, new ones come last).
void strategic_merge_patch(json_spirit::Object& target, const json_spirit::Object& patch);

/// RFC 6902, but "replace" makes what is missing, as the real server does. Throws a Refusal (422) when an operation
/// does not apply; @a target is then half changed.
void json_patch(json_spirit::Value& target, const json_spirit::Array& operations);

}  // namespace kube_sim
