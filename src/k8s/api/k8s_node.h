#pragma once

#include "k8s/api/k8s_resource.h"

/// The nodes of the cluster, which this system only reads.
class K8S_Node : public K8S_Resource {
 public:
  explicit K8S_Node(K8S_Client_var client);
  ~K8S_Node() override;

  /// Nothing is sent: one line at LM_ERROR, and false.
  bool delete_(const std::string& name, bool logging, int retry_times) override;
  /// Nothing is sent: one line at LM_ERROR, and false.
  bool post(const json_spirit::Value& val) override;

  /**
   * The first address of type "InternalIP", at which the node's agent is reached.
   *
   * @retval false  there is none, or an entry before it lacks its type or address; the cause is in the log and @a addr
   *                is untouched.
   */
  bool get_node_addr(const std::string& name, std::string& addr);
};
