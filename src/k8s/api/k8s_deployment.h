#pragma once

#include "k8s/api/k8s_workload.h"

/// The deployments of a namespace.
class K8S_Deployment : public K8S_Workload {
 public:
  K8S_Deployment(K8S_Client_var client, const std::string& ns);
  ~K8S_Deployment() override;

  /**
   * Changes the scale of the deployment @a name.
   *
   * @param req_body  a merge patch of the scale sub-resource, such as {"spec": {"replicas": 2}}.
   * @retval true  status 200.
   */
  bool patch(const std::string& name, const json_spirit::Value& req_body);
};
