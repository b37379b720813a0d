#pragma once

#include "k8s/api/k8s_resource.h"

/// The namespaces of the cluster, which this system only lists.
class K8S_Namespace : public K8S_Resource {
 public:
  explicit K8S_Namespace(K8S_Client_var client);
  ~K8S_Namespace() override;

  /// Nothing is sent: one line at LM_INFO, and true.
  bool delete_(const std::string& name, bool logging, int retry_times) override;
};
