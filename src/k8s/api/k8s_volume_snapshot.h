#pragma once

#include "k8s/api/k8s_resource.h"

class K8S_PVC;

/**
 * The volume snapshots of a namespace, under the group-version that K8S_Cluster knows when the object is made.
 *
 * The snapshots that this system makes bear k8s::label(). Their default name is k8s::generate_resource_name(claim,
 * "tessarin"), which K8S_PVC::create_from_snapshot() relies on.
 */
class K8S_Volume_Snapshot : public K8S_Resource {
 public:
  K8S_Volume_Snapshot(K8S_Client_var client, const std::string& ns);
  ~K8S_Volume_Snapshot() override;

  /// Makes a snapshot of the claim that the JSON file @a path describes as the API returns a claim, under the default
  /// name.
  bool create(const std::string& path);

  /// Makes a snapshot of the claim @a name, read through @a pvc_client. An empty @a snap_name means the default name.
  bool create_with_name(K8S_PVC& pvc_client, const std::string& name, const std::string& snap_name);

  /**
   * Waits until the snapshot is bound and ready to use, for @a retry_times rounds after the first (-1: without such a
   * bound) and about K8S_QVX_RETRY_TIMEOUT seconds. A snapshot that has failed uses up the wait.
   *
   * @param logging  whether a snapshot that does not get ready is logged. One that can't be read is logged in any case,
   *                 and not waited for.
   */
  bool is_ready_to_use(const std::string& snapshot_name, bool logging, int retry_times);

  /// Deletes all snapshots of the namespace that bear the agent's label, one after the other, and waits until each is
  /// gone. @retval false not all of them are gone; one failure doesn't end the sweep.
  bool delete_all();

  /// Makes a snapshot of the claim @a pvc, a bound claim of this object's namespace as the API returns it. The class is
  /// the one of the driver of the claim's volume.
  bool create_i(const json_spirit::Object& pvc, const std::string& snapshot_name);

 private:
  bool delete_item(const json_spirit::Object& item);
};
