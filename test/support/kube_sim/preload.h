#pragma once

#include <string>

#include "support/kube_sim/cluster.h"

namespace kube_sim {

/**
 * Stores the objects of @a document: one object, a list of kind "List", or an array of them, as
 * `kubectl get -A -o json` prints them. Namespaces that are missing are made. Statuses are kept. Objects get new uids,
 * and references among them follow. An object that is there already stays as it is.
 *
 * @return how many were stored.
 * @throw std::runtime_error for what is no object of a known kind.
 */
size_t preload(Cluster& cluster, const json_spirit::Value& document);

/// Makes @a count running pods, a hundred to a namespace "bench-0", "bench-1" and so on, each with a claim.
void preload_pods(Cluster& cluster, size_t count);

}  // namespace kube_sim
