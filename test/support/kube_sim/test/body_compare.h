#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "json_spirit/json_spirit_value.h"

namespace kube_sim {

/// Values that another run of the same exchanges gives anew: of each recorded uid, resourceVersion or continue text,
/// ours.
typedef std::map<std::string, std::string> Renewed_Values;

/**
 * Compares a recorded body with ours: what is present, what is absent, and every value.
 *
 * Values that differ between any two runs (uids, versions, times, generated names) only have to be present; those that
 * later requests use are noted in @a renewed. Managed fields, and the few defaults that nobody here reads, may be
 * absent from ours.
 * @param without  members of a Status that are not looked at
 * @return one line for each difference
 */
std::vector<std::string> compare_bodies(const json_spirit::Value& recorded, const json_spirit::Value& ours,
                                        const std::set<std::string>& without, Renewed_Values& renewed);

/// Puts our uids and versions in the place of the recorded ones.
void renew(json_spirit::Value& document, const Renewed_Values& renewed);

}  // namespace kube_sim
