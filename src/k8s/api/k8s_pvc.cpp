#include "k8s/api/k8s_pvc.h"

#include "json_spirit/assign.h"
#include "json_spirit/dump.h"
#include "json_spirit/extract.h"
#include "k8s/api/k8s_cluster.h"
#include "k8s/api/k8s_events.h"
#include "k8s/api/k8s_pv.h"
#include "k8s/api/k8s_utils.h"
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

constexpr char product[] = "tessarin";

/// The disk type of the volume @a pv as the annotation that asks its driver for the same; empty for other drivers.
Object disk_type_annotation(const Value& pv) {
  const std::string* disk_type = nullptr;
  pextract(pv)("/spec/csi/volumeAttributes/everest.io~1disk-volume-type", disk_type);
  if (!disk_type || disk_type->empty()) return {};
  return {{"everest.io/disk-volume-type", *disk_type}};
}

/// The group of snapshots without its version: a data source that names the version is silently dropped by the server.
std::string snapshot_group() {
  const std::string& group_version = K8S_Cluster::instance()->get_resource_gv("volumesnapshots");
  return group_version.substr(0, group_version.find('/'));
}

}  // namespace

K8S_PVC::K8S_PVC(K8S_Client_var client, const std::string& ns)
    : K8S_Resource(std::move(client), string_sprintf("/api/v1/namespaces/%s/persistentvolumeclaims", ns.c_str()), ""),
      ns_(ns) {}

K8S_PVC::~K8S_PVC() = default;

bool K8S_PVC::clone(const std::string& path) {
  Value body;
  if (!json_spirit::load_json(path.c_str(), body, json_spirit::LOAD_STRICT)) return false;
  if (body.type() != json_spirit::obj_type) return false;
  return clone_i(body.get_obj(), "");
}

bool K8S_PVC::clone(const std::string& name, const std::string& clone_name) {
  Value body;
  if (get(name, body, true) && clone_i(body.get_obj(), clone_name)) return true;
  ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to create PVC clone '%s' of PVC '%s'\n"), clone_name.c_str(), name.c_str()));
  return false;
}

bool K8S_PVC::clone_i(Object& clone_body, const std::string& clone_name) {
  std::string *kind = nullptr, *api_version = nullptr, *name = nullptr, *namespace_name = nullptr,
              *storage_class_name = nullptr, *volume_mode = nullptr;
  Array* access_mode = nullptr;
  Object* resources = nullptr;
  pextract(clone_body)("/kind", kind)("/apiVersion", api_version)
      .chroot("/metadata")("/name", name)("/namespace", namespace_name)
      .chroot_abs("/spec")("/storageClassName", storage_class_name)("/volumeMode", volume_mode)(
          "/accessModes", access_mode)("/resources", resources);
  KOLT_RETURN_IF_EMPTY(kind, false);
  KOLT_RETURN_IF_EMPTY(api_version, false);
  KOLT_RETURN_IF_EMPTY(name, false);
  KOLT_RETURN_IF_EMPTY(namespace_name, false);
  KOLT_RETURN_IF_EMPTY(storage_class_name, false);
  KOLT_RETURN_IF_EMPTY(volume_mode, false);
  KOLT_RETURN_IF_EMPTY(access_mode, false);
  KOLT_RETURN_IF_EMPTY(resources, false);

  Object_Maker metadata;
  metadata("name", clone_name.empty() ? k8s::generate_resource_name(*name, product) : clone_name)(
      "namespace", std::move(*namespace_name))("labels", Object_Maker()(k8s::label()));
  Object_Maker spec;
  spec("storageClassName", std::move(*storage_class_name))("volumeMode", std::move(*volume_mode))(
      "accessModes", std::move(*access_mode))("resources", std::move(*resources))(
      "dataSource", Object_Maker()("kind", *kind)("name", std::move(*name)));
  return post(Object_Maker()("kind", std::move(*kind))("apiVersion", std::move(*api_version))(
      "metadata", std::move(metadata))("spec", std::move(spec)));
}

bool K8S_PVC::create(const std::string& name, const std::string& sc, const Object& resources, const Array& access_mode,
                     const std::string& volume_mode, const std::string& api_version) {
  return post(Object_Maker()("kind", "PersistentVolumeClaim")("apiVersion", api_version)(
      "metadata", Object_Maker()("name", name)("namespace", ns_)("labels", Object_Maker()(k8s::label())))(
      "spec", Object_Maker()("storageClassName", sc)("volumeMode", volume_mode)("accessModes", access_mode)(
                  "resources", resources)));
}

bool K8S_PVC::create_from_snapshot(const Value& pvc_info, const std::string& name) {
  const std::string *kind = nullptr, *api_version = nullptr, *name_clone = nullptr, *ns = nullptr, *sc = nullptr;
  const Object* resources = nullptr;
  const Array* access_modes = nullptr;
  pextract(pvc_info)("/kind", kind)("/apiVersion", api_version)
      .chroot("/metadata")("/name", name_clone)("/namespace", ns)
      .chroot_abs("/spec")("/storageClassName", sc)("/resources", resources)("/accessModes", access_modes);
  KOLT_RETURN_IF_EMPTY(kind, false);
  KOLT_RETURN_IF_EMPTY(api_version, false);
  KOLT_RETURN_IF_EMPTY(name_clone, false);
  KOLT_RETURN_IF_EMPTY(ns, false);
  KOLT_RETURN_IF_EMPTY(sc, false);
  KOLT_RETURN_IF_EMPTY(resources, false);
  KOLT_RETURN_IF_EMPTY(access_modes, false);

  Value pv;
  if (!get_pv(*name_clone, pv)) return false;

  // A named claim is the agent's; without a name it takes the place of the user's own.
  Object_Maker metadata;
  metadata("name", name.empty() ? *name_clone : name)("namespace", *ns)(
      "labels", name.empty() ? Object_Maker() : Object_Maker()(k8s::label()))("annotations", disk_type_annotation(pv));
  const Object_Maker source = Object_Maker()("name", k8s::generate_resource_name(*name_clone, product))(
      "kind", "VolumeSnapshot")("apiGroup", snapshot_group());
  return post(Object_Maker()("kind", *kind)("apiVersion", *api_version)("metadata", std::move(metadata))(
      "spec", Object_Maker()("storageClassName", *sc)("resources", *resources)("accessModes", *access_modes)(
                  "dataSource", source)));
}

bool K8S_PVC::is_bound(const std::string& name, bool logging, int retry_times) {
  std::string pvc_status;
  QVX_RETRY(
      retry_times, K8S_QVX_RETRY_TIMEOUT,
      {
        Value val;
        if (!get(name, val, true)) return false;
        pvc_status.clear();
        if (!JSON_Pointer("/status/phase", false, true).get(std::as_const(val), pvc_status) || pvc_status.empty()) {
          if (logging)
            ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to extract pvc_status, value\n%s.\n"), JSON_Dump(val, true).c_str()));
          return false;
        }
      },
      pvc_status == "Bound",
      {
        if (logging) {
          K8S_Events(client_, ns_).show(name, "PersistentVolumeClaim");
          ACE_ERROR((LM_ERROR, ACE_TEXT("Persistent volume claim %s not bound to Persistent volume.\n"), name.c_str()));
        }
        return false;
      });
  return true;
}

bool K8S_PVC::get_pv(const std::string& name, Value& val) {
  if (!is_bound(name, true, K8S_QVX_RETRY_TIMES)) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Pvc '%s' is not bound.\n"), name.c_str()));
    return false;
  }
  Value pvc;
  if (!get(name, pvc, true)) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to get pvc info with name '%s'.\n"), name.c_str()));
    return false;
  }
  const std::string* volume_name = nullptr;
  pextract(std::as_const(pvc))("/spec/volumeName", volume_name);
  KOLT_RETURN_IF_EMPTY(volume_name, false);
  if (!K8S_PV(client_).get(*volume_name, val, true)) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to get pv info with name '%s'.\n"), volume_name->c_str()));
    return false;
  }
  return true;
}

bool K8S_PVC::get_pv_name(const std::string& name, std::string& pv_name) {
  Value pvc;
  if (!get(name, pvc, true)) return false;
  std::string* vol_name = nullptr;
  pextract(pvc)("/spec/volumeName", vol_name);
  KOLT_RETURN_IF_EMPTY(vol_name, false);
  pv_name = std::move(*vol_name);
  return true;
}
