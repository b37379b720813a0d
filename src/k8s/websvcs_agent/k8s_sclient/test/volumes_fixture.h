#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "json_text.h"
#include "k8s/api/node_paths.h"
#include "kolt/mount_table.h"
#include "support/temp_dir.h"

/// Volumes on a node, as jobs find them.
class Node_Volumes {
 public:
  /// Where the volume's data lies.
  std::string source(const std::string& name) const { return dir / name; }
  /// Where a job binds it.
  static std::string bound(const std::string& name) { return k8s::data_directory + ("/" + name); }
  /// An element of a job's `paths`.
  std::string path(const std::string& name) const {
    return R"({"data_path":")" + source(name) + R"(","mount_path":")" + bound(name) + "\"}";
  }

  /// Whether a job has left nothing behind on the node.
  static bool is_clean() { return mounts().empty() && !std::filesystem::exists(k8s::data_directory); }
  static std::vector<std::string> mounts() {
    std::vector<std::string> mounts;
    if (!mounts_below(k8s::root_directory, mounts)) mounts.push_back("unknown");
    return mounts;
  }

  test_support::Temp_Dir dir;
};

/// Whether a file can be made in the directory.
inline bool can_write(const std::string& directory) {
  const std::string file = directory + "/written";
  const int fd = open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  if (fd < 0) return false;
  close(fd);
  unlink(file.c_str());
  return true;
}
