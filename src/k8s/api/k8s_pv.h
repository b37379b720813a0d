#pragma once

#include "k8s/api/k8s_resource.h"

/// The persistent volumes of the cluster, which this system only reads.
class K8S_PV : public K8S_Resource {
 public:
  explicit K8S_PV(K8S_Client_var client);
  ~K8S_PV() override;

  /// Nothing is sent: one line at LM_INFO, and true. This system never deletes a volume.
  bool delete_(const std::string& name, bool logging, int retry_times) override;

  /// Whether the volume is a CSI volume; also false, with the log of get(), if it can't be read.
  bool is_CSI(const std::string& name);

  /// The CSI driver of the volume.
  /// @retval false  the volume can't be read, or @a driver is empty: it keeps what it held if the volume names none.
  bool get_driver(const std::string& name, std::string& driver);
};
