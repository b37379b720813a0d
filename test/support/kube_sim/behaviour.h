#pragma once

#include <chrono>
#include <set>
#include <string>

namespace kube_sim {

/// How long the controllers take, and what they don't manage at all.
struct Behaviour {
  /// From the moment when a claim may be bound, a snapshot be taken, a pod be started or stopped.
  std::chrono::milliseconds bind_delay{0};
  std::chrono::milliseconds snapshot_delay{0};
  std::chrono::milliseconds start_delay{0};
  std::chrono::milliseconds stop_delay{0};

  /// Claims of these storage classes are never bound. The claim has an event that says what is waited for.
  std::set<std::string> stuck_classes;
  /// Storage classes whose driver can't clone: the claim has a warning, reason "ProvisioningFailed".
  std::set<std::string> classes_without_clones;
  /// Snapshots of these snapshot classes never become ready.
  std::set<std::string> stuck_snapshot_classes;
  /// Names of pods, claims and snapshots that stay in deletion.
  std::set<std::string> stuck_deletions;
};

}  // namespace kube_sim
