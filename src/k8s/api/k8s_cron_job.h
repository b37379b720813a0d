#pragma once

#include "k8s/api/k8s_workload.h"

/// The cron jobs of a namespace, under the group-version that K8S_Cluster knows when the object is made. extract_pvcs()
/// finds no claims: where it looks a cron job has no volumes.
class K8S_Cron_Job : public K8S_Workload {
 public:
  K8S_Cron_Job(K8S_Client_var client, const std::string& ns);
  ~K8S_Cron_Job() override;
};
