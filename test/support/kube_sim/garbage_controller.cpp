// What goes because something else went.
#include "support/kube_sim/control_plane.h"

namespace kube_sim {

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::pextract;
using json_spirit::Value;

namespace {

struct Kind {
  const char* group;
  const char* resource;
  const char* kind;
};

/// What may own, be owned or stand in a namespace.
constexpr Kind kinds[] = {{"apps", "deployments", "Deployment"},
                          {"apps", "replicasets", "ReplicaSet"},
                          {"apps", "statefulsets", "StatefulSet"},
                          {"apps", "daemonsets", "DaemonSet"},
                          {"batch", "cronjobs", "CronJob"},
                          {"batch", "jobs", "Job"},
                          {"", "pods", "Pod"},
                          {"snapshot.storage.k8s.io", "volumesnapshots", "VolumeSnapshot"},
                          {"", "persistentvolumeclaims", "PersistentVolumeClaim"},
                          {"", "configmaps", "ConfigMap"},
                          {"", "secrets", "Secret"},
                          {"", "serviceaccounts", "ServiceAccount"},
                          {"", "services", "Service"},
                          {"", "events", "Event"}};

Object_Id id_of(const Kind& kind, const Value& object) {
  return {kind.group, kind.resource, namespace_of(object), name_of(object)};
}

const Array& owners_of(const Value& object) {
  static const Array none;
  const Array* owners = nullptr;
  pextract(object)("/metadata/ownerReferences", owners);
  return owners == nullptr ? none : *owners;
}

/// Owners of a kind that is not known here count as there.
bool owner_exists(Control_Plane& plane, const Value& object, const Value& reference) {
  for (const Kind& kind : kinds) {
    if (text_at(reference, "/kind") != kind.kind) continue;
    const Document_var owner =
        plane.cluster.get({kind.group, kind.resource, namespace_of(object), text_at(reference, "/name")});
    return owner && uid_of(*owner) == text_at(reference, "/uid");
  }
  return true;
}

bool is_garbage(Control_Plane& plane, const Value& object) {
  const Array& owners = owners_of(object);
  for (const Value& reference : owners)
    if (owner_exists(plane, object, reference)) return false;
  return !owners.empty();
}

bool is_owned_by(const Value& object, const std::string& uid) {
  for (const Value& reference : owners_of(object))
    if (text_at(reference, "/uid") == uid) return true;
  return false;
}

/// Calls @a work for all that @a owner owns; tells whether there was something.
template <typename Work>
bool each_dependent(Control_Plane& plane, const Value& owner, Work work) {
  bool found = false;
  for (const Kind& kind : kinds)
    for (const Document_var& object : plane.cluster.list(kind.group, kind.resource, namespace_of(owner))) {
      if (!is_owned_by(*object, uid_of(owner))) continue;
      found = true;
      work(id_of(kind, *object));
    }
  return found;
}

/// Deletion with a propagation policy that has to be carried out first.
void propagate(Control_Plane& plane, const Kind& kind, const Value& owner) {
  const std::set<std::string> finalizers = strings_at(owner, "/metadata/finalizers");
  if (finalizers.count("orphan") > 0) {
    each_dependent(plane, owner, [&](const Object_Id& id) {
      plane.cluster.update(id, [&](Object& object) {
        Array& references = object["metadata"].to_object()["ownerReferences"].to_array();
        return std::erase_if(references, [&](const Value& one) { return text_at(one, "/uid") == uid_of(owner); }) > 0;
      });
    });
    plane.cluster.update(id_of(kind, owner), [](Object& object) { return drop_finalizer(object, "orphan"); });
  } else if (finalizers.count("foregroundDeletion") > 0) {
    if (!each_dependent(plane, owner, [&](const Object_Id& id) { plane.cluster.remove(id); }))
      plane.cluster.update(id_of(kind, owner),
                           [](Object& object) { return drop_finalizer(object, "foregroundDeletion"); });
  }
}

void purge(Control_Plane& plane, const std::string& ns) {
  bool empty = true;
  for (const Kind& kind : kinds)
    for (const Document_var& object : plane.cluster.list(kind.group, kind.resource, ns)) {
      if (!is_terminating(*object)) plane.cluster.remove(id_of(kind, *object));
      empty = empty && !plane.cluster.get(id_of(kind, *object));
    }
  plane.cluster.update({"", "namespaces", "", ns}, [&](Object& object) {
    object["status"].to_object()["phase"] = "Terminating";
    if (empty) object["spec"].to_object()["finalizers"] = Array();
    return true;
  });
}

}  // namespace

void collect_garbage(Control_Plane& plane) {
  for (const Kind& kind : kinds)
    for (const Document_var& object : plane.cluster.list(kind.group, kind.resource)) {
      if (is_terminating(*object))
        propagate(plane, kind, *object);
      else if (is_garbage(plane, *object))
        plane.cluster.remove(id_of(kind, *object));
    }
  for (const Document_var& ns : plane.cluster.list("", "namespaces"))
    if (is_terminating(*ns)) purge(plane, name_of(*ns));
}

}  // namespace kube_sim
