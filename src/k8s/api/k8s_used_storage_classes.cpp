#include "json_spirit/extract.h"
#include "json_spirit/filter.h"
#include "k8s/api/k8s_pod.h"
#include "k8s/api/k8s_pvc.h"
#include "k8s/api/k8s_utils.h"
#include "k8s/api/k8s_workload_factory.h"
#include "kolt/check_macros.h"
#include "kolt/make_shared_nothrow.h"

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;

namespace k8s {

bool list_pods_in_ns(Array& pods, const std::string& ns) {
  const K8S_Client_var client = make_shared_nothrow<K8S_Client>();
  KOLT_RETURN_IF_NULL(client, false);
  Value val;
  if (!K8S_Pod(client, ns).list(val, {}) || val.type() != json_spirit::obj_type) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to list pods under namespace '%s'.\n"), ns.c_str()));
    return false;
  }
  Array* items = json_spirit::object_get_array(val.get_obj(), "items");
  if (kolt::is_null_or_empty(items)) {
    ACE_ERROR((LM_WARNING, ACE_TEXT("namespace '%s' does not have pods.\n"), ns.c_str()));
    return true;
  }
  pods = std::move(*items);
  return true;
}

bool get_scs_from_ns(const std::string& ns, Storage_Class_Set& sc_set) {
  Array pods;
  if (!list_pods_in_ns(pods, ns)) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to list pods in namespace '%s'.\n"), ns.c_str()));
    return false;
  }
  if (!extract_scs_from_pods(ns, pods, sc_set)) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to get storage classes from namespace '%s'.\n"), ns.c_str()));
    return false;
  }
  return true;
}

bool extract_scs_from_workload(const Backup_Resource& wk, Storage_Class_Set& sc_set) {
  return extract_scs_from_workload(wk.ns, wk.type, wk.name, sc_set);
}

bool extract_scs_from_workload(const std::string& ns, const std::string& type, const std::string& workload_name,
                               Storage_Class_Set& sc_set) {
  const K8S_Client_var client = make_shared_nothrow<K8S_Client>();
  KOLT_RETURN_IF_NULL(client, false);
  const K8S_Workload_ptr workload = K8S_Workload_Factory::create(client, get_workload_type(type.c_str()), &ns);
  Value val;
  Array pods;
  if (workload && workload->get(workload_name, val, true) && val.type() == json_spirit::obj_type &&
      workload->get_pods(std::move(val), pods) && extract_scs_from_pods(ns, pods, sc_set))
    return true;
  ACE_ERROR((LM_WARNING, ACE_TEXT("Failed to get storage classes from namespace '%s'.\n"), ns.c_str()));
  return false;
}

bool extract_scs_from_pods(const std::string& ns, const Array& pods, Storage_Class_Set& sc_set) {
  for (const Object& pod : pods | json_spirit::get_obj) {
    const Array* volumes = nullptr;
    pextract(pod)("/spec/volumes", volumes);
    KOLT_RETURN_IF_EMPTY(volumes, false);
    for (const Object& volume : *volumes | json_spirit::get_obj) {
      const Object* claim = json_spirit::object_get_object(volume, "persistentVolumeClaim");
      if (!claim) continue;
      const std::string* pvc_name = json_spirit::object_get_str(*claim, "claimName");
      KOLT_RETURN_IF_EMPTY(pvc_name, false);
      get_sc_from_pvc(ns, *pvc_name, sc_set);
    }
  }
  return true;
}

bool get_sc_from_pvc(const std::string& ns, const std::string& pvc, Storage_Class_Set& sc_set) {
  const K8S_Client_var client = make_shared_nothrow<K8S_Client>();
  KOLT_RETURN_IF_NULL(client, false);
  Value val;
  if (!K8S_PVC(client, ns).get(pvc, val, true) || val.type() != json_spirit::obj_type) return false;
  const std::string* sc = nullptr;
  pextract(std::as_const(val))("/spec/storageClassName", sc);
  KOLT_RETURN_IF_EMPTY(sc, false);
  sc_set.insert(*sc);
  return true;
}

}  // namespace k8s
