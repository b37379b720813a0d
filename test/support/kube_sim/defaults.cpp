#include "support/kube_sim/defaults.h"

#include <algorithm>
#include <ctime>
#include <mutex>
#include <random>

#include "json_spirit/assign.h"
#include "json_spirit/extract.h"
#include "json_spirit/filter.h"
#include "support/kube_sim/pod_defaults.h"

namespace kube_sim {

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::object_get_str;
using json_spirit::object_get_value;
using json_spirit::Object_Maker;
using json_spirit::Value;

namespace {

std::string random_text(const char* alphabet, std::size_t letters, std::size_t length) {
  static std::mutex mutex;
  static std::mt19937_64 engine{std::random_device{}()};
  std::lock_guard lock(mutex);
  std::string text;
  while (text.size() < length) text += alphabet[engine() % letters];
  return text;
}

void add_finalizer(Object& object, const char* name) {
  Array& finalizers = object["metadata"].to_object()["finalizers"].to_array();
  if (std::find(finalizers.begin(), finalizers.end(), Value(name)) == finalizers.end()) finalizers << Value(name);
}

void default_template(Object& spec) {
  if (Object* pod = json_spirit::object_get_object(spec, "template")) {
    set_default((*pod)["metadata"].to_object(), "labels", Object());
    default_pod_spec((*pod)["spec"].to_object());
  }
}

void default_claim(Object& claim, bool stored) {
  if (stored) add_finalizer(claim, "kubernetes.io/pvc-protection");
  set_default(claim["spec"].to_object(), "volumeMode", "Filesystem");
  set_default(claim["status"].to_object(), "phase", "Pending");
}

void default_volume(Object& volume) {
  add_finalizer(volume, "kubernetes.io/pv-protection");
  Object& spec = volume["spec"].to_object();
  set_default(spec, "volumeMode", "Filesystem");
  set_default(spec, "persistentVolumeReclaimPolicy", "Retain");
  Object& status = volume["status"].to_object();
  set_default(status, "phase", "Pending");
  set_default(status, "lastPhaseTransitionTime", timestamp());
}

Value rolling_update(const char* first, Value first_value, const char* second, Value second_value) {
  Object_Maker bounds;
  bounds(first, std::move(first_value));
  if (second) bounds(second, std::move(second_value));
  return Object_Maker()("type", "RollingUpdate")("rollingUpdate", Value(bounds.get_obj()));
}

void default_deployment(Object& deployment) {
  Object& spec = deployment["spec"].to_object();
  set_default(spec, "replicas", 1);
  set_default(spec, "revisionHistoryLimit", 10);
  set_default(spec, "progressDeadlineSeconds", 600);
  set_default(spec, "strategy", rolling_update("maxUnavailable", "25%", "maxSurge", "25%"));
  default_template(spec);
  set_default(deployment, "status", Object());
}

void default_stateful_set(Object& set) {
  Object& spec = set["spec"].to_object();
  set_default(spec, "replicas", 1);
  set_default(spec, "revisionHistoryLimit", 10);
  set_default(spec, "podManagementPolicy", "OrderedReady");
  set_default(spec, "updateStrategy", rolling_update("partition", 0, nullptr, Value()));
  set_default(spec, "persistentVolumeClaimRetentionPolicy",
              Object_Maker()("whenDeleted", "Retain")("whenScaled", "Retain"));
  default_template(spec);
  if (Array* claims = json_spirit::object_get_array(spec, "volumeClaimTemplates"))
    for (Object& claim : *claims | json_spirit::get_obj) {
      set_default(claim, "kind", "PersistentVolumeClaim");
      set_default(claim, "apiVersion", "v1");
      default_claim(claim, false);
    }
  set_default(set, "status", Object_Maker()("replicas", 0)("availableReplicas", 0));
}

void default_daemon_set(Object& set) {
  set["metadata"].to_object()["annotations"].to_object()["deprecated.daemonset.template.generation"] = "1";
  Object& spec = set["spec"].to_object();
  set_default(spec, "revisionHistoryLimit", 10);
  set_default(spec, "updateStrategy", rolling_update("maxUnavailable", 1, "maxSurge", 0));
  default_template(spec);
  set_default(set, "status",
              Object_Maker()("currentNumberScheduled", 0)("numberMisscheduled", 0)("desiredNumberScheduled", 0)(
                  "numberReady", 0));
}

void default_replica_set(Object& set) {
  Object& spec = set["spec"].to_object();
  set_default(spec, "replicas", 1);
  default_template(spec);
  set_default(set, "status", Object_Maker()("replicas", 0));
}

void default_job_spec(Object& spec) {
  set_default(spec, "parallelism", 1);
  set_default(spec, "completions", 1);
  set_default(spec, "backoffLimit", 6);
  default_template(spec);
}

/// A job finds its pods by its own uid.
void select_by_uid(Object& job) {
  Object& spec = job["spec"].to_object();
  bool manual = false;
  json_spirit::object_get(spec, "manualSelector", manual);
  if (manual) return;
  Object& metadata = job["metadata"].to_object();
  const Value uid = metadata["uid"], name = metadata["name"];
  spec["selector"].to_object()["matchLabels"].to_object()["batch.kubernetes.io/controller-uid"] = uid;
  Object& labels = spec["template"].to_object()["metadata"].to_object()["labels"].to_object();
  for (const char* prefix : {"", "batch.kubernetes.io/"}) {
    labels[std::string(prefix) + "controller-uid"] = uid;
    labels[std::string(prefix) + "job-name"] = name;
  }
}

void default_job(Object& job) {
  Object& spec = job["spec"].to_object();
  default_job_spec(spec);
  set_default(spec, "completionMode", "NonIndexed");
  set_default(spec, "suspend", false);
  set_default(spec, "manualSelector", false);
  set_default(spec, "podReplacementPolicy", "TerminatingOrFailed");
  select_by_uid(job);
  set_default(job, "status", Object());
}

void default_cron_job(Object& job) {
  Object& spec = job["spec"].to_object();
  set_default(spec, "concurrencyPolicy", "Allow");
  set_default(spec, "suspend", false);
  set_default(spec, "successfulJobsHistoryLimit", 3);
  set_default(spec, "failedJobsHistoryLimit", 1);
  if (Object* pattern = json_spirit::object_get_object(spec, "jobTemplate"))
    if (Object* job_spec = json_spirit::object_get_object(*pattern, "spec")) default_template(*job_spec);
  set_default(job, "status", Object());
}

void default_namespace(Object& object) {
  Object& metadata = object["metadata"].to_object();
  metadata["labels"].to_object()["kubernetes.io/metadata.name"] = metadata["name"];
  Array finalizers;
  finalizers << Value("kubernetes");
  object["spec"].to_object()["finalizers"] = finalizers;
  set_default(object["status"].to_object(), "phase", "Active");
}

void default_node(Object& node) {
  Array& taints = node["spec"].to_object()["taints"].to_array();
  taints << Object_Maker()("key", "node.kubernetes.io/not-ready")("effect", "NoSchedule");
}

void default_event(Object& event) {
  set_default(event, "eventTime", Value());
  set_default(event, "reportingComponent", "");
  set_default(event, "reportingInstance", "");
}

}  // namespace

void apply_defaults(const Resource& resource, Object& object) {
  if (resource.generation) object["metadata"].to_object()["generation"] = 1;
  const std::string& kind = resource.kind;
  if (kind == "Pod") default_pod(object);
  if (kind == "PersistentVolumeClaim") default_claim(object, true);
  if (kind == "PersistentVolume") default_volume(object);
  if (kind == "Deployment") default_deployment(object);
  if (kind == "StatefulSet") default_stateful_set(object);
  if (kind == "DaemonSet") default_daemon_set(object);
  if (kind == "ReplicaSet") default_replica_set(object);
  if (kind == "Job") default_job(object);
  if (kind == "CronJob") default_cron_job(object);
  if (kind == "Namespace") default_namespace(object);
  if (kind == "Node") default_node(object);
  if (kind == "Event") default_event(object);
  if (kind == "Secret") set_default(object, "type", "Opaque");
  if (kind == "StorageClass") {
    set_default(object, "reclaimPolicy", "Delete");
    set_default(object, "volumeBindingMode", "Immediate");
  }
  normalize(resource, object);
}

namespace {

/// A claim can come from a claim or a volume snapshot. Anything else is dropped without a word.
bool known_source(const Object& source) {
  const auto* group = object_get_str(source, "apiGroup");
  const auto* kind = object_get_str(source, "kind");
  if (!kind) return false;
  if (!group || group->empty()) return *kind == "PersistentVolumeClaim";
  return *group == "snapshot.storage.k8s.io" && *kind == "VolumeSnapshot";
}

}  // namespace

void normalize(const Resource& resource, Object& object) {
  if (resource.kind == "Event") {
    const auto* message = object_get_str(object, "message");
    if (message && message->empty()) object.erase("message");
  }
  if (resource.kind == "ConfigMap" || resource.kind == "Secret") {
    Object* data = json_spirit::object_get_object(object, "data");
    if (!data) return;
    for (auto& [key, value] : *data)
      if (value.is_null()) value = "";
  }
  if (resource.kind != "PersistentVolumeClaim") return;
  Object& spec = object["spec"].to_object();
  Object* source = json_spirit::object_get_object(spec, "dataSource");
  if (source && !known_source(*source)) {
    spec.erase("dataSource");
    source = nullptr;
  }
  Object* reference = json_spirit::object_get_object(spec, "dataSourceRef");
  if (source) set_default(*source, "apiGroup", Value());
  if (reference) set_default(*reference, "apiGroup", Value());
  if (source && !reference) spec["dataSourceRef"] = *source;
  if (reference && !source && known_source(*reference)) spec["dataSource"] = *reference;
}

std::string random_suffix() {
  return random_text("bcdfghjklmnpqrstvwxz2456789", 27, 5);
}

std::string random_uid() {
  std::string uid = random_text("0123456789abcdef", 16, 36);
  for (const std::size_t dash : {8, 13, 18, 23}) uid[dash] = '-';
  uid[14] = '4';
  uid[19] = 'a';
  return uid;
}

std::string timestamp(long seconds_from_now) {
  const std::time_t time = std::time(nullptr) + seconds_from_now;
  std::tm parts{};
  gmtime_r(&time, &parts);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
  return text;
}

}  // namespace kube_sim
