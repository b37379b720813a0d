// Deployments, replica sets, stateful sets, daemon sets and jobs.
#include <algorithm>

#include "json_spirit/dump.h"
#include "support/kube_sim/control_plane.h"

namespace kube_sim {

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Object_Maker;
using json_spirit::pextract;
using json_spirit::Value;

namespace {

typedef std::map<std::string, std::string> Labels;

Object_Id id_of(const Value& owner, const char* group, const char* resource) {
  return {group, resource, namespace_of(owner), name_of(owner)};
}

Value reference_to(const Value& owner) {
  return Object_Maker()("apiVersion", text_at(owner, "/apiVersion"))("kind", text_at(owner, "/kind"))(
      "name", name_of(owner))("uid", uid_of(owner))("controller", true)("blockOwnerDeletion", true);
}

std::int64_t number_at(const Value& document, const char* path, std::int64_t otherwise) {
  pextract(document)(path, otherwise);
  return otherwise;
}

/// Eight hexadecimal digits that follow from the owner's template.
std::string template_hash(const Value& owner) {
  Object pod_template;
  pextract(owner)("/spec/template", pod_template);
  char digits[32];
  std::snprintf(digits, sizeof digits, "%08zx",
                std::hash<std::string>()(json_spirit::JSON_Dump(pod_template, false).str()) & 0xffffffff);
  return digits;
}

/// A pod from the owner's template, with a name, or a prefix of one that ends in "-".
Object pod_from(const Value& owner, const std::string& name, const Labels& labels) {
  Object pod;
  pextract(owner)("/spec/template", pod);
  Object& metadata = pod["metadata"].to_object();
  metadata["namespace"] = namespace_of(owner);
  metadata[name.ends_with('-') ? "generateName" : "name"] = name;
  metadata["ownerReferences"] = Array{reference_to(owner)};
  for (const auto& [key, value] : labels) metadata["labels"].to_object()[key] = value;
  pod["kind"] = "Pod";
  pod["apiVersion"] = "v1";
  return pod;
}

Documents living(const Documents& pods) {
  Documents alive;
  for (const Document_var& pod : pods) {
    const std::string phase = text_at(*pod, "/status/phase");
    if (!is_terminating(*pod) && phase != "Succeeded" && phase != "Failed") alive.push_back(pod);
  }
  return alive;
}

std::int64_t ready_among(const Documents& pods) {
  return std::count_if(pods.begin(), pods.end(),
                       [](const auto& pod) { return text_at(*pod, "/status/phase") == "Running"; });
}

/// Brings the number of pods to @a wanted; tells how many there were.
Documents sync_pods(Control_Plane& plane, const Value& owner, std::int64_t wanted, const Labels& labels) {
  const Documents pods = living(plane.pods_of(uid_of(owner)));
  const auto count = static_cast<std::int64_t>(pods.size());
  for (std::int64_t i = count; i < wanted; ++i)
    plane.cluster.create("", "pods", pod_from(owner, name_of(owner) + "-", labels));
  for (std::int64_t i = wanted; i < count; ++i)
    plane.cluster.remove({"", "pods", namespace_of(owner), name_of(*pods[static_cast<size_t>(i)])});
  return pods;
}

void set_status(Control_Plane& plane, const Object_Id& id, const Value& owner, const Object& members) {
  const std::int64_t generation = number_at(owner, "/metadata/generation", 1);
  plane.cluster.update(id, [&](Object& object) {
    Object& status = object["status"].to_object();
    for (const auto& [key, value] : members) status[key] = value;
    if (id.resource != "jobs") status["observedGeneration"] = generation;
    return true;
  });
}

void control_replica_set(Control_Plane& plane, const Value& set) {
  const Documents pods = sync_pods(plane, set, number_at(set, "/spec/replicas", 1), {});
  const auto count = static_cast<std::int64_t>(pods.size());
  const std::int64_t ready = ready_among(pods);
  set_status(plane, id_of(set, "apps", "replicasets"), set,
             Object_Maker()("replicas", count)("fullyLabeledReplicas", count)("readyReplicas", ready)(
                 "availableReplicas", ready)
                 .get_obj());
}

Object replica_set_for(const Value& deployment, const std::string& hash) {
  Object pod_template, selector;
  pextract(deployment)("/spec/template", pod_template)("/spec/selector", selector);
  pod_template["metadata"].to_object()["labels"].to_object()["pod-template-hash"] = hash;
  selector["matchLabels"].to_object()["pod-template-hash"] = hash;
  Object metadata;
  metadata["labels"] = pod_template["metadata"].to_object()["labels"];
  json_spirit::insert(metadata)("name", name_of(deployment) + "-" + hash)("namespace", namespace_of(deployment))(
      "ownerReferences", Array{reference_to(deployment)});
  const Object_Maker spec = Object_Maker()("replicas", number_at(deployment, "/spec/replicas", 1))(
      "selector", selector)("template", pod_template);
  return Object_Maker()("kind", "ReplicaSet")("apiVersion", "apps/v1")("metadata", metadata)("spec", spec).get_obj();
}

void scale(Control_Plane& plane, const Object_Id& id, std::int64_t replicas) {
  plane.cluster.update(id, [&](Object& object) {
    object["spec"].to_object()["replicas"] = replicas;
    return true;
  });
}

void control_deployment(Control_Plane& plane, const Value& deployment) {
  const std::int64_t wanted = number_at(deployment, "/spec/replicas", 1);
  const std::string current = name_of(deployment) + "-" + template_hash(deployment);
  const Object_Id current_id{"apps", "replicasets", namespace_of(deployment), current};
  for (const Document_var& set : plane.cluster.list("apps", "replicasets", namespace_of(deployment))) {
    if (text_at(*set, "/metadata/ownerReferences/0/uid") != uid_of(deployment)) continue;
    scale(plane, id_of(*set, "apps", "replicasets"), name_of(*set) == current ? wanted : 0);
  }
  const Document_var set = plane.cluster.get(current_id);
  if (!set) plane.cluster.create("apps", "replicasets", replica_set_for(deployment, template_hash(deployment)));
  const std::int64_t count = set ? number_at(*set, "/status/replicas", 0) : 0;
  const std::int64_t ready = set ? number_at(*set, "/status/readyReplicas", 0) : 0;
  const bool available = ready >= wanted;
  Object_Maker condition;
  condition("type", "Available")("status", available ? "True" : "False")(
      "reason", available ? "MinimumReplicasAvailable" : "MinimumReplicasUnavailable");
  set_status(
      plane, id_of(deployment, "apps", "deployments"), deployment,
      Object_Maker()("replicas", count)("updatedReplicas", count)("readyReplicas", ready)("availableReplicas", ready)(
          "unavailableReplicas", std::max<std::int64_t>(wanted - ready, 0))("conditions", Array{condition})
          .get_obj());
}

/// Makes the claims of one pod of a stateful set, and lets the pod's volumes name them.
void add_claims(Control_Plane& plane, const Value& set, const std::string& pod_name, Object& pod) {
  const Array* templates = nullptr;
  pextract(set)("/spec/volumeClaimTemplates", templates);
  Array& volumes = pod["spec"].to_object()["volumes"].to_array();
  for (size_t i = 0; templates != nullptr && i < templates->size(); ++i) {
    Object claim = (*templates)[i].get_obj();
    const std::string volume = text_at(claim, "/metadata/name"), name = volume + "-" + pod_name;
    Object labels;
    pextract(set)("/spec/selector/matchLabels", labels);
    json_spirit::insert(claim["metadata"].to_object())("name", name)("namespace", namespace_of(set))("labels", labels);
    json_spirit::insert(claim)("kind", "PersistentVolumeClaim")("apiVersion", "v1");
    claim.erase("status");
    plane.cluster.create("", "persistentvolumeclaims", claim);
    std::erase_if(volumes, [&](const Value& other) { return text_at(other, "/name") == volume; });
    volumes.insert(volumes.begin(),
                   Object_Maker()("name", volume)("persistentVolumeClaim", Object_Maker()("claimName", name)));
  }
}

void control_stateful_set(Control_Plane& plane, const Value& set) {
  const std::int64_t wanted = number_at(set, "/spec/replicas", 1);
  const std::string prefix = name_of(set) + "-", revision = prefix + template_hash(set);
  std::int64_t count = 0, ready = 0;
  std::set<std::string> names;
  for (std::int64_t i = 0; i < wanted; ++i) names.insert(prefix + std::to_string(i));
  for (const Document_var& pod : plane.pods_of(uid_of(set)))
    if (names.count(name_of(*pod)) == 0) plane.cluster.remove({"", "pods", namespace_of(set), name_of(*pod)});
  for (std::int64_t i = 0; i < wanted; ++i) {
    const std::string name = prefix + std::to_string(i);
    const Document_var pod = plane.cluster.get({"", "pods", namespace_of(set), name});
    if (!pod) {
      Object fresh = pod_from(set, name,
                              {{"apps.kubernetes.io/pod-index", std::to_string(i)},
                               {"controller-revision-hash", revision},
                               {"statefulset.kubernetes.io/pod-name", name}});
      fresh["metadata"].to_object()["generateName"] = prefix;
      add_claims(plane, set, name, fresh);
      plane.cluster.create("", "pods", fresh);
      break;  // in order: the next one is made when this one runs
    }
    ++count;
    if (text_at(*pod, "/status/phase") != "Running") break;
    ++ready;
  }
  set_status(
      plane, id_of(set, "apps", "statefulsets"), set,
      Object_Maker()("replicas", count)("currentReplicas", count)("updatedReplicas", count)("readyReplicas", ready)(
          "availableReplicas", ready)("currentRevision", revision)("updateRevision", revision)("collisionCount", 0)
          .get_obj());
}

void control_daemon_set(Control_Plane& plane, const Value& set) {
  const Documents pods = living(plane.pods_of(uid_of(set))), nodes = plane.cluster.list("", "nodes");
  std::set<std::string> served;
  for (const Document_var& pod : pods) served.insert(text_at(*pod, "/spec/nodeName"));
  for (const Document_var& node : nodes) {
    if (served.count(name_of(*node)) > 0) continue;
    Object pod = pod_from(set, name_of(set) + "-", {{"controller-revision-hash", template_hash(set)}});
    pod["spec"].to_object()["nodeName"] = name_of(*node);
    plane.cluster.create("", "pods", pod);
  }
  const auto wanted = static_cast<std::int64_t>(nodes.size()), count = static_cast<std::int64_t>(pods.size());
  const std::int64_t ready = ready_among(pods);
  set_status(plane, id_of(set, "apps", "daemonsets"), set,
             Object_Maker()("desiredNumberScheduled", wanted)("currentNumberScheduled", count)("numberMisscheduled", 0)(
                 "numberReady", ready)("numberAvailable", ready)("updatedNumberScheduled", count)
                 .get_obj());
}

void control_job(Control_Plane& plane, const Value& job) {
  const std::string name = name_of(job), uid = uid_of(job);
  const Documents pods = sync_pods(plane, job, number_at(job, "/spec/parallelism", 1),
                                   {{"batch.kubernetes.io/controller-uid", uid},
                                    {"batch.kubernetes.io/job-name", name},
                                    {"controller-uid", uid},
                                    {"job-name", name}});
  const std::string began = text_at(job, "/status/startTime");
  set_status(plane, id_of(job, "batch", "jobs"), job,
             Object_Maker()("active", static_cast<std::int64_t>(pods.size()))("ready", ready_among(pods))(
                 "terminating", 0)("startTime", began.empty() ? now_text() : began)
                 .get_obj());
}

}  // namespace

void control_workloads(Control_Plane& plane) {
  const auto each = [&](const char* group, const char* resource, void (*control)(Control_Plane&, const Value&)) {
    for (const Document_var& owner : plane.cluster.list(group, resource))
      if (!is_terminating(*owner)) control(plane, *owner);
  };
  each("apps", "deployments", control_deployment);
  each("apps", "replicasets", control_replica_set);
  each("apps", "statefulsets", control_stateful_set);
  each("apps", "daemonsets", control_daemon_set);
  each("batch", "jobs", control_job);
}

}  // namespace kube_sim
