#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "json_spirit/assign.h"
#include "json_spirit/extract.h"
#include "support/kube_sim/behaviour.h"
#include "support/kube_sim/cluster.h"

namespace kube_sim {

typedef std::shared_ptr<const json_spirit::Value> Document_var;
typedef std::vector<Document_var> Documents;

/// The string at @a path, empty when there is none.
std::string text_at(const json_spirit::Value& document, const char* path);
inline std::string name_of(const json_spirit::Value& document) {
  return text_at(document, "/metadata/name");
}
inline std::string namespace_of(const json_spirit::Value& document) {
  return text_at(document, "/metadata/namespace");
}
inline std::string uid_of(const json_spirit::Value& document) {
  return text_at(document, "/metadata/uid");
}
bool is_terminating(const json_spirit::Value& document);

/// The strings of an array; empty when there is none.
std::set<std::string> strings_at(const json_spirit::Value& document, const char* path);
/// Adds @a finalizer to the metadata, or takes it off. False when nothing changes.
bool add_finalizer(json_spirit::Object& object, const std::string& finalizer);
bool drop_finalizer(json_spirit::Object& object, const std::string& finalizer);

/// The time as API servers write it: "2026-11-20T22:07:31Z".
std::string now_text();

/// What the controllers share in one thread: the cluster, the script of their behaviour, delays and events.
class Control_Plane {
 public:
  typedef std::chrono::steady_clock::time_point Time;

  explicit Control_Plane(Cluster& cluster) : cluster(cluster) {}

  Cluster& cluster;
  Behaviour behaviour;

  /// Begins a look at the whole cluster.
  void begin();
  /// When to look again though nothing has changed; nothing when no delay is running.
  std::optional<Time> next() const { return next_; }

  /// Whether @a delay has passed since this was first asked about @a step of the object.
  bool due(const json_spirit::Value& object, const char* step, std::chrono::milliseconds delay);
  /// Writes an event about @a object, once for each text.
  void event(const json_spirit::Value& object, const std::string& type, const std::string& reason,
             const std::string& message, const std::string& component);

  /// The names, as "namespace/claim", of all claims that pods use which have not ended.
  const std::set<std::string>& claims_in_use() const { return claims_in_use_; }
  const Documents& pods() const { return pods_; }
  /// The pods whose controller has this uid.
  const Documents& pods_of(const std::string& uid) const;

 private:
  std::map<std::string, Time> began_;
  std::set<std::string> told_;
  std::optional<Time> next_;
  Documents pods_;
  std::map<std::string, Documents> pods_of_;
  std::set<std::string> claims_in_use_;
};

/// The names of the claims among the volumes of a pod.
std::vector<std::string> claims_of(const json_spirit::Value& pod);

// The controllers: each brings the cluster one step nearer to what its objects ask for.
void control_claims(Control_Plane& plane);
void control_snapshots(Control_Plane& plane);
void control_pods(Control_Plane& plane);
void control_workloads(Control_Plane& plane);
void collect_garbage(Control_Plane& plane);

}  // namespace kube_sim
