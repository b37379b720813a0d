#pragma once

#include <memory>

#include "support/kube_sim/behaviour.h"
#include "support/kube_sim/cluster.h"

namespace kube_sim {

/**
 * The controllers of a simulated cluster, as far as a client of the API sees their work.
 *
 * - Claims get a volume, at once or when a pod uses them, as their class says; also from another claim or a snapshot.
 * - A claim in deletion stays until no pod uses it, then its volume goes too.
 * - Snapshots get a content and become ready.
 * - Pods are given a node, run, and go when they are deleted. What runs in them never ends by itself.
 * - Deployments, replica sets, stateful sets, daemon sets and jobs make pods from their templates.
 * - What belongs to an object that is gone goes too, and so does what is in a namespace that is deleted.
 *
 * They start in the constructor, in a thread of their own, and end in the destructor. There must be a node (`add_node`)
 * for pods to run on. Threads: any.
 */
class Controllers {
 public:
  explicit Controllers(Cluster& cluster, const Behaviour& behaviour = {});
  ~Controllers();
  Controllers(const Controllers&) = delete;
  Controllers& operator=(const Controllers&) = delete;

  /// From now on.
  void set(const Behaviour& behaviour);
  /// Waits until nothing is left to do but what has to wait for its delay. False after @a patience.
  bool settle(std::chrono::milliseconds patience = std::chrono::seconds(30)) const;

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

/// A node that is ready.
void add_node(Cluster& cluster, const std::string& name);
/// A storage class. @a mode "Immediate" or "WaitForFirstConsumer".
void add_storage_class(Cluster& cluster, const std::string& name, const std::string& provisioner,
                       const std::string& mode = "Immediate", bool is_default = false);
/// A snapshot class with the deletion policy "Delete".
void add_snapshot_class(Cluster& cluster, const std::string& name, const std::string& driver);

}  // namespace kube_sim
