#include "support/kube_sim/request_body.h"

#include <algorithm>
#include <cstring>
#include <map>

#include "json_spirit/extract.h"
#include "support/kube_sim/json_error.h"
#include "support/kube_sim/status_document.h"

namespace kube_sim {

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::object_get_object;
using json_spirit::Value;

std::string media_type(const Request& request) {
  std::string type = request.header("content-type");
  type.erase(std::min(type.find(';'), type.size()));
  while (!type.empty() && type.back() == ' ') type.pop_back();
  std::transform(type.begin(), type.end(), type.begin(), [](unsigned char c) { return std::tolower(c); });
  return type;
}

namespace {

constexpr std::size_t body_limit = 3'145'728;

Refusal unknown_format(const std::string& accepted) {
  return {failure(415, "UnsupportedMediaType",
                  "the body of the request was in an unknown format - accepted media types include: " + accepted)};
}

const char built_in_formats[] = "application/json, application/yaml, application/vnd.kubernetes.protobuf";

/// A body without a content type is taken for JSON.
void check_format(const Request& request, const char* accepted) {
  const std::string type = media_type(request);
  if (!type.empty() && type != "application/json") throw unknown_format(accepted);
}

void check_size(const Request& request) {
  if (request.body.size() > body_limit)
    throw Refusal{
        failure(413, "RequestEntityTooLarge", "Request entity too large: limit is " + std::to_string(body_limit))};
}

Refusal unrecognized(const Resource& resource, const std::string& why, const std::string& body) {
  return bad_request("the object provided is unrecognized (must be of type " + resource.kind +
                     "): couldn't get version/kind; json parse error: " + why + " (" + body_excerpt(body) + ")");
}

const char* go_kind(const Value& value) {
  switch (value.type()) {
    case json_spirit::array_type:
      return "array";
    case json_spirit::bool_type:
      return "bool";
    case json_spirit::obj_type:
      return "object";
    case json_spirit::str_type:
      return "string";
    default:
      return "number";
  }
}

Object read_object(const Request& request, const Resource& resource) {
  Value value;
  if (!json_spirit::loads_json(std::string_view(request.body), value))
    throw unrecognized(resource, json_error(request.body), request.body);
  if (value.is_null()) return {};
  if (value.type() != json_spirit::obj_type)
    throw unrecognized(resource,
                       std::string("json: cannot unmarshal ") + go_kind(value) +
                           " into Go value of type struct { APIVersion string \"json:\\\"apiVersion,omitempty\\\"\"; "
                           "Kind string \"json:\\\"kind,omitempty\\\"\" }",
                       request.body);
  return std::move(value.get_obj());
}

Refusal not_handled(const Resource& resource, const std::string& kind, const std::string& why) {
  return bad_request(kind + " in version \"" + resource.version + "\" cannot be handled as a " + resource.kind + ": " +
                     why);
}

/// Objects of custom kinds have to say what they are; built-in ones have to say nothing wrong.
void check_kind(const Resource& resource, Object& object) {
  std::string kind, version;
  json_spirit::object_get(object, "kind", kind);
  json_spirit::object_get(object, "apiVersion", version);
  if (resource.custom) {
    if (version != resource.api_version())
      throw bad_request("the API version in the data (" + version + ") does not match the expected API version (" +
                        resource.api_version() + ")");
    if (kind != resource.kind)
      throw bad_request("the kind in the data (" + kind + ") does not match the expected kind (" + resource.kind + ")");
  }
  if (!version.empty() && version != resource.api_version())
    throw not_handled(resource, resource.kind,
                      "no kind \"" + (kind.empty() ? resource.kind : kind) + "\" is registered for version \"" +
                          version + "\" in scheme \"pkg/runtime/scheme.go:111\"");
  if (!kind.empty() && kind != resource.kind)
    throw not_handled(resource, kind,
                      "converting (" + resource.version + "." + kind + ") to (" +
                          (resource.group.empty() ? "core" : resource.group) + "." + resource.kind +
                          "): unknown conversion");
  object["kind"] = resource.kind;
  object["apiVersion"] = resource.api_version();
}

const std::vector<std::string>& known_members(const std::string& kind) {
  static const std::map<std::string, std::vector<std::string>> members{
      {"ConfigMap", {"data", "binaryData", "immutable"}},
      {"Secret", {"data", "stringData", "type", "immutable"}},
      {"ServiceAccount", {"secrets", "imagePullSecrets", "automountServiceAccountToken"}},
      {"StorageClass",
       {"provisioner", "parameters", "reclaimPolicy", "mountOptions", "allowVolumeExpansion", "volumeBindingMode",
        "allowedTopologies"}},
      {"VolumeSnapshotClass", {"driver", "deletionPolicy", "parameters"}},
      {"Event",
       {"involvedObject", "reason", "message", "source", "firstTimestamp", "lastTimestamp", "count", "type",
        "eventTime", "series", "action", "related", "reportingComponent", "reportingInstance"}},
      {"Scale", {"spec", "status"}}};
  static const std::vector<std::string> usual{"spec", "status"};
  const auto found = members.find(kind);
  return found == members.end() ? usual : found->second;
}

/// The first byte that is no base64, or -1.
long bad_base64(const std::string& text) {
  for (std::size_t i = 0; i < text.size(); ++i)
    if (!std::isalnum(static_cast<unsigned char>(text[i])) && !std::strchr("+/=", text[i])) return static_cast<long>(i);
  return text.size() % 4 ? static_cast<long>(text.size() - text.size() % 4) : -1;
}

bool is_quantity(const Value& value) {
  if (value.type() != json_spirit::str_type) return value.type() == json_spirit::int_type;
  const std::string& text = value.get_str();
  const std::size_t digits = text.find_first_not_of("0123456789.", text.find_first_of("+-") == 0);
  if (digits == 0 || text.empty()) return false;
  return digits == std::string::npos || text.find_first_not_of("eEinumkKMGTP+-0123456789", digits) == std::string::npos;
}

}  // namespace

std::string type_error(const Resource& resource, const Object& object) {
  const Object* metadata = object_get_object(object, "metadata");
  const Value* name = metadata ? json_spirit::object_get_value(*metadata, "name") : nullptr;
  if (name && name->type() != json_spirit::str_type && !name->is_null())
    return std::string("json: cannot unmarshal ") + go_kind(*name) +
           " into Go struct field ObjectMeta.metadata.name of type string";
  const Object* data = object_get_object(object, "data");
  if (data && (resource.kind == "ConfigMap" || resource.kind == "Secret"))
    for (const auto& [key, value] : *data) {
      if (value.type() != json_spirit::str_type && !value.is_null())
        return std::string("json: cannot unmarshal ") + go_kind(value) + " into Go struct field " + resource.kind +
               ".data of type string";
      if (resource.kind == "Secret" && value.type() == json_spirit::str_type && bad_base64(value.get_str()) >= 0)
        return "illegal base64 data at input byte " + std::to_string(bad_base64(value.get_str()));
    }
  const Value* size = nullptr;
  if (resource.kind == "PersistentVolumeClaim") json_spirit::pextract(object)("/spec/resources/requests/storage", size);
  if (size && !is_quantity(*size))
    return "quantities must match the regular expression '^([+-]?[0-9.]+)([eEinumkKMGTP]*[-+]?[0-9]*)$'";
  return {};
}

std::vector<std::string> take_unknown(Object& object, const std::vector<std::string>& known,
                                      const std::string& prefix) {
  std::vector<std::string> unknown;
  for (auto member = object.begin(); member != object.end();) {
    if (std::find(known.begin(), known.end(), member->first) != known.end()) {
      ++member;
    } else {
      unknown.push_back(prefix + member->first);
      member = object.erase(member);
    }
  }
  return unknown;
}

void drop_unknown_members(const Request& request, const Resource& resource, Object& object,
                          std::vector<std::string>& warnings) {
  std::vector<std::string> known = known_members(resource.kind);
  known.insert(known.end(), {"kind", "apiVersion", "metadata"});
  std::vector<std::string> unknown = take_unknown(object, known, "");
  if (Object* spec = object_get_object(object, "spec")) {
    std::vector<std::string> more;
    if (resource.kind == "Scale") more = take_unknown(*spec, {"replicas"}, "spec.");
    Object* source = resource.kind == "PersistentVolumeClaim" ? object_get_object(*spec, "dataSource") : nullptr;
    if (source) more = take_unknown(*source, {"apiGroup", "kind", "name"}, "spec.dataSource.");
    unknown.insert(unknown.end(), more.begin(), more.end());
  }
  const std::string* wanted = request.parameter("fieldValidation");
  if (unknown.empty() || (wanted && *wanted == "Ignore")) return;
  if (wanted && *wanted == "Strict")
    throw not_handled(resource, resource.kind, "strict decoding error: unknown field \"" + unknown.front() + "\"");
  for (const auto& member : unknown) warnings.push_back("unknown field \"" + member + "\"");
}

Object object_in_body(const Request& request, const Resource& resource, std::vector<std::string>& warnings) {
  check_format(request, resource.custom ? "application/json, application/yaml" : built_in_formats);
  check_size(request);
  Object object = read_object(request, resource);
  check_kind(resource, object);
  const std::string error = type_error(resource, object);
  if (!error.empty()) throw not_handled(resource, resource.kind, error);
  drop_unknown_members(request, resource, object, warnings);
  Object& metadata = object["metadata"].to_object();
  metadata.erase("managedFields");
  metadata.erase("selfLink");
  return object;
}

Patch_Kind patch_kind(const Request& request, const Resource& resource) {
  const std::string type = media_type(request);
  if (type == "application/json-patch+json") return Patch_Kind::json;
  if (type == "application/merge-patch+json") return Patch_Kind::merge;
  if (type == "application/strategic-merge-patch+json" && !resource.custom) return Patch_Kind::strategic;
  if (resource.custom)
    throw unknown_format("application/json-patch+json, application/merge-patch+json, application/apply-patch+yaml");
  throw Refusal{failure(415, "UnsupportedMediaType", "415: Unsupported Media Type", Object())};
}

Value patch_in_body(const Request& request, Patch_Kind kind) {
  check_size(request);
  Value patch;
  if (!json_spirit::loads_json(std::string_view(request.body), patch))
    throw bad_request("error decoding patch: " + json_error(request.body));
  const bool wants_array = kind == Patch_Kind::json;
  if (patch.type() != (wants_array ? json_spirit::array_type : json_spirit::obj_type))
    throw bad_request(std::string("error decoding patch: json: cannot unmarshal ") + go_kind(patch) +
                      " into Go value of type " + (wants_array ? "jsonpatch.Patch" : "map[string]interface {}"));
  return patch;
}

bool dry_run(const Request& request) {
  const std::string* wanted = request.parameter("dryRun");
  return wanted && *wanted == "All";
}

Delete_Options delete_options(const Request& request) {
  if (!request.body.empty()) check_format(request, built_in_formats);
  Delete_Options options;
  options.dry_run = dry_run(request);
  if (const auto* grace = request.parameter("gracePeriodSeconds"))
    options.grace_seconds = std::strtol(grace->c_str(), nullptr, 10);
  if (const auto* propagation = request.parameter("propagationPolicy")) options.propagation = *propagation;
  Value body;
  if (json_spirit::loads_json(std::string_view(request.body), body)) {
    Array modes;
    json_spirit::pextract(body)("/gracePeriodSeconds", options.grace_seconds)(
        "/propagationPolicy", options.propagation)("/preconditions/uid", options.uid)(
        "/preconditions/resourceVersion", options.resource_version)("/dryRun", modes);
    if (!modes.empty()) options.dry_run = true;
  }
  const std::string& policy = options.propagation;
  if (!policy.empty() && policy != "Foreground" && policy != "Background" && policy != "Orphan")
    throw invalid("meta.k8s.io", "DeleteOptions", "",
                  {Cause::unsupported("propagationPolicy", policy, {"Foreground", "Background", "Orphan", "nil"})});
  return options;
}

}  // namespace kube_sim
