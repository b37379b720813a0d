#include "support/kube_sim/rest_api.h"

#include "json_spirit/assign.h"
#include "json_spirit/dump.h"
#include "json_spirit/extract.h"
#include "support/kube_sim/defaults.h"
#include "support/kube_sim/listing.h"
#include "support/kube_sim/object_text.h"
#include "support/kube_sim/object_writer.h"
#include "support/kube_sim/patch.h"
#include "support/kube_sim/status_document.h"
#include "support/kube_sim/validation.h"

namespace kube_sim {

using json_spirit::Object;
using json_spirit::Value;

namespace {

Answer object_answer(const Resource& resource, const std::string& members, int status = 200) {
  return {.status = status, .body = object_text(resource, members)};
}

Object_Id id_at(const Resource& resource, const Target& target) {
  return {resource.group, resource.plural, resource.namespaced ? target.ns : std::string(), target.name};
}

void check_name_in_path(const std::string& name) {
  if (name == "." || name == "..")
    throw bad_request("Name parameter invalid: \"" + name + "\": may not be '" + name + "'");
}

/// New objects need a namespace that is there and is going to stay.
void check_namespace(const Object_Store::Transaction& store, const Resource& resource, const Resource& namespaces,
                     const std::string& ns, const std::string& name) {
  const auto stored = store.find({"", "namespaces", "", ns});
  if (!stored) throw not_found(namespaces, ns);
  if (!stored->object().at("metadata").get_obj().count("deletionTimestamp")) return;
  json_spirit::Array causes;
  causes << json_spirit::Object_Maker()("reason", "NamespaceTerminating")(
      "message", "namespace " + ns + " is being terminated")("field", "metadata.namespace");
  throw forbidden(resource, name, "unable to create new content in namespace " + ns + " because it is being terminated",
                  causes);
}

void refuse_invalid(const Resource& resource, const Object& object, const Causes& causes) {
  if (causes.empty()) return;
  std::string name;
  json_spirit::pextract(object)("/metadata/name", name);
  throw invalid(resource.group, resource.kind, name, causes);
}

/// A claim grows only where its class lets it.
void check_resize(const Object_Store::Transaction& store, const Resource& resource, const Object& before,
                  const Object& after) {
  if (resource.kind != "PersistentVolumeClaim") return;
  std::string old_size, size, storage_class;
  bool expands = false;
  json_spirit::pextract(before)("/spec/resources/requests/storage", old_size)("/spec/storageClassName", storage_class);
  json_spirit::pextract(after)("/spec/resources/requests/storage", size);
  if (size == old_size) return;
  const auto stored = store.find({"storage.k8s.io", "storageclasses", "", storage_class});
  if (stored) json_spirit::object_get(stored->object(), "allowVolumeExpansion", expands);
  if (!expands)
    throw forbidden(resource, id_of(resource, before).name,
                    "only dynamically provisioned pvc can be resized and the storageclass that provisions the pvc must "
                    "support resize");
}

void add_child_warning(const Resource& resource, const Delete_Options& options, std::vector<std::string>& warnings) {
  if (resource.kind == "Job" && options.propagation.empty())
    warnings.push_back(
        "child pods are preserved by default when jobs are deleted; set propagationPolicy=Background to remove them or "
        "set propagationPolicy=Orphan to suppress this warning");
}

void add_name_warning(const Resource& resource, const std::string& name, std::vector<std::string>& warnings) {
  if (resource.kind == "Pod" && name.size() > 63)
    warnings.push_back(
        "metadata.name: this is used in the Pod's hostname, which can result in surprising behavior; a DNS label is "
        "recommended: [must be no more than 63 characters]");
}

}  // namespace

void add_warnings(Answer& answer, const std::vector<std::string>& warnings) {
  for (const auto& text : warnings) answer.headers.emplace_back("Warning", "299 - " + quoted(text));
}

Stored_Object_var require(const Object_Store::Transaction& store, const Resource& resource, const Target& target) {
  auto stored = store.find(id_at(resource, target));
  if (!stored) throw not_found(resource, target.name);
  return stored;
}

void check_version(const Resource& resource, const Stored_Object_var& before, const Object& object) {
  std::string version, uid, own_uid;
  json_spirit::pextract(object)("/metadata/resourceVersion", version)("/metadata/uid", uid);
  json_spirit::pextract(before->object())("/metadata/uid", own_uid);
  if (!uid.empty() && uid != own_uid)
    throw conflict(resource, before->id.name,
                   "Precondition failed: UID in precondition: " + uid + ", UID in object meta: " + own_uid);
  if (!version.empty() && version != std::to_string(before->revision))
    throw conflict(resource, before->id.name,
                   "the object has been modified; please apply your changes to the latest version and try again");
}

Object patched(const Request& request, const Resource& resource, const Object& before) {
  const Patch_Kind kind = patch_kind(request, resource);
  const Value patch = patch_in_body(request, kind);
  Value target(before);
  if (kind == Patch_Kind::json) json_patch(target, patch.get_array());
  if (kind == Patch_Kind::merge) merge_patch(target, patch);
  if (kind == Patch_Kind::strategic) strategic_merge_patch(target.get_obj(), patch.get_obj());
  const std::string error =
      target.type() == json_spirit::obj_type ? type_error(resource, target.get_obj()) : "patch makes no object";
  if (!error.empty())
    throw invalid("", "", "", {Cause::invalid("patch", quoted(json_spirit::JSON_Dump(target, false).str()), error)});
  return std::move(target.get_obj());
}

const Resource& Rest_Api::resource_at(const Target& target) const {
  if (!target.group.empty() && !table_.has_group(target.group)) throw no_such_page();
  if (target.group.empty() && target.parts.front() == "apis") throw no_such_page();
  const Resource* resource =
      target.version.empty() ? nullptr : table_.find(target.group, target.version, target.resource);
  if (!resource || target.too_long) throw no_such_resource();
  if (resource->namespaced ? !target.in_namespace && !target.name.empty() : target.in_namespace)
    throw no_such_resource();
  if (target.name.empty() && !target.sub.empty()) {
    if (resource->custom) throw not_found(*resource, "");
    throw no_such_resource();
  }
  if (!target.sub.empty() && !(target.sub == "status" && resource->status) &&
      !(target.sub == "scale" && resource->scale))
    throw no_such_resource();
  if (resource->namespaced && !target.name.empty() && target.ns.empty())
    throw bad_request("Namespace parameter required.");
  return *resource;
}

Answer Rest_Api::answer(const Request& request, const Target& target) {
  const Resource& resource = resource_at(target);
  check_name_in_path(target.name);
  if (target.name.empty()) return on_collection(request, target, resource);
  return target.sub == "scale" ? on_scale(request, target, resource) : on_object(request, target, resource);
}

Answer Rest_Api::on_collection(const Request& request, const Target& target, const Resource& resource) {
  const bool across = resource.namespaced && !target.in_namespace;
  if (request.method == "GET") {
    Object_Store::Transaction store(store_);
    return list_answer(request, resource, target.ns, store);
  }
  if (request.method == "POST" && !across) return create(request, target, resource);
  if (request.method == "DELETE" && !across && resource.kind != "Namespace")
    return remove_all(request, target, resource);
  throw method_not_allowed();
}

Answer Rest_Api::on_object(const Request& request, const Target& target, const Resource& resource) {
  if (request.method == "GET") {
    Object_Store::Transaction store(store_);
    return object_answer(resource, require(store, resource, target)->members);
  }
  if (request.method == "PUT" || request.method == "PATCH") return change(request, target, resource);
  if (request.method == "DELETE" && target.sub.empty()) return remove(request, target, resource);
  throw method_not_allowed();
}

Answer Rest_Api::create(const Request& request, const Target& target, const Resource& resource) {
  if (resource.namespaced && target.ns.empty()) throw bad_request("Namespace parameter required.");
  std::vector<std::string> warnings;
  Object object = object_in_body(request, resource, warnings);
  Object& metadata = object["metadata"].to_object();
  std::string ns, version, name;
  json_spirit::extract(metadata)("namespace", ns)("resourceVersion", version)("name", name);
  if (resource.namespaced) {
    if (!ns.empty() && ns != target.ns)
      throw bad_request("the namespace of the provided object does not match the namespace sent on the request");
    metadata["namespace"] = target.ns;
  }
  if (resource.status) object.erase("status");
  Object_Store::Transaction store(store_);
  if (resource.namespaced) check_namespace(store, resource, *table_.find("", "v1", "namespaces"), target.ns, name);
  complete_new(resource, object, store);
  refuse_invalid(resource, object, validate(resource, object));
  if (!version.empty()) throw Refusal{failure(500, "", "resourceVersion should not be set on objects to be created")};
  const Object_Id id = id_of(resource, object);
  if (const auto other = store.find(id))
    throw already_exists(resource, id.name, other->object().at("metadata").get_obj().count("deletionTimestamp"));
  const std::string members = dry_run(request) ? members_text(object) : store.put(id, std::move(object))->members;
  if (resource.kind == "Namespace" && !dry_run(request)) furnish_namespace(table_, store, id.name);
  Answer answer = object_answer(resource, members, 201);
  add_name_warning(resource, id.name, warnings);
  add_warnings(answer, warnings);
  return answer;
}

Answer Rest_Api::change(const Request& request, const Target& target, const Resource& resource) {
  std::vector<std::string> warnings;
  const bool put = request.method == "PUT";
  Object wanted;
  if (put) wanted = object_in_body(request, resource, warnings);
  if (!put) patch_kind(request, resource);  // a wrong content type comes before a missing object
  Object_Store::Transaction store(store_);
  const auto before = require(store, resource, target);
  Object after = put ? std::move(wanted) : patched(request, resource, before->object());
  if (!put) drop_unknown_members(request, resource, after, warnings);
  std::string name;
  json_spirit::pextract(after)("/metadata/name", name);
  if (name != target.name)
    throw bad_request("the name of the object (" + name + ") does not match the name on the URL (" + target.name + ")");
  check_version(resource, before, after);
  if (resource.status) {
    // Each side writes its own: the sub-resource the status (and the metadata), the object all the rest.
    Object mixed = target.sub == "status" ? before->object() : after;
    const Object& status_from = target.sub == "status" ? after : before->object();
    mixed.erase("status");
    if (const Value* status = json_spirit::object_get_value(status_from, "status")) mixed["status"] = *status;
    after = std::move(mixed);
  }
  after = complete_update(resource, before, std::move(after));
  Causes causes = validate(resource, after);
  for (auto& cause : validate_update(resource, before->object(), after)) causes.push_back(std::move(cause));
  refuse_invalid(resource, after, causes);
  check_resize(store, resource, before->object(), after);
  Answer answer =
      object_answer(resource, dry_run(request) ? members_text(after)
                                               : store_update(resource, store, before, std::move(after))->members);
  add_warnings(answer, warnings);
  return answer;
}

Answer Rest_Api::remove(const Request& request, const Target& target, const Resource& resource) {
  const Delete_Options options = delete_options(request);
  Object_Store::Transaction store(store_);
  if (resource.kind == "Namespace" && is_protected_namespace(target.name))
    throw forbidden(resource, target.name, "this namespace may not be deleted");
  const auto stored = require(store, resource, target);
  Object precondition;
  json_spirit::insert(precondition["metadata"].to_object())("uid", options.uid)("resourceVersion",
                                                                                options.resource_version);
  check_version(resource, stored, precondition);
  std::string uid;
  json_spirit::pextract(stored->object())("/metadata/uid", uid);
  const Deletion deletion = options.dry_run ? Deletion{stored, true} : store_delete(resource, store, stored, options);
  std::vector<std::string> warnings;
  add_child_warning(resource, options, warnings);
  Answer answer = deletion.gone && !resource.returns_deleted ? deleted(resource, target.name, uid)
                                                             : object_answer(resource, deletion.object->members);
  add_warnings(answer, warnings);
  return answer;
}

Answer Rest_Api::remove_all(const Request& request, const Target& target, const Resource& resource) {
  const Delete_Options options = delete_options(request);
  const Selection selection(request, resource);
  Object_Store::Transaction store(store_);
  std::vector<Stored_Object_var> items;
  const List_Head head{.revision = store.revision()};
  for (const auto& stored : store.list(resource.group, resource.plural, target.ns))
    if (selection.matches(stored->value))
      items.push_back(options.dry_run ? stored : store_delete(resource, store, stored, options).object);
  return list_document(list_text(resource, head, items));
}

}  // namespace kube_sim
