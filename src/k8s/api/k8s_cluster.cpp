#include "k8s/api/k8s_cluster.h"

#include <boost/algorithm/string/predicate.hpp>

#include "ace/Null_Mutex.h"
#include "ace/Singleton.h"
#include "json_spirit/extract.h"
#include "json_spirit/filter.h"
#include "json_spirit/log_with_dump.h"
#include "k8s/api/k8s_namespace.h"
#include "k8s/api/k8s_node.h"
#include "k8s/api/k8s_pod.h"
#include "kolt/check_macros.h"
#include "kolt/get_env_r.h"
#include "kolt/make_shared_nothrow.h"
#include "kolt/natoi.h"

using json_spirit::Array;
using json_spirit::JSON_Dump;
using json_spirit::Object;
using json_spirit::Value;

namespace {

typedef ACE_Unmanaged_Singleton<K8S_Cluster, ACE_Null_Mutex> Cluster_Singleton;

constexpr int ok = 200;
constexpr char snapshots[] = "volumesnapshots";
constexpr char snapshot_classes[] = "volumesnapshotclasses";

bool bars_new_pods(const Object& taint) {
  const std::string* effect = json_spirit::object_get_str(taint, "effect");
  return effect && *effect == "NoSchedule";
}

bool takes_new_pods(const Object& node) {
  const Array* taints = nullptr;
  pextract(node)("/spec/taints", taints);
  if (!taints) return true;
  const auto objects = *taints | json_spirit::get_obj;
  return std::none_of(objects.begin(), objects.end(), bars_new_pods);
}

bool is_wanted(const std::string& name, const std::string* search_name) {
  if (boost::algorithm::starts_with(name, "kube-")) return false;
  return kolt::is_null_or_empty(search_name) || boost::algorithm::icontains(name, *search_name);
}

}  // namespace

K8S_Cluster* K8S_Cluster::instance() {
  return Cluster_Singleton::instance();
}

void K8S_Cluster::close_instance() {
  Cluster_Singleton::close();
}

void K8S_Cluster_fini() {
  K8S_Cluster::close_instance();
}

bool K8S_Cluster::init() {
  client_ = make_shared_nothrow<K8S_Client>();
  KOLT_RETURN_IF_NULL(client_, false);

  Value val;
  if (!client_->get("/version", val) || client_->get_response_code() != ok) {
    log_with_dump(LM_ERROR, "Failed to get version\n%s\n type=%d, response=%d\n", JSON_Dump(val, true), val.type(),
                  client_->get_response_code());
    return false;
  }
  version_.clear();
  extract(std::as_const(val).get_obj())("gitVersion", version_);
  if (version_.empty()) return false;

  set_resource_gv();  // a cluster without snapshots is fine
  return set_aux_info();
}

bool K8S_Cluster::set_resource_gv() {
  // Texts are compared, not numbers: "v1.9.3" counts as newer than "v1.21.0".
  resource_gv_["cronjobs"] = version_ >= "v1.21.0" ? "batch/v1" : "batch/v1beta1";
  return set_snapshot_version();
}

bool K8S_Cluster::set_snapshot_version() {
  KOLT_RETURN_IF_NULL(client_, false);
  Value val;
  if (!client_->get("/apis/snapshot.storage.k8s.io", val) || client_->get_response_code() != ok) {
    resource_gv_[snapshots].clear();
    resource_gv_[snapshot_classes].clear();
    log_with_dump(LM_ERROR, "Failed to get snapshot version\n%s\n type=%d,response=%d\n", JSON_Dump(val, true),
                  val.type(), client_->get_response_code());
    return false;
  }
  const std::string* group_version = nullptr;
  pextract(std::as_const(val))("/preferredVersion/groupVersion", group_version);
  if (kolt::is_null_or_empty(group_version)) return false;
  resource_gv_[snapshot_classes] = *group_version;
  resource_gv_[snapshots] = *group_version;
  return true;
}

bool K8S_Cluster::set_aux_info() {
  aux_key_ = get_env_r("AUX_KEY");
  aux_value_ = get_env_r("AUX_VALUE");
  current_ns_ = get_env_r("CURRENT_NAMESPACE");
  aux_port_ = natoi<u_short>(get_env_r("AUX_PORT").c_str());
  if (!aux_key_.empty() && !aux_value_.empty() && !current_ns_.empty() && aux_port_ != 0) return true;
  ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to get auxiliary agent information.\n")));
  return false;
}

bool K8S_Cluster::list_namespaces(K8S_Namespaces& namespaces, const std::string* search_name) {
  KOLT_RETURN_IF_NULL(client_, false);
  Value val;
  if (!K8S_Namespace(client_).list(val, {})) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to list namespace.\n")));
    return false;
  }
  Array* items = json_spirit::object_get_array(val.get_obj(), "items");
  KOLT_RETURN_IF_EMPTY(items, false);
  namespaces.reserve(namespaces.size() + items->size());
  for (Object& item : *items | json_spirit::get_obj) {
    std::string *namespace_name = nullptr, *namespace_status = nullptr, *namespace_uid = nullptr;
    pextract(item)("/status/phase", namespace_status)
        .chroot("/metadata")("/name", namespace_name)("/uid", namespace_uid);
    KOLT_RETURN_IF_EMPTY(namespace_name, false);
    KOLT_RETURN_IF_EMPTY(namespace_status, false);
    KOLT_RETURN_IF_EMPTY(namespace_uid, false);
    if (is_wanted(*namespace_name, search_name))
      namespaces.push_back({std::move(*namespace_status), std::move(*namespace_name), std::move(*namespace_uid)});
  }
  return true;
}

bool K8S_Cluster::list_aux_pods(Value& val) {
  if (K8S_Pod(client_, current_ns_).list(val, {{"labelSelector", {{aux_key_, aux_value_}}}}) &&
      val.type() == json_spirit::obj_type)
    return true;
  ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to list auxiliary pods.\n")));
  return false;
}

bool K8S_Cluster::list_aux_nodes(Array& nodes) {
  KOLT_RETURN_IF_NULL(client_, false);
  Value val;
  if (!list_aux_pods(val)) return false;
  Array* items = json_spirit::object_get_array(val.get_obj(), "items");
  KOLT_RETURN_IF_EMPTY(items, false);
  nodes.reserve(nodes.size() + items->size());
  for (Object& item : *items | json_spirit::get_obj) {
    std::string *node_name = nullptr, *pod_status = nullptr;
    pextract(item)("/spec/nodeName", node_name)("/status/phase", pod_status);
    KOLT_RETURN_IF_EMPTY(node_name, false);
    KOLT_RETURN_IF_EMPTY(pod_status, false);
    if (*pod_status == "Running") nodes.push_back(std::move(*node_name));
  }
  return true;
}

int K8S_Cluster::list_aux_nodes_num() {
  KOLT_RETURN_IF_NULL(client_, 0);
  Value val;
  if (!list_aux_pods(val)) return 0;
  const Array* items = json_spirit::object_get_array(std::as_const(val).get_obj(), "items");
  return items ? static_cast<int>(items->size()) : 0;
}

int K8S_Cluster::get_no_taint_node_num() {
  KOLT_RETURN_IF_NULL(client_, 0);
  Value val;
  if (!K8S_Node(client_).list(val, {}) || val.type() != json_spirit::obj_type) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to list no taint nodes.\n")));
    return 0;
  }
  const Array* items = json_spirit::object_get_array(std::as_const(val).get_obj(), "items");
  KOLT_RETURN_IF_EMPTY(items, 0);
  const auto nodes = *items | json_spirit::get_obj;
  return static_cast<int>(std::count_if(nodes.begin(), nodes.end(), takes_new_pods));
}

std::string& K8S_Cluster::get_resource_gv(const std::string& resource) {
  return resource_gv_[resource];
}
