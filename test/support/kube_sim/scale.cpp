#include <charconv>

#include "json_spirit/assign.h"
#include "json_spirit/dump.h"
#include "json_spirit/extract.h"
#include "support/kube_sim/object_writer.h"
#include "support/kube_sim/rest_api.h"
#include "support/kube_sim/status_document.h"

// The sub-resource `scale`: a view of a workload, of kind Scale in autoscaling/v1.
namespace kube_sim {

using json_spirit::Object;
using json_spirit::Object_Maker;
using json_spirit::Value;

namespace {

const Resource& scale_resource() {
  static const Resource resource{
      .group = "autoscaling", .version = "v1", .plural = "scales", .singular = "scale", .kind = "Scale"};
  return resource;
}

std::string selector_text(const Object& workload) {
  static const Object none;
  const Object* labels = &none;
  json_spirit::pextract(workload)("/spec/selector/matchLabels", labels);
  std::string text;
  for (const auto& [key, value] : *labels)
    if (value.type() == json_spirit::str_type) text += (text.empty() ? "" : ",") + key + "=" + value.get_str();
  return text;
}

/// A count of 0 is left out, as the server does.
Object scale_of(const Object& workload) {
  const Object& from = json_spirit::object_get_object_or_throw(workload, "metadata");
  Object metadata, spec;
  for (const char* member : {"name", "namespace", "uid", "resourceVersion", "creationTimestamp"})
    if (const Value* value = json_spirit::object_get_value(from, member)) metadata[member] = *value;
  long wanted = 0, present = 0;
  json_spirit::pextract(workload)("/spec/replicas", wanted)("/status/replicas", present);
  if (wanted) spec["replicas"] = wanted;
  return Object_Maker()("kind", "Scale")("apiVersion", "autoscaling/v1")("metadata", std::move(metadata))(
             "spec", std::move(spec))("status",
                                      Object_Maker()("replicas", present)("selector", selector_text(workload)))
      .get_obj();
}

/// The count that a Scale asks for; none or null is 0.
long wanted_replicas(const Object& scale, const std::string& name) {
  const Value* replicas = nullptr;
  json_spirit::pextract(scale)("/spec/replicas", replicas);
  if (!replicas || replicas->is_null()) return 0;
  if (replicas->type() != json_spirit::int_type)
    throw invalid("", "", "",
                  {Cause::invalid("patch", quoted(json_spirit::JSON_Dump(scale, false).str()),
                                  "json: cannot unmarshal " + std::string(json_spirit::type_name(replicas->type())) +
                                      " into Go struct field ScaleSpec.spec.replicas of type int32")});
  const long count = replicas->get_long();
  if (count < 0)
    throw invalid("autoscaling", "Scale", name,
                  {Cause::invalid("spec.replicas", std::to_string(count), "must be greater than or equal to 0")});
  return count;
}

}  // namespace

Answer Rest_Api::on_scale(const Request& request, const Target& target, const Resource& resource) {
  std::vector<std::string> warnings;
  const bool put = request.method == "PUT", patch = request.method == "PATCH";
  if (!put && !patch && request.method != "GET") throw method_not_allowed();
  Object wanted;
  if (put) wanted = object_in_body(request, scale_resource(), warnings);
  if (patch) patch_kind(request, scale_resource());
  Object_Store::Transaction store(store_);
  auto stored = require(store, resource, target);
  if (patch) {
    wanted = patched(request, scale_resource(), scale_of(stored->object()));
    drop_unknown_members(request, scale_resource(), wanted, warnings);
  }
  if (put || patch) {
    check_version(resource, stored, wanted);
    Object workload = stored->object();
    workload["spec"].to_object()["replicas"] = wanted_replicas(wanted, target.name);
    if (!dry_run(request)) stored = store_update(resource, store, stored, std::move(workload));
  }
  Answer answer{.body = json_spirit::JSON_Dump(scale_of(stored->object()), false).str() + "\n"};
  add_warnings(answer, warnings);
  return answer;
}

}  // namespace kube_sim
