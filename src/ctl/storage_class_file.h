#pragma once

#include <ostream>
#include <string>

#include "k8s/api/k8s_def.h"

namespace ctl {

/// Where the agent has the file that names the storage classes by type.
inline constexpr char storage_class_file[] = "/opt/storage_class/config.json";

struct Storage_Classes {
  Storage_Class_Map csi;
  Storage_Class_Map local;
  Storage_Class_Map nfs;
};

/**
 * Reads such a file, as doc/capability.md tells it. What the agent would pass over is told on @a notes.
 * @throws Failure (exit_usage): it is no file that the agent would load.
 */
Storage_Classes read_storage_classes(const std::string& file, std::ostream& notes);

}  // namespace ctl
