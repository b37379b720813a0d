#pragma once

#include "k8s/api/k8s_workload.h"

/// The jobs of a namespace.
class K8S_Job : public K8S_Workload {
 public:
  K8S_Job(K8S_Client_var client, const std::string& ns);
  ~K8S_Job() override;
};
