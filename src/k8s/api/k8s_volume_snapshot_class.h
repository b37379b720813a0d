#pragma once

#include "k8s/api/k8s_resource.h"

/// The volume snapshot classes of the cluster, under the group-version that K8S_Cluster knows when the object is made.
class K8S_Volume_Snapshot_Class : public K8S_Resource {
 public:
  explicit K8S_Volume_Snapshot_Class(K8S_Client_var client);
  ~K8S_Volume_Snapshot_Class() override;

  /**
   * The first class that the server lists with the CSI driver @a driver_name.
   *
   * @param res  receives its name.
   * @retval false  the list can't be read, is empty or has a class without a driver before that one, with the cause in
   *                the log; or no class has this driver, which is not logged.
   */
  bool get_snapshot_class_name(const std::string& driver_name, std::string& res);
};
