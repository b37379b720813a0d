#pragma once

#include "k8s/api/k8s_workload.h"

/// The replica sets of a namespace.
class K8S_Replica_Set : public K8S_Workload {
 public:
  K8S_Replica_Set(K8S_Client_var client, const std::string& ns);
  ~K8S_Replica_Set() override;
};
