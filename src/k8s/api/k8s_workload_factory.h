#pragma once

#include "k8s/api/k8s_def.h"
#include "k8s/api/k8s_workload.h"

class K8S_Workload_Factory {
 public:
  /// The workloads of a kind.
  /// @param ns  the namespace; null is an empty one, which serves for list_all().
  /// @return null, with one line at LM_ERROR, for a kind that is none.
  static K8S_Workload_ptr create(K8S_Client_var client, K8S_Workload_Type workload_type, const std::string* ns);
};
