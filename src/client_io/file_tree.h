#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "kolt/posix_fd.h"

// Steps of the "file://" driver on directories below its root. All give errno and log nothing. Links are not followed
// but in the path of the root itself.
namespace client_io {

/// Opens the root, an absolute path; with @a make its missing directories are made, durably. Empty with errno on
/// failure.
Posix_Fd open_root(const std::string& root, bool make);

/// Keeps empty directories while a file is made in one: held with LOCK_SH by who makes it, with LOCK_EX by
/// prune_directories(). Locks a root as open_root() gave it, which nobody else has. Where locks do not work it holds
/// nobody up.
class Tree_Lock {
 public:
  Tree_Lock(int root, int how);
  /// Leaves errno as it was.
  ~Tree_Lock();
  Tree_Lock(const Tree_Lock&) = delete;
  Tree_Lock& operator=(const Tree_Lock&) = delete;

 private:
  const int root_;
};

/// Opens the directory @a dir, a key or empty, below @a root. Empty with errno on failure.
Posix_Fd open_directory(int root, std::string_view dir);

/// As open_directory(), and makes what is missing. @a made is then true: sync_directories() makes that durable.
Posix_Fd make_directory(int root, std::string_view dir, bool& made);

/// Syncs the root and all directories on the way to @a dir. False with errno on failure.
bool sync_directories(int root, std::string_view dir);

/// Removes the directories of @a dir, a key, that hold nothing, from the last component up to the first that holds
/// something. What cannot be removed stays. Waits until nobody holds a Tree_Lock of this root.
void prune_directories(int root, std::string_view dir);

/// One thing in a directory: a regular file or a directory, whose name then ends in '/'.
struct Tree_Name {
  std::string name;
  uint64_t size = 0;  ///< of a file

  bool is_directory() const { return name.back() == '/'; }
};

/// All files and directories in the directory @a dir, in byte order, so that full keys come in byte order. A directory
/// that vanished has none.
bool read_names(int root, std::string_view dir, std::vector<Tree_Name>& names);

/// The part of a key before its last '/', empty if it has none, and the part behind.
std::string_view directory_part(std::string_view key);
std::string_view last_part(std::string_view key);

}  // namespace client_io
