#include "support/kube_sim/resource_table.h"

#include <algorithm>

namespace kube_sim {
namespace {

Resource core(const char* plural, const char* singular, const char* kind, std::vector<std::string> short_names) {
  return {.version = "v1", .plural = plural, .singular = singular, .kind = kind, .short_names = std::move(short_names)};
}

std::vector<Resource> core_resources() {
  auto namespaces = core("namespaces", "namespace", "Namespace", {"ns"});
  namespaces.namespaced = false;
  namespaces.status = namespaces.returns_deleted = true;
  auto nodes = core("nodes", "node", "Node", {"no"});
  nodes.namespaced = false;
  nodes.status = true;
  auto volumes = core("persistentvolumes", "persistentvolume", "PersistentVolume", {"pv"});
  volumes.namespaced = false;
  volumes.status = volumes.returns_deleted = true;
  auto claims = core("persistentvolumeclaims", "persistentvolumeclaim", "PersistentVolumeClaim", {"pvc"});
  claims.status = claims.returns_deleted = true;
  auto pods = core("pods", "pod", "Pod", {"po"});
  pods.status = pods.generation = pods.returns_deleted = true;
  auto accounts = core("serviceaccounts", "serviceaccount", "ServiceAccount", {"sa"});
  accounts.returns_deleted = true;
  return {core("configmaps", "configmap", "ConfigMap", {"cm"}),
          core("events", "event", "Event", {"ev"}),
          namespaces,
          nodes,
          claims,
          volumes,
          pods,
          core("secrets", "secret", "Secret", {}),
          accounts};
}

Resource workload(const char* group, const char* version, const char* plural, const char* singular, const char* kind,
                  std::vector<std::string> short_names, bool scale) {
  return {.group = group,
          .version = version,
          .plural = plural,
          .singular = singular,
          .kind = kind,
          .short_names = std::move(short_names),
          .status = true,
          .scale = scale,
          .generation = true};
}

Resource snapshot(const char* plural, const char* singular, const char* kind, std::vector<std::string> short_names,
                  bool namespaced, bool status) {
  return {.group = "snapshot.storage.k8s.io",
          .version = "v1",
          .plural = plural,
          .singular = singular,
          .kind = kind,
          .namespaced = namespaced,
          .short_names = std::move(short_names),
          .status = status,
          .generation = true,
          .custom = true};
}

}  // namespace

std::string Resource::api_version() const {
  return group.empty() ? version : group + "/" + version;
}

std::string Resource::qualified() const {
  return group.empty() ? plural : plural + "." + group;
}

std::string Resource::qualified_kind() const {
  return group.empty() ? kind : kind + "." + group;
}

Resource_Table::Resource_Table(int minor, bool snapshots) : all_(core_resources()) {
  all_.push_back(workload("apps", "v1", "daemonsets", "daemonset", "DaemonSet", {"ds"}, false));
  all_.push_back(workload("apps", "v1", "deployments", "deployment", "Deployment", {"deploy"}, true));
  all_.push_back(workload("apps", "v1", "replicasets", "replicaset", "ReplicaSet", {"rs"}, true));
  all_.push_back(workload("apps", "v1", "statefulsets", "statefulset", "StatefulSet", {"sts"}, true));
  if (minor >= 21) all_.push_back(workload("batch", "v1", "cronjobs", "cronjob", "CronJob", {"cj"}, false));
  all_.push_back(workload("batch", "v1", "jobs", "job", "Job", {}, false));
  if (minor <= 24) all_.push_back(workload("batch", "v1beta1", "cronjobs", "cronjob", "CronJob", {"cj"}, false));
  all_.push_back({.group = "storage.k8s.io",
                  .version = "v1",
                  .plural = "storageclasses",
                  .singular = "storageclass",
                  .kind = "StorageClass",
                  .namespaced = false,
                  .short_names = {"sc"},
                  .returns_deleted = true});
  if (!snapshots) return;
  all_.push_back(snapshot("volumesnapshotclasses", "volumesnapshotclass", "VolumeSnapshotClass",
                          {"vsclass", "vsclasses"}, false, false));
  all_.push_back(snapshot("volumesnapshotcontents", "volumesnapshotcontent", "VolumeSnapshotContent", {"vsc", "vscs"},
                          false, true));
  all_.push_back(snapshot("volumesnapshots", "volumesnapshot", "VolumeSnapshot", {"vs"}, true, true));
}

const Resource* Resource_Table::find(const std::string& group, const std::string& version,
                                     const std::string& plural) const {
  const auto found = std::find_if(all_.begin(), all_.end(), [&](const Resource& resource) {
    return resource.group == group && resource.plural == plural && (version.empty() || resource.version == version);
  });
  return found == all_.end() ? nullptr : &*found;
}

bool Resource_Table::has_group(const std::string& group) const {
  return !versions(group).empty();
}

std::vector<std::string> Resource_Table::versions(const std::string& group) const {
  std::vector<std::string> versions;
  for (const auto& resource : all_)
    if (resource.group == group && std::find(versions.begin(), versions.end(), resource.version) == versions.end())
      versions.push_back(resource.version);
  return versions;
}

std::vector<std::string> Resource_Table::groups() const {
  std::vector<std::string> groups;
  for (const auto& resource : all_)
    if (!resource.group.empty() && std::find(groups.begin(), groups.end(), resource.group) == groups.end())
      groups.push_back(resource.group);
  return groups;
}

}  // namespace kube_sim
