#include <algorithm>

#include "json_spirit/extract.h"
#include "json_spirit/filter.h"
#include "k8s/api/k8s_utils.h"
#include "kolt/check_macros.h"
#include "kolt/string_sprintf.h"

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;

namespace k8s {

namespace {

bool has_members(const Object& obj, const char* key) {
  const Object* member = json_spirit::object_get_object(obj, key);
  return member && !member->empty();
}

/// The name of the volume that is the claim @a pvc_name. @retval true @a volume_name stays null if there is none.
bool find_claim(const Array& volumes, const std::string& pvc_name, const std::string*& volume_name) {
  for (const Object& volume : volumes | json_spirit::get_obj) {
    const Object* claim = json_spirit::object_get_object(volume, "persistentVolumeClaim");
    if (!claim) continue;
    const std::string* name = json_spirit::object_get_str(volume, "name");
    KOLT_RETURN_IF_EMPTY(name, false);
    const std::string* claim_name = json_spirit::object_get_str(*claim, "claimName");
    KOLT_RETURN_IF_EMPTY(claim_name, false);
    if (*claim_name != pvc_name) continue;
    volume_name = name;
    return true;
  }
  return true;
}

/// Where the volume is mounted. @retval true @a path stays null if it is mounted nowhere.
bool find_mount(const Array& containers, const std::string& volume_name, const std::string*& path) {
  for (const Object& container : containers | json_spirit::get_obj) {
    const Array* volume_mounts = json_spirit::object_get_array(container, "volumeMounts");
    KOLT_RETURN_IF_EMPTY(volume_mounts, false);
    for (const Object& mount : *volume_mounts | json_spirit::get_obj) {
      const std::string *name = nullptr, *mount_path = nullptr;
      extract(mount)("name", name)("mountPath", mount_path);
      KOLT_RETURN_IF_EMPTY(name, false);
      KOLT_RETURN_IF_EMPTY(mount_path, false);
      if (*name != volume_name) continue;
      path = mount_path;
      return true;
    }
  }
  return true;
}

}  // namespace

const Object* find_volume_by_name(const Array& vols, const std::string& name) {
  for (const Object& volume : vols | json_spirit::get_obj) {
    const std::string* volume_name = json_spirit::object_get_str(volume, "name");
    if (volume_name && *volume_name == name) return &volume;
  }
  return nullptr;
}

bool is_pvc_present(const Object& vol) {
  return has_members(vol, "persistentVolumeClaim") || has_members(vol, "nfs");
}

bool build_self_link(const Value& resource, std::string& self_link) {
  const std::string *name = nullptr, *kind = nullptr, *api_version = nullptr, *ns = nullptr;
  pextract(resource)("/metadata/name", name)("/kind", kind)("/apiVersion", api_version)("/metadata/namespace", ns);
  KOLT_RETURN_IF_EMPTY(name, false);
  KOLT_RETURN_IF_EMPTY(kind, false);
  KOLT_RETURN_IF_EMPTY(api_version, false);
  const std::string namespaces = (*api_version == "v1" ? "/api/" : "/apis/") + *api_version + "/namespaces/";
  if (*kind == "Namespace") {
    self_link = namespaces + *name;
    return true;
  }
  KOLT_RETURN_IF_EMPTY(ns, false);
  self_link = namespaces + *ns + '/' + kind_to_resource(*kind) + '/' + *name;
  return true;
}

bool get_pvc_mount_path(const Value& pod, const std::string& pvc_name, std::string& path) {
  const Array *volumes = nullptr, *containers = nullptr;
  pextract(pod).chroot("/spec")("/volumes", volumes)("/containers", containers);
  KOLT_RETURN_IF_EMPTY(volumes, false);
  KOLT_RETURN_IF_EMPTY(containers, false);

  const std::string* volume_name = nullptr;
  if (!find_claim(*volumes, pvc_name, volume_name)) return false;
  KOLT_RETURN_IF_EMPTY(volume_name, false);

  const std::string* mount_path = nullptr;
  if (!find_mount(*containers, *volume_name, mount_path) || !mount_path) return false;
  path = *mount_path;
  return true;
}

}  // namespace k8s
