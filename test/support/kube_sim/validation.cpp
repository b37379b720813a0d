#include "support/kube_sim/validation.h"

#include <algorithm>

#include "json_spirit/dump.h"
#include "json_spirit/extract.h"
#include "json_spirit/filter.h"
#include "support/kube_sim/name_rules.h"

namespace kube_sim {

using json_spirit::Array;
using json_spirit::JSON_Dump;
using json_spirit::Object;
using json_spirit::object_get_object;
using json_spirit::pextract;
using json_spirit::Value;

namespace {

void check_metadata(const Resource& resource, const Object& object, Causes& causes) {
  const Object* metadata = object_get_object(object, "metadata");
  std::string name;
  if (metadata) json_spirit::object_get(*metadata, "name", name);
  if (name.empty())
    causes.push_back(Cause::required("metadata.name", "name or generateName is required"));
  else
    check_name(resource, name, causes);
  const Object* labels = metadata ? object_get_object(*metadata, "labels") : nullptr;
  if (labels) check_labels(*labels, "metadata.labels", causes);
}

void check_pod(const Object& pod, Causes& causes) {
  const Array *containers = nullptr, *volumes = nullptr;
  pextract(pod)("/spec/containers", containers)("/spec/volumes", volumes);
  if (!containers || containers->empty()) causes.push_back(Cause::required("spec.containers"));
  for (std::size_t i = 0; volumes && i < volumes->size(); ++i) {
    std::string name;
    pextract((*volumes)[i])("/name", name);
    check_label_name(name, "spec.volumes[" + std::to_string(i) + "].name", causes);
  }
}

void check_source(const Object& spec, const char* member, Causes& causes) {
  const Object* source = object_get_object(spec, member);
  std::string name;
  if (source) json_spirit::object_get(*source, "name", name);
  if (source && name.empty()) causes.push_back(Cause::required(std::string("spec.") + member + ".name"));
}

void check_choice(const std::string& value, const std::vector<std::string>& choices, const std::string& field,
                  Causes& causes) {
  if (std::find(choices.begin(), choices.end(), value) == choices.end())
    causes.push_back(Cause::unsupported(field, value, choices));
}

void check_claim(const Object& claim, Causes& causes) {
  static const Object none;
  const Object* spec = object_get_object(claim, "spec");
  if (!spec) spec = &none;
  const Array* modes = json_spirit::object_get_array(*spec, "accessModes");
  if (!modes || modes->empty())
    causes.push_back(Cause::required("spec.accessModes", "at least 1 access mode is required"));
  else
    for (const std::string& mode : *modes | json_spirit::get_str)
      check_choice(mode, {"ReadOnlyMany", "ReadWriteMany", "ReadWriteOnce", "ReadWriteOncePod"}, "spec.accessModes",
                   causes);
  std::string size;
  pextract (*spec)("/resources/requests/storage", size);
  if (size.empty()) causes.push_back(Cause::required("spec.resources[storage]"));
  std::string volume_mode;
  if (json_spirit::object_get(*spec, "volumeMode", volume_mode))
    check_choice(volume_mode, {"Block", "Filesystem"}, "spec.volumeMode", causes);
  check_source(*spec, "dataSource", causes);
  check_source(*spec, "dataSourceRef", causes);
  const Object *source = object_get_object(*spec, "dataSource"), *reference = object_get_object(*spec, "dataSourceRef");
  if (source && reference && !(*source == *reference))
    causes.push_back(Cause::invalid("spec", "{}", "must match dataSourceRef"));
}

void check_storage_class(const Object& storage_class, Causes& causes) {
  std::string provisioner, mode;
  json_spirit::object_get(storage_class, "provisioner", provisioner);
  if (provisioner.empty()) causes.push_back(Cause::required("provisioner"));
  if (json_spirit::object_get(storage_class, "volumeBindingMode", mode))
    check_choice(mode, {"Immediate", "WaitForFirstConsumer"}, "volumeBindingMode", causes);
}

void check_workload(const Object& workload, Causes& causes) {
  static const Object none;
  const Object *selector = nullptr, *labels = &none;
  pextract(workload)("/spec/selector/matchLabels", selector)("/spec/template/metadata/labels", labels);
  if (!selector || selector->empty()) causes.push_back(Cause::required("spec.selector"));
  const bool matches =
      selector && !selector->empty() && std::all_of(selector->begin(), selector->end(), [&](const auto& member) {
        const Value* value = json_spirit::object_get_value(*labels, member.first);
        return value && *value == member.second;
      });
  if (!matches)
    causes.push_back(Cause::invalid("spec.template.metadata.labels", JSON_Dump(*labels, false).str(),
                                    "`selector` does not match template `labels`"));
}

void check_job(const Object& job, Causes& causes) {
  std::string policy;
  pextract(job)("/spec/template/spec/restartPolicy", policy);
  if (policy != "OnFailure" && policy != "Never")
    causes.push_back(Cause::required("spec.template.spec.restartPolicy", "valid values: \"OnFailure\", \"Never\""));
}

void check_node(const Object& node, Causes& causes) {
  const Array* taints = nullptr;
  pextract(node)("/spec/taints", taints);
  for (std::size_t i = 0; taints && i < taints->size(); ++i) {
    std::string effect;
    pextract((*taints)[i])("/effect", effect);
    const std::string field = "metadata.taints[" + std::to_string(i) + "].effect";
    // The server looks twice, once for the metadata and once for the update.
    for (int look = 0; look < 2; ++look)
      check_choice(effect, {"NoSchedule", "PreferNoSchedule", "NoExecute"}, field, causes);
  }
}

void check_config_map(const Object& map, Causes& causes) {
  const Object* data = object_get_object(map, "data");
  if (!data) return;
  std::size_t size = 0;
  for (const auto& [key, value] : *data) {
    if (!is_data_key(key)) causes.push_back(Cause::invalid("data[" + key + "]", quoted(key), data_key_rule));
    size += value.type() == json_spirit::str_type ? value.get_str().size() : 0;
  }
  if (size > 1'048'576) causes.push_back({"FieldValueTooLong", "Too long: may not be more than 1048576 bytes", "[]"});
}

void check_event(const Object& event, Causes& causes) {
  std::string involved, own;
  pextract(event)("/involvedObject/namespace", involved)("/metadata/namespace", own);
  if (involved != own && !(involved.empty() && own == "default"))
    causes.push_back(Cause::invalid("involvedObject.namespace", quoted(involved), "does not match event.namespace"));
}

const char unchecked_rules[] =
    "some validation rules were not checked because the object was invalid; correct the existing errors to complete "
    "validation";

/// The type of a value in the words of schemas.
std::string schema_type(const Value& value) {
  switch (value.type()) {
    case json_spirit::str_type:
      return "string";
    case json_spirit::int_type:
      return "integer";
    case json_spirit::real_type:
      return "number";
    case json_spirit::bool_type:
      return "boolean";
    case json_spirit::array_type:
      return "array";
    default:
      return "object";
  }
}

/// What a custom resource's schema says: the first break of it hides the rules on several members.
void check_type(const Value& object, const char* pointer, json_spirit::Value_type type, const char* name,
                Causes& causes) {
  const Value* value = nullptr;
  pextract(object)(pointer, value);
  if (!value || value->type() == type) return;
  std::string field = pointer + 1;
  std::replace(field.begin(), field.end(), '/', '.');
  const std::string found = schema_type(*value);
  const std::string member = field.substr(0, 5) == "spec." ? field : field.substr(field.rfind('.') + 1);
  causes.push_back(
      {"FieldValueTypeInvalid",
       "Invalid value: " + quoted(found) + ": " + member + " in body must be of type " + name + ": " + quoted(found),
       field});
}

void check_snapshot(const Object& snapshot, Causes& causes) {
  const Value document(snapshot);
  const Object* spec = object_get_object(snapshot, "spec");
  const std::size_t others = causes.size();
  if (!spec) causes.push_back(Cause::required("spec"));
  check_type(document, "/spec/volumeSnapshotClassName", json_spirit::str_type, "string", causes);
  check_type(document, "/status/readyToUse", json_spirit::bool_type, "boolean", causes);
  if (causes.size() > others) {
    causes.push_back(Cause::invalid("<nil>", "null", unchecked_rules));
    return;
  }
  const Object* source = object_get_object(*spec, "source");
  if (!source || source->count("persistentVolumeClaimName") == source->count("volumeSnapshotContentName"))
    causes.push_back({"FieldValueInvalid",
                      "Invalid value: exactly one of volumeSnapshotContentName and persistentVolumeClaimName must be "
                      "set",
                      "spec.source"});
  std::string class_name = "?";
  json_spirit::object_get(*spec, "volumeSnapshotClassName", class_name);
  if (class_name.empty())
    causes.push_back(Cause::invalid("spec.volumeSnapshotClassName", "\"\"",
                                    "volumeSnapshotClassName must not be the empty string when set"));
}

}  // namespace

Causes validate(const Resource& resource, const Object& object) {
  Causes causes;
  check_metadata(resource, object, causes);
  const std::string& kind = resource.kind;
  if (kind == "Pod") check_pod(object, causes);
  if (kind == "PersistentVolumeClaim") check_claim(object, causes);
  if (kind == "StorageClass") check_storage_class(object, causes);
  if (kind == "Deployment" || kind == "DaemonSet" || kind == "StatefulSet" || kind == "ReplicaSet")
    check_workload(object, causes);
  if (kind == "Job") check_job(object, causes);
  if (kind == "Node") check_node(object, causes);
  if (kind == "ConfigMap") check_config_map(object, causes);
  if (kind == "Event") check_event(object, causes);
  if (kind == "VolumeSnapshot") check_snapshot(object, causes);
  return causes;
}

}  // namespace kube_sim
