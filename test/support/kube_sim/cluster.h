#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "json_spirit/json_spirit_value.h"
#include "support/kube_sim/accounts.h"
#include "support/kube_sim/api.h"

namespace kube_sim {

struct Cluster_Options {
  /// What /version tells, and what decides which API versions there are: batch/v1beta1 up to 1.24, and cron jobs in
  /// batch/v1 from 1.21 on.
  std::string version = "v1.36.2";
  /// The bearer token of the one user who may do everything.
  std::string token = "kube-sim-token";
  /// Bearer tokens of users who are known and may do nothing, and the names of these users.
  std::map<std::string, std::string> powerless = {};
  /// Whether the API group of the volume snapshots is installed.
  bool snapshots = true;
  /// Changes that a watch can go back; one from further back is answered with 410.
  std::size_t history = 100'000;
};

/// Which object: `{"apps", "deployments", "shop", "web"}`, `{"", "nodes", "", "worker-1"}`.
struct Object_Id {
  /// API group without a version, empty for the core group.
  std::string group;
  /// Plural name.
  std::string resource;
  /// Empty for what has no namespace.
  std::string ns;
  std::string name;

  friend auto operator<=>(const Object_Id&, const Object_Id&) = default;
};

enum class Change_Type { added, modified, deleted };

struct Change {
  Change_Type type;
  Object_Id id;
  /// As it is now, for `deleted` as it was at last; with `kind` and `apiVersion`.
  std::shared_ptr<const json_spirit::Value> object;
};

class Cluster_Impl;

/**
 * The objects of a simulated cluster and the REST interface on them, answering as a real API server does.
 *
 * There are the namespaces default, kube-system, kube-public and kube-node-lease, each with its service account
 * "default" and the config map kube-root-ca.crt, and so has each namespace that is created. Beyond that it does only
 * what the API server itself does: defaults, admission, validation of names and required members, deletion with grace
 * periods and finalizers. Phases, pods of workloads, bound claims and the purge of deleted namespaces are made by
 * controllers, on the functions below.
 *
 * Threads: all of it may be called from any thread.
 */
class Cluster : public Api {
 public:
  explicit Cluster(Cluster_Options options = {});
  ~Cluster() override;

  Answer answer(const Request& request) override;
  /// Ends at timeoutSeconds too.
  bool watch(const Request& request, Watch_Sink& sink) override;
  /// Whether the sender of @a request may do what it asks for. False with @a refusal (401 or 403) filled in.
  /// For what is served beside this class, such as exec.
  bool admits(const Request& request, Answer& refusal) const;

  /// Further tokens: their owners may do nothing, but TokenReview tells who they are.
  Accounts& accounts();

  // For controllers and for tests that set up a cluster. Nobody's rights are looked at, names and members are not
  // validated; uid, resourceVersion, creationTimestamp and the defaults of the API server are filled in. Objects are
  // whole documents with kind and apiVersion.

  /// Null when there is no such object.
  std::shared_ptr<const json_spirit::Value> get(const Object_Id& id) const;
  /// All objects in the order of their names. @a ns empty: of all namespaces. @a label_selector as in a
  /// request; one that cannot be read throws a Refusal.
  std::vector<std::shared_ptr<const json_spirit::Value>> list(const std::string& group, const std::string& resource,
                                                              const std::string& ns = {},
                                                              const std::string& label_selector = {}) const;
  /// Stores a new object; its name, or generateName, stands in its metadata, and so does its namespace. Returns it as
  /// stored; null when one of that name is there or the resource is unknown.
  std::shared_ptr<const json_spirit::Value> create(const std::string& group, const std::string& resource,
                                                   json_spirit::Object object);
  /// Changes an object by @a edit, which sees the newest state and is called under the lock: it must not call the
  /// cluster. When it returns false, nothing is stored. An object that is being deleted is gone once the last of its
  /// finalizers is taken off and its grace period is 0. False when there is no such object or the edit gave up.
  bool update(const Object_Id& id, const std::function<bool(json_spirit::Object& object)>& edit);
  /// Deletes with a grace period of 0: the object is gone, or, while it has finalizers, it has a deletionTimestamp.
  /// False when there is no such object.
  bool remove(const Object_Id& id);

  /// Calls @a callback for each change from now on, in order, under the lock: it must not call the cluster and should
  /// only queue. Returns a number for unsubscribe().
  int subscribe(std::function<void(const Change&)> callback);
  /// When this returns, the callback is not running and will not be called again.
  void unsubscribe(int subscription);

 private:
  std::unique_ptr<Cluster_Impl> impl_;
};

}  // namespace kube_sim
