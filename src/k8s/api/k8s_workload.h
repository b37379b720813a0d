#pragma once

#include <memory>
#include <vector>

#include "k8s/api/k8s_resource.h"

/// Whatever runs pods, seen as the way from a chosen workload to its pods and to the claims that it uses.
class K8S_Workload : public K8S_Resource {
 public:
  /// @param vol_path  JSON Pointer to the volumes in an object of this kind.
  K8S_Workload(K8S_Client_var client, const std::string& url, const std::string& all_url, const std::string& vol_path);
  ~K8S_Workload() override;

  /**
   * Appends to @a vol_names the names of the claims of the object @a val whose volumes are CSI volumes.
   *
   * @param ns  the namespace of the claims.
   * @retval true   also if there are no volumes.
   * @retval false  a volume is malformed, or a claim is not there or not bound; what was found before it stays. The
   *                cause is in the log, but for a claim without a name.
   */
  virtual bool extract_pvcs(const json_spirit::Value& val, std::vector<std::string>& vol_names, const std::string& ns);

  /**
   * Lists the pods of the workload @a wk by its labels, in the namespace that this object was made for.
   *
   * @param arr  receives the pods in place of what it held, with the "kind" and "apiVersion" that a list lacks.
   * @retval false  the cause is in the log, unless it is that there are no pods.
   */
  virtual bool get_pods(json_spirit::Value wk, json_spirit::Array& arr);

 protected:
  std::string vol_path_;

 private:
  bool append_csi_claim(const json_spirit::Object& volume, std::vector<std::string>& vol_names, const std::string& ns);
};

typedef std::unique_ptr<K8S_Workload> K8S_Workload_ptr;
