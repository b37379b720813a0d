#pragma once

#include <string>
#include <vector>

namespace kube_sim {

/// What the path of a request names.
struct Target {
  /// The segments of the path; slashes at the end don't count. Of "//x" the first one is empty.
  std::vector<std::string> parts;
  /// The path leads below /api/v1 or /apis/<group>/<version>; the members below hold what it names there.
  bool resource_path = false;
  std::string group, version, resource, ns, name, sub;
  /// The path holds "namespaces/<ns>/".
  bool in_namespace = false;
  /// There is something behind the sub-resource, or an empty segment where none may be.
  bool too_long = false;
};

Target parse_target(const std::string& path);

}  // namespace kube_sim
