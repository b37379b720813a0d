#include "support/kube_sim/preload.h"

#include <stdexcept>

#include "support/kube_sim/control_plane.h"
#include "support/kube_sim/resource_table.h"

namespace kube_sim {

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Object_Maker;
using json_spirit::pextract;
using json_spirit::Value;

namespace {

constexpr int newest_minor = 36;
constexpr size_t pods_per_namespace = 100;

/// The resource of an object, by its kind and API group.
Object_Id id_of(const Value& object) {
  static const Resource_Table table(newest_minor, true);
  const std::string kind = text_at(object, "/kind"), api_version = text_at(object, "/apiVersion");
  const size_t slash = api_version.find('/');
  const std::string group = slash == api_version.npos ? "" : api_version.substr(0, slash);
  for (const Resource& resource : table.all())
    if (resource.kind == kind && resource.group == group)
      return {group, resource.plural, resource.namespaced ? namespace_of(object) : "", name_of(object)};
  throw std::runtime_error("no such kind of object: '" + kind + "' in '" + api_version + "'");
}

void flatten(const Value& document, std::vector<const Value*>& objects) {
  const Array* items = nullptr;
  if (document.type() == json_spirit::array_type)
    items = &document.get_array();
  else if (document.type() == json_spirit::obj_type)
    pextract(document)("/items", items);
  if (items == nullptr)
    objects.push_back(&document);
  else
    for (const Value& item : *items) flatten(item, objects);
}

void make_namespace(Cluster& cluster, const std::string& name) {
  if (name.empty() || cluster.get({"", "namespaces", "", name})) return;
  cluster.create(
      "", "namespaces",
      Object_Maker()("kind", "Namespace")("apiVersion", "v1")("metadata", Object_Maker()("name", name)).get_obj());
}

typedef std::map<std::string, std::string> Uids;

void follow(Object& reference, const Uids& uids) {
  const auto found = uids.find(text_at(reference, "/uid"));
  if (found != uids.end()) reference["uid"] = found->second;
}

/// Lets the references in an object name the new uids.
bool renew_references(Object& object, const Uids& uids) {
  Array* owners = nullptr;
  Object *claim = nullptr, *snapshot = nullptr;
  pextract(object)("/metadata/ownerReferences", owners)("/spec/claimRef", claim)("/spec/volumeSnapshotRef", snapshot);
  if (owners != nullptr)
    for (Value& owner : *owners) follow(owner.get_obj(), uids);
  if (claim != nullptr) follow(*claim, uids);
  if (snapshot != nullptr) follow(*snapshot, uids);
  return owners != nullptr || claim != nullptr || snapshot != nullptr;
}

}  // namespace

size_t preload(Cluster& cluster, const Value& document) {
  std::vector<const Value*> objects;
  flatten(document, objects);
  Uids uids;
  size_t count = 0;
  for (const Value* object : objects) {
    const Object_Id id = id_of(*object);
    make_namespace(cluster, id.ns);
    const Document_var stored = cluster.create(id.group, id.resource, object->get_obj());
    if (!stored) continue;
    uids[uid_of(*object)] = uid_of(*stored);
    ++count;
  }
  uids.erase("");
  for (const Value* object : objects)
    cluster.update(id_of(*object), [&](Object& stored) { return renew_references(stored, uids); });
  return count;
}

void preload_pods(Cluster& cluster, size_t count) {
  const auto nodes = cluster.list("", "nodes");
  for (size_t i = 0; i < count; ++i) {
    const std::string ns = "bench-" + std::to_string(i / pods_per_namespace),
                      number = std::to_string(i % pods_per_namespace);
    const std::string claim = "data-" + number, volume = ns + "-" + number;
    const Object_Maker size = Object_Maker()("storage", "1Gi");
    make_namespace(cluster, ns);
    Object_Maker volume_spec, claim_spec, container, pod_spec;
    volume_spec("capacity", size)("accessModes", Array{Value("ReadWriteOnce")})("storageClassName", "bench");
    volume_spec("csi", Object_Maker()("driver", "bench.csi.example.com")("volumeHandle", volume));
    volume_spec("claimRef", Object_Maker()("kind", "PersistentVolumeClaim")("namespace", ns)("name", claim));
    claim_spec("accessModes", Array{Value("ReadWriteOnce")})("resources", Object_Maker()("requests", size));
    claim_spec("storageClassName", "bench")("volumeName", volume);
    container("name", "main")("image", "registry.invalid/app:1.0")(
        "volumeMounts", Array{Object_Maker()("name", "data")("mountPath", "/data")});
    pod_spec("containers", Array{container})("nodeName", nodes.empty() ? "node-1" : name_of(*nodes[i % nodes.size()]));
    pod_spec("volumes",
             Array{Object_Maker()("name", "data")("persistentVolumeClaim", Object_Maker()("claimName", claim))});
    const auto add = [&](const char* resource, const char* kind, const Object_Maker& metadata, const Object_Maker& spec,
                         const Object_Maker& status) {
      cluster.create(
          "", resource,
          Object_Maker()("kind", kind)("apiVersion", "v1")("metadata", metadata)("spec", spec)("status", status)
              .get_obj());
    };
    add("persistentvolumes", "PersistentVolume", Object_Maker()("name", volume), volume_spec,
        Object_Maker()("phase", "Bound"));
    add("persistentvolumeclaims", "PersistentVolumeClaim", Object_Maker()("name", claim)("namespace", ns), claim_spec,
        Object_Maker()("phase", "Bound")("capacity", size));
    const Object_Maker status = Object_Maker()("name", "main")("ready", true)("started", true)("restartCount", 0)(
        "image", "registry.invalid/app:1.0")("state",
                                             Object_Maker()("running", Object_Maker()("startedAt", now_text())));
    add("pods", "Pod",
        Object_Maker()("name", "pod-" + number)("namespace", ns)("labels", Object_Maker()("app", "bench")), pod_spec,
        Object_Maker()("phase", "Running")("podIP", "10.244.0.1")("containerStatuses", Array{status}));
  }
}

}  // namespace kube_sim
