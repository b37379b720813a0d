#include "k8s/api/k8s_pod.h"

#include "json_spirit/extract.h"
#include "kolt/check_macros.h"
#include "kolt/string_sprintf.h"

using json_spirit::Array;
using json_spirit::Value;

K8S_Pod::K8S_Pod(K8S_Client_var client, const std::string& ns)
    : K8S_Workload(std::move(client), string_sprintf("/api/v1/namespaces/%s/pods", ns.c_str()), "/api/v1/pods",
                   "/spec/volumes") {}

K8S_Pod::~K8S_Pod() = default;

bool K8S_Pod::get_pods(Value wk, Array& arr) {
  arr.push_back(std::move(wk));
  return true;
}

bool K8S_Pod::is_running(const std::string& name) {
  Value val;
  if (!get(name, val, true)) return false;
  const std::string* pod_status = nullptr;
  pextract(std::as_const(val))("/status/phase", pod_status);
  KOLT_RETURN_IF_EMPTY(pod_status, false);
  return *pod_status == "Running";
}
