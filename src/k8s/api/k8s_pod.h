#pragma once

#include "k8s/api/k8s_workload.h"

/// The pods of a namespace. A bare pod is a workload that is its own only pod.
class K8S_Pod : public K8S_Workload {
 public:
  K8S_Pod(K8S_Client_var client, const std::string& ns);
  ~K8S_Pod() override;

  /// Appends @a wk to @a arr. Nothing is sent.
  bool get_pods(json_spirit::Value wk, json_spirit::Array& arr) override;

  /// Whether the pod's phase is "Running". A pod that can't be read or has no phase is logged; another phase is not.
  bool is_running(const std::string& name);
};
