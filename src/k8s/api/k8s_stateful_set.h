#pragma once

#include "k8s/api/k8s_workload.h"

/// The stateful sets of a namespace. Their claim templates are not looked at.
class K8S_Stateful_Set : public K8S_Workload {
 public:
  K8S_Stateful_Set(K8S_Client_var client, const std::string& ns);
  ~K8S_Stateful_Set() override;
};
