#include "json_spirit/extract.h"
#include "k8s/api/k8s_cluster.h"
#include "k8s/api/k8s_pod.h"
#include "k8s/api/k8s_pvc.h"
#include "k8s/api/k8s_utils.h"
#include "k8s/api/k8s_volume_snapshot.h"
#include "k8s/api/node_paths.h"
#include "kolt/check_macros.h"
#include "kolt/dir_size.h"
#include "kolt/make_shared_nothrow.h"
#include "kolt/rm_all.h"

using json_spirit::Array;
using json_spirit::Value;

namespace k8s {

namespace {

/// Deletes one after the other what bears the agent's label, up to the first that does not go.
bool delete_marked(K8S_Resource& resource, const char* what) {
  Value val;
  if (!resource.list(val, selector()) || val.type() != json_spirit::obj_type) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to list agent %C\n"), what));
    return false;
  }
  const Array* items = json_spirit::object_get_array(std::as_const(val).get_obj(), "items");
  if (!items) return true;
  for (const Value& item : *items) {
    const std::string* name = nullptr;
    pextract(item)("/metadata/name", name);
    if (kolt::is_null_or_empty(name) || !resource.delete_(*name, true, K8S_QVX_RETRY_TIMES)) return false;
  }
  return true;
}

}  // namespace

bool clean_env(const std::string& ns) {
  const K8S_Client_var client = make_shared_nothrow<K8S_Client>();
  KOLT_RETURN_IF_NULL(client, false);

  K8S_Pod pods(client, ns);
  K8S_PVC claims(client, ns);
  if (!delete_marked(pods, "pod") || !delete_marked(claims, "pvc")) return false;
  if (!K8S_Cluster::instance()->get_resource_gv("volumesnapshots").empty())
    K8S_Volume_Snapshot(client, ns).delete_all();

  umounts(data_directory);
  if (is_directory(root_directory)) rm_all(root_directory);
  return true;
}

}  // namespace k8s
