#pragma once

#include <string>

#include "kolt/export.h"
#include "kolt/posix_fd.h"

namespace MTF_BACKUP {

/**
 * An open directory whose entries are named by paths through its descriptor.
 *
 * Whoever owns the tree may exchange a directory for a link at any time. A path from the root would then lead
 * elsewhere; one through the descriptor stays in this directory. It is also short, however deep the directory lies.
 * Threads: one at a time.
 */
class TESSARIN_API Anchored_Dir {
 public:
  /**
   * Opens the directory @a below @a root, without passing through a link and without leaving @a root.
   *
   * @param below  plain names joined by '/', of any length; empty: @a root itself.
   * @retval false  errno; what was open before is closed. ENOTDIR or ELOOP: something in @a below is no directory.
   */
  [[nodiscard]] bool open(int root, const std::string& below);
  /// Takes a directory that is already open.
  void attach(Posix_Fd fd);
  void close();

  int fd() const { return fd_.get(); }
  explicit operator bool() const { return static_cast<bool>(fd_); }

  /// A path of the entry @a name, or of the directory itself where @a name is empty. Valid until the next call.
  const char* path(const std::string& name);

 private:
  Posix_Fd fd_;
  std::string path_;
  size_t prefix_ = 0;  // length of "/proc/self/fd/N/"
};

}  // namespace MTF_BACKUP
