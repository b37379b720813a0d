#pragma once

#include <string>
#include <vector>

namespace kube_sim {

/// One kind of object and how it is served.
struct Resource {
  /// Empty for the core group.
  std::string group = {};
  std::string version = {};
  std::string plural = {};
  std::string singular = {};
  std::string kind = {};
  bool namespaced = true;
  std::vector<std::string> short_names = {};
  bool status = false;
  bool scale = false;
  /// Objects count the changes of what is wanted of them in metadata.generation.
  bool generation = false;
  /// DELETE answers with the object even when it is gone at once.
  bool returns_deleted = false;
  /// Defined by a custom resource definition.
  bool custom = false;

  /// "v1" or "apps/v1".
  std::string api_version() const;
  /// "pods" or "deployments.apps".
  std::string qualified() const;
  /// "Pod" or "Deployment.apps".
  std::string qualified_kind() const;
};

/// The kinds that a server of version 1.@a minor has, with or without the API group of the volume snapshots.
class Resource_Table {
 public:
  Resource_Table(int minor, bool snapshots);

  const std::vector<Resource>& all() const { return all_; }
  /// Null when there is none. An empty @a version stands for the first one of the group.
  const Resource* find(const std::string& group, const std::string& version, const std::string& plural) const;
  bool has_group(const std::string& group) const;
  /// Preferred one first.
  std::vector<std::string> versions(const std::string& group) const;
  /// Without the core group, in the order of discovery.
  std::vector<std::string> groups() const;

 private:
  std::vector<Resource> all_;
};

}  // namespace kube_sim
