#pragma once

namespace k8s {

/// The system's own directory on a node.
inline constexpr char root_directory[] = "/var/cache/velmora/tessarin/k8s/";

/// Where the volumes of the running job are bound, each as a direct child. It exists only while a job runs.
inline constexpr char data_directory[] = "/var/cache/velmora/tessarin/k8s/data";

}  // namespace k8s
