#pragma once

#include "k8s/api/k8s_resource.h"

/// The events of a namespace: why an object is stuck.
class K8S_Events : public K8S_Resource {
 public:
  K8S_Events(K8S_Client_var client, const std::string& ns);
  ~K8S_Events() override;

  /// Writes the messages of the events of the object @a name of @a kind to the log, at LM_ERROR and in the server's
  /// order. Without events it writes nothing.
  void show(const std::string& name, const std::string& kind);
};
