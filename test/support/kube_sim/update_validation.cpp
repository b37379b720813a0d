#include <functional>

#include "json_spirit/dump.h"
#include "json_spirit/extract.h"
#include "json_spirit/filter.h"
#include "support/kube_sim/validation.h"

namespace kube_sim {

using json_spirit::Array;
using json_spirit::JSON_Dump;
using json_spirit::Object;
using json_spirit::pextract;
using json_spirit::Value;

namespace {

Value at(const Object& object, const char* pointer) {
  Value found;
  pextract(object)(pointer, found);
  return found;
}

/// Whether two states differ in their spec once the members that may change are taken out.
bool spec_differs(const Object& before, const Object& after, const std::function<void(Object&)>& forgive) {
  Value a = at(before, "/spec"), b = at(after, "/spec");
  forgive(a.to_object());
  forgive(b.to_object());
  return !(a == b);
}

void forgive_pod(Object& spec) {
  spec.erase("tolerations");
  spec.erase("activeDeadlineSeconds");
  for (const char* list : {"containers", "initContainers"})
    if (Array* containers = json_spirit::object_get_array(spec, list))
      for (Object& container : *containers | json_spirit::get_obj) container.erase("image");
}

/// A claim that waits for a volume may be given one.
void check_claim_update(const Object& before, const Object& after, Causes& causes) {
  std::string phase, volume;
  pextract(before)("/status/phase", phase)("/spec/volumeName", volume);
  const bool differs = spec_differs(before, after, [&](Object& spec) {
    spec.erase("resources");
    if (volume.empty()) spec.erase("volumeName");
  });
  if (differs)
    causes.push_back(Cause::forbidden("spec",
                                      "spec is immutable after creation except resources.requests and "
                                      "volumeAttributesClassName for bound claims\n"));
}

void check_fixed(const Object& before, const Object& after, const char* member, Causes& causes) {
  const Value now = at(after, (std::string("/") + member).c_str());
  if (!(at(before, (std::string("/") + member).c_str()) == now))
    causes.push_back(Cause::invalid(member, JSON_Dump(now, false).str(), "field is immutable"));
}

}  // namespace

Causes validate_update(const Resource& resource, const Object& before, const Object& after) {
  Causes causes;
  const std::string& kind = resource.kind;
  if (kind == "Pod" && spec_differs(before, after, forgive_pod))
    causes.push_back(Cause::forbidden(
        "spec",
        "pod updates may not change fields other than "
        "`spec.containers[*].image`,`spec.initContainers[*].image`,`spec.activeDeadlineSeconds`,`spec.tolerations` "
        "(only additions to existing tolerations),`spec.terminationGracePeriodSeconds` (allow it to be set to 1 if it "
        "was previously negative)\n"));
  if (kind == "PersistentVolumeClaim") check_claim_update(before, after, causes);
  if (kind == "StorageClass") {
    check_fixed(before, after, "provisioner", causes);
    check_fixed(before, after, "volumeBindingMode", causes);
  }
  if (kind == "Job" && !(at(before, "/spec/template") == at(after, "/spec/template")))
    causes.push_back(
        Cause::invalid("spec.template", JSON_Dump(at(after, "/spec/template"), false).str(), "field is immutable"));
  if (kind == "VolumeSnapshot") {
    const Value now = at(after, "/spec/source/persistentVolumeClaimName");
    if (!(at(before, "/spec/source/persistentVolumeClaimName") == now))
      causes.push_back(Cause::invalid("spec.source.persistentVolumeClaimName", JSON_Dump(now, false).str(),
                                      "persistentVolumeClaimName is immutable"));
  }
  return causes;
}

}  // namespace kube_sim
