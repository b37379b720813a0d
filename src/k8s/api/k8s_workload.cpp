#include "k8s/api/k8s_workload.h"

#include <boost/regex.hpp>

#include "json_spirit/assign.h"
#include "json_spirit/extract.h"
#include "json_spirit/filter.h"
#include "k8s/api/k8s_pod.h"
#include "k8s/api/k8s_pv.h"
#include "k8s/api/k8s_pvc.h"
#include "kolt/check_macros.h"

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;

K8S_Workload::K8S_Workload(K8S_Client_var client, const std::string& url, const std::string& all_url,
                           const std::string& vol_path)
    : K8S_Resource(std::move(client), url, all_url), vol_path_(vol_path) {}

K8S_Workload::~K8S_Workload() = default;

bool K8S_Workload::extract_pvcs(const Value& val, std::vector<std::string>& vol_names, const std::string& ns) {
  const Array* volumes = nullptr;
  pextract(val)(vol_path_, volumes);
  if (!volumes) return true;
  vol_names.reserve(vol_names.size() + volumes->size());
  for (const Value& volume : *volumes) {
    if (volume.type() != json_spirit::obj_type) {
      ACE_ERROR((LM_ERROR, ACE_TEXT("Persistent volume claim is not object type.\n")));
      return false;
    }
    if (!append_csi_claim(volume.get_obj(), vol_names, ns)) return false;
  }
  return true;
}

/// Does nothing for a volume without a claim, and for a claim whose volume is no CSI volume.
bool K8S_Workload::append_csi_claim(const Object& volume, std::vector<std::string>& vol_names, const std::string& ns) {
  const std::string* name = json_spirit::object_get_str(volume, "name");
  KOLT_RETURN_IF_EMPTY(name, false);
  if (!volume.contains("persistentVolumeClaim")) return true;

  const std::string* claim = nullptr;
  pextract(volume)("/persistentVolumeClaim/claimName", claim);
  Value pvc_val;
  if (!claim || claim->empty() || !K8S_PVC(client_, ns).get(*claim, pvc_val, true)) return false;

  const std::string* volume_name = nullptr;
  pextract(std::as_const(pvc_val))("/spec/volumeName", volume_name);
  KOLT_RETURN_IF_EMPTY(volume_name, false);
  if (K8S_PV(client_).is_CSI(*volume_name)) vol_names.push_back(*claim);
  return true;
}

bool K8S_Workload::get_pods(Value wk, Array& arr) {
  const Object* labels = nullptr;
  pextract(std::as_const(wk))("/spec/selector/matchLabels", labels);
  KOLT_RETURN_IF_EMPTY(labels, false);
  query_map_type terms;
  for (const auto& i : *labels) {
    KOLT_RETURN_IF_NOT_IN("k8s/api/k8s_workload", i.second.type() == json_spirit::str_type, i.second, "string", false);
    terms[i.first] = i.second.get_str();
  }

  static const boost::regex namespace_pattern("namespaces/([a-z0-9]([-a-z0-9]{0,61}[a-z0-9])?)");
  boost::smatch match;
  if (!boost::regex_search(url_, match, namespace_pattern)) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to get namespace from %s.\n"), url_.c_str()));
    return false;
  }

  Value val;
  if (!K8S_Pod(client_, match[1].str()).list(val, {{"labelSelector", std::move(terms)}})) {
    const std::string* name = nullptr;
    pextract(std::as_const(wk))("/metadata/name", name);
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to list pods for workload %s.\n"), name ? name->c_str() : nullptr));
    return false;
  }
  KOLT_RETURN_IF_NOT_IN("k8s/api/k8s_workload", val.type() == json_spirit::obj_type, val, "object", false);

  if (Array* items = json_spirit::object_get_array(val.get_obj(), "items")) arr = std::move(*items);
  for (Object& pod : arr | json_spirit::get_obj) json_spirit::insert(pod)("kind", "Pod")("apiVersion", "v1");
  return !arr.empty();
}
