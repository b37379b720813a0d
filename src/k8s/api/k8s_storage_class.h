#pragma once

#include "k8s/api/k8s_resource.h"

/// The storage classes of the cluster.
class K8S_Storage_Class : public K8S_Resource {
 public:
  explicit K8S_Storage_Class(K8S_Client_var client);
  ~K8S_Storage_Class() override;

  /**
   * Copies the class @a sc under a random name, with the volume binding mode "Immediate": claims of the copy are bound
   * without a pod that uses them. The copy bears no label, so only the caller can remove it.
   *
   * @param new_sc  the name of the copy, also if the class could not be made; untouched if it was not tried.
   */
  bool create_immediate_sc(const std::string& sc, std::string& new_sc);
};
