#pragma once

#include "k8s/api/k8s_workload.h"

/// The daemon sets of a namespace. extract_pvcs() finds no claims: where it looks a daemon set has no volumes.
class K8S_Daemon_Set : public K8S_Workload {
 public:
  K8S_Daemon_Set(K8S_Client_var client, const std::string& ns);
  ~K8S_Daemon_Set() override;
};
