#include <boost/algorithm/string/predicate.hpp>

#include "json_spirit/assign.h"
#include "json_spirit/extract.h"
#include "k8s/api/k8s_utils.h"
#include "k8s/api/k8s_workload_factory.h"
#include "kolt/check_macros.h"

using json_spirit::Array;
using json_spirit::Object_Maker;
using json_spirit::Value;

namespace {

constexpr std::size_t list_suffix_length = 4;  // of "List"

std::string take_text(Value& item, const char* path) {
  std::string* text = nullptr;
  pextract(item)(path, text);
  return text ? std::move(*text) : std::string();
}

}  // namespace

K8S_Workload_Helper::K8S_Workload_Helper(K8S_Client_var client) : client_(std::move(client)) {}

bool K8S_Workload_Helper::list_workload_objects(Array& arr, const std::string* ns, const std::string* search_name) {
  if (!get_workload_objects(CRONJOB_WORKLOAD, arr, ns, search_name)) return false;
  for (const K8S_Workload_Type type :
       {DEPLOYMENT_WORKLOAD, DAEMONSET_WORKLOAD, JOB_WORKLOAD, POD_WORKLOAD, REPLICASET_WORKLOAD, STATEFULSET_WORKLOAD})
    if (!append_workload_objects(type, arr, ns, search_name)) return false;
  return true;
}

bool K8S_Workload_Helper::get_workload_objects(K8S_Workload_Type workload_type, Array& arr, const std::string* ns,
                                               const std::string* search_name) {
  arr.clear();
  return get_workload_objects_i(workload_type, arr, ns, search_name);
}

bool K8S_Workload_Helper::append_workload_objects(K8S_Workload_Type workload_type, Array& arr, const std::string* ns,
                                                  const std::string* search_name) {
  return get_workload_objects_i(workload_type, arr, ns, search_name);
}

bool K8S_Workload_Helper::get_workload_objects_i(K8S_Workload_Type workload_type, Array& arr, const std::string* ns,
                                                 const std::string* search_name) {
  const K8S_Workload_ptr workload = K8S_Workload_Factory::create(client_, workload_type, ns);
  if (!workload) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to get client for %s.\n"), k8s::get_workload_name(workload_type)));
    return false;
  }
  Value val;
  if (!(kolt::is_null_or_empty(ns) ? workload->list_all(val, {}) : workload->list(val, {}))) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to list workload in %s\n"), ns ? ns->c_str() : "all namespaces"));
    return false;
  }

  std::string* kind = nullptr;
  Array* items = nullptr;
  pextract(val)("/kind", kind)("/items", items);
  KOLT_RETURN_IF_EMPTY(kind, false);
  if (kind->size() <= list_suffix_length) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Invalid kind %s.\n"), kind->c_str()));
    return false;
  }
  if (!items) return true;
  kind->resize(kind->size() - list_suffix_length);
  const std::string type = k8s::kind_to_resource(std::move(*kind));
  arr.reserve(arr.size() + items->size());
  for (Value& item : *items) append_workload(item, type, arr, search_name);
  return true;
}

void K8S_Workload_Helper::append_workload(Value& item, const std::string& type, Array& arr,
                                          const std::string* search_name) {
  std::string name = take_text(item, "/metadata/name"), uid = take_text(item, "/metadata/uid"),
              ns = take_text(item, "/metadata/namespace");
  // Owners come before the cheaper tests: what is searched for doesn't change which requests a listing makes.
  if (name.empty() || k8s::should_skip_workload(client_, ns, item)) return;
  if (!kolt::is_null_or_empty(search_name) && !boost::algorithm::icontains(name, *search_name)) return;
  if (boost::algorithm::starts_with(ns, "kube-")) return;
  arr.push_back(Object_Maker()("name", std::move(name))("type", type)("uid", std::move(uid))(
      "namespace", std::move(ns))("has_children", false));
}
