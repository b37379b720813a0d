#include "k8s/api/k8s_volume_snapshot.h"

#include "json_spirit/assign.h"
#include "json_spirit/dump.h"
#include "json_spirit/extract.h"
#include "json_spirit/filter.h"
#include "k8s/api/k8s_cluster.h"
#include "k8s/api/k8s_pv.h"
#include "k8s/api/k8s_pvc.h"
#include "k8s/api/k8s_utils.h"
#include "k8s/api/k8s_volume_snapshot_class.h"
#include "kolt/check_macros.h"
#include "kolt/retry_macros.h"
#include "kolt/string_sprintf.h"

using json_spirit::Array;
using json_spirit::JSON_Dump;
using json_spirit::JSON_Pointer;
using json_spirit::Object;
using json_spirit::Object_Maker;
using json_spirit::Value;

namespace {

const std::string& group_version() {
  return K8S_Cluster::instance()->get_resource_gv("volumesnapshots");
}

/// Whether the cluster offers snapshots; if not, one line tells so.
bool has_group_version() {
  if (!group_version().empty()) return true;
  ACE_ERROR((LM_ERROR, ACE_TEXT("The snapshot version is not set.\n")));
  return false;
}

bool is_ready(const Value& snapshot) {
  std::string content;
  JSON_Pointer("/status/boundVolumeSnapshotContentName", false, true).get(snapshot, content);
  bool ready = false;
  if (!content.empty()) pextract(snapshot)("/status/readyToUse", ready);
  return ready;
}

}  // namespace

K8S_Volume_Snapshot::K8S_Volume_Snapshot(K8S_Client_var client, const std::string& ns)
    : K8S_Resource(std::move(client),
                   string_sprintf("/apis/%s/namespaces/%s/volumesnapshots", group_version().c_str(), ns.c_str()), "") {}

K8S_Volume_Snapshot::~K8S_Volume_Snapshot() = default;

bool K8S_Volume_Snapshot::create(const std::string& path) {
  if (!has_group_version()) return false;
  KOLT_RETURN_IF_NULL(client_, false);
  Value pvc;
  if (!json_spirit::load_json(path.c_str(), pvc, json_spirit::LOAD_STRICT) || pvc.type() != json_spirit::obj_type) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to load json from path '%s'.\n"), path.c_str()));
    return false;
  }
  return create_i(pvc.get_obj(), "");
}

bool K8S_Volume_Snapshot::create_with_name(K8S_PVC& pvc_client, const std::string& name, const std::string& snap_name) {
  Value body;
  if (pvc_client.get(name, body, true) && create_i(body.get_obj(), snap_name)) return true;
  ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to create volume snapshot '%s' of persistent volume claim '%s'"),
             snap_name.c_str(), name.c_str()));
  return false;
}

bool K8S_Volume_Snapshot::create_i(const Object& pvc, const std::string& snapshot_name) {
  const std::string *pv_name = nullptr, *ns = nullptr, *name = nullptr;
  pextract(pvc)("/spec/volumeName", pv_name).chroot("/metadata")("/namespace", ns)("/name", name);
  KOLT_RETURN_IF_EMPTY(pv_name, false);
  KOLT_RETURN_IF_EMPTY(ns, false);
  KOLT_RETURN_IF_EMPTY(name, false);

  std::string driver_name, class_name;
  if (!K8S_PV(client_).get_driver(*pv_name, driver_name) ||
      !K8S_Volume_Snapshot_Class(client_).get_snapshot_class_name(driver_name, class_name)) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to get snapshot class name from driver name '%s'.\n"), driver_name.c_str()));
    return false;
  }

  Object_Maker metadata;
  metadata("name", snapshot_name.empty() ? k8s::generate_resource_name(*name, "tessarin") : snapshot_name)(
      "namespace", *ns)("labels", Object_Maker()(k8s::label()));
  const Object_Maker spec = Object_Maker()("volumeSnapshotClassName", std::move(class_name))(
      "source", Object_Maker()("persistentVolumeClaimName", *name));
  return post(
      Object_Maker()("kind", "VolumeSnapshot")("apiVersion", group_version())("metadata", metadata)("spec", spec));
}

bool K8S_Volume_Snapshot::is_ready_to_use(const std::string& snapshot_name, bool logging, int retry_times) {
  if (!has_group_version()) return false;
  bool ready = false;
  QVX_RETRY(
      retry_times, K8S_QVX_RETRY_TIMEOUT,
      {
        Value val;
        if (!get(snapshot_name, val, true)) return false;
        ready = is_ready(val);
      },
      ready,
      {
        if (logging) ACE_ERROR((LM_ERROR, ACE_TEXT("Volume snapshot '%s' is not created.\n"), snapshot_name.c_str()));
        return false;
      });
  return true;
}

bool K8S_Volume_Snapshot::delete_all() {
  if (!has_group_version()) return false;
  Value val;
  if (!list(val, k8s::selector())) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to list agent snapshots.\n")));
    return false;
  }
  const Array* items = json_spirit::object_get_array(std::as_const(val).get_obj(), "items");
  KOLT_RETURN_IF_NULL(items, false);
  bool result = true;
  for (const Object& item : *items | json_spirit::get_obj) result = delete_item(item) && result;
  return result;
}

bool K8S_Volume_Snapshot::delete_item(const Object& item) {
  const std::string* name = nullptr;
  pextract(item)("/metadata/name", name);
  if (kolt::is_null_or_empty(name)) {
    ACE_ERROR(
        (LM_ERROR, ACE_TEXT("Failed to extract snapshot name with value.\n%s\n"), JSON_Dump(item, false).c_str()));
    return false;
  }
  if (!delete_(*name, true, K8S_QVX_RETRY_TIMES)) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to delete snapshot with value.\n%s\n"), JSON_Dump(item, false).c_str()));
    return false;
  }
  return true;
}
