#include "support/kube_sim/object_writer.h"

#include <algorithm>

#include "json_spirit/assign.h"
#include "json_spirit/extract.h"
#include "support/kube_sim/defaults.h"

namespace kube_sim {

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::pextract;
using json_spirit::Value;

namespace {

Object& metadata_of(Object& object) {
  return object["metadata"].to_object();
}

bool is_empty(const Value& value) {
  return json_spirit::skip_empty(value);
}

/// A claim that names no class gets the class that says it is the default one.
void choose_storage_class(Object& claim, const Transaction& store) {
  Object& spec = claim["spec"].to_object();
  if (spec.count("storageClassName")) return;
  for (const auto& storage_class : store.list("storage.k8s.io", "storageclasses", "")) {
    std::string is_default;
    pextract(storage_class->object())("/metadata/annotations/storageclass.kubernetes.io~1is-default-class", is_default);
    if (is_default == "true") spec["storageClassName"] = storage_class->id.name;
  }
}

void drop_empty(Object& metadata) {
  for (const char* member : {"labels", "annotations", "finalizers", "ownerReferences"}) {
    const auto found = metadata.find(member);
    if (found != metadata.end() && is_empty(found->second)) metadata.erase(found);
  }
}

bool held(const Object& object) {
  const Array *finalizers = nullptr, *of_namespace = nullptr;
  std::string kind;
  pextract(object)("/metadata/finalizers", finalizers)("/spec/finalizers", of_namespace)("/kind", kind);
  return (finalizers && !finalizers->empty()) || (kind == "Namespace" && of_namespace && !of_namespace->empty());
}

long grace_of(const Object& object) {
  long grace = 0;
  pextract(object)("/metadata/deletionGracePeriodSeconds", grace);
  return grace;
}

bool is_terminating(const Object& object) {
  const Value* time = nullptr;
  pextract(object)("/metadata/deletionTimestamp", time);
  return time;
}

bool same_but_version(Object a, Object b) {
  metadata_of(a).erase("resourceVersion");
  metadata_of(b).erase("resourceVersion");
  return a == b;
}

/// Whether two states differ in what is wanted of the object.
bool differs_in_wish(Object a, Object b) {
  for (Object* object : {&a, &b}) {
    for (const char* member : {"metadata", "status", "kind", "apiVersion"}) object->erase(member);
    // That a pod is given a node is no wish.
    if (Object* spec = json_spirit::object_get_object(*object, "spec")) spec->erase("nodeName");
  }
  return !(a == b);
}

void count_generation(Object& metadata) {
  long generation = 0;
  json_spirit::object_get(metadata, "generation", generation);
  if (generation > 0) metadata["generation"] = generation + 1;
}

}  // namespace

void complete_new(const Resource& resource, Object& object, const Transaction& store) {
  Object& metadata = metadata_of(object);
  for (const char* member : {"resourceVersion", "deletionTimestamp", "deletionGracePeriodSeconds", "selfLink",
                             "managedFields", "generation"})
    metadata.erase(member);
  std::string name, prefix;
  json_spirit::extract(metadata)("name", name)("generateName", prefix);
  if (name.empty() && !prefix.empty()) metadata["name"] = prefix.substr(0, 58) + random_suffix();
  metadata["uid"] = random_uid();
  metadata["creationTimestamp"] = timestamp();
  object["kind"] = resource.kind;
  object["apiVersion"] = resource.api_version();
  if (resource.kind == "PersistentVolumeClaim") choose_storage_class(object, store);
  apply_defaults(resource, object);
  drop_empty(metadata_of(object));
}

Object_Id id_of(const Resource& resource, const Object& object) {
  Object_Id id{resource.group, resource.plural, {}, {}};
  pextract(object)("/metadata/name", id.name);
  if (resource.namespaced) pextract(object)("/metadata/namespace", id.ns);
  return id;
}

Object complete_update(const Resource& resource, const Stored_Object_var& before, Object after) {
  const Object& old = json_spirit::object_get_object_or_throw(before->object(), "metadata");
  Object& metadata = metadata_of(after);
  metadata.erase("managedFields");
  metadata.erase("selfLink");
  for (const char* member : {"uid", "creationTimestamp", "deletionTimestamp", "deletionGracePeriodSeconds",
                             "generation", "generateName", "name", "namespace", "resourceVersion"}) {
    const Value* value = json_spirit::object_get_value(old, member);
    if (value)
      metadata[member] = *value;
    else
      metadata.erase(member);
  }
  after["kind"] = resource.kind;
  after["apiVersion"] = before->object().at("apiVersion");
  drop_empty(metadata);
  normalize(resource, after);
  if (resource.generation && differs_in_wish(before->object(), after)) count_generation(metadata);
  return after;
}

Stored_Object_var store_update(const Resource& resource, Transaction& store, const Stored_Object_var& before,
                               Object after) {
  after = complete_update(resource, before, std::move(after));
  if (is_terminating(after) && !held(after) && grace_of(after) == 0) return store.erase(before->id, std::move(after));
  if (same_but_version(before->object(), after)) return before;
  return store.put(before->id, std::move(after));
}

namespace {

/// How long a pod may take to end. One that runs nowhere, or has ended, takes no time.
long pod_grace(const Object& pod, long wanted) {
  std::string node, phase;
  long own = 30;
  pextract(pod)("/spec/nodeName", node)("/status/phase", phase)("/spec/terminationGracePeriodSeconds", own);
  if (node.empty() || phase == "Succeeded" || phase == "Failed") return 0;
  return wanted >= 0 ? wanted : own;
}

std::string finalizer_for(const Resource& resource, const std::string& propagation) {
  if (propagation == "Foreground") return "foregroundDeletion";
  if (propagation == "Orphan" || (propagation.empty() && resource.kind == "Job")) return "orphan";
  return {};
}

void mark_deleted(const Resource& resource, Object& object, long grace, const std::string& finalizer) {
  Object& metadata = metadata_of(object);
  metadata["deletionTimestamp"] = timestamp(grace);
  if (resource.kind != "Namespace") metadata["deletionGracePeriodSeconds"] = grace;
  if (resource.kind == "Namespace") object["status"].to_object()["phase"] = "Terminating";
  if (!finalizer.empty()) metadata["finalizers"].to_array() << Value(finalizer);
}

}  // namespace

Deletion store_delete(const Resource& resource, Transaction& store, const Stored_Object_var& stored,
                      const Delete_Options& options) {
  Object object = stored->object();
  const bool terminating = is_terminating(object);
  const long grace = resource.kind == "Pod" ? pod_grace(object, options.grace_seconds) : 0;
  if (terminating && grace >= grace_of(object) && (held(object) || grace > 0)) return {stored, false};
  if (!terminating) count_generation(metadata_of(object));
  // What is gone at once and is no pod is answered as it was.
  const std::string finalizer = terminating ? std::string() : finalizer_for(resource, options.propagation);
  const bool gone = grace == 0 && finalizer.empty() && !held(object);
  if (gone && resource.kind != "Pod") return {store.erase(stored->id, stored->object()), true};
  mark_deleted(resource, object, grace, finalizer);
  if (gone) return {store.erase(stored->id, std::move(object)), true};
  return {store.put(stored->id, std::move(object)), false};
}

void furnish_namespace(const Resource_Table& table, Transaction& store, const std::string& ns) {
  const auto add = [&](const char* plural, const char* name, Object object) {
    const Resource& resource = *table.find("", "v1", plural);
    json_spirit::insert(metadata_of(object))("name", name)("namespace", ns);
    complete_new(resource, object, store);
    if (!store.find(id_of(resource, object))) store.put(id_of(resource, object), object);
  };
  Object authorities;
  authorities["data"].to_object()["ca.crt"] = "-----BEGIN CERTIFICATE-----\n-----END CERTIFICATE-----\n";
  add("configmaps", "kube-root-ca.crt", std::move(authorities));
  add("serviceaccounts", "default", {});
}

bool is_protected_namespace(const std::string& name) {
  return name == "default" || name == "kube-system" || name == "kube-public";
}

}  // namespace kube_sim
