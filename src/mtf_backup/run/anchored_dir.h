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
 * Threads: one at a time; enter(), the paths after it, and the end of the object by one and the same thread.
 */
class TESSARIN_API Anchored_Dir {
 public:
  Anchored_Dir() = default;
  ~Anchored_Dir() { close(); }
  Anchored_Dir(const Anchored_Dir&) = delete;
  /// What comes out has not been entered.
  Anchored_Dir& operator=(Anchored_Dir&& other);

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

  /**
   * Makes path() give short relative paths, which the system looks up in half the time. The calling thread gets a
   * working directory of its own, which is this directory until the thread enters another one. So it is for threads
   * that work for a run, never for the caller's. Where the system does not allow it nothing changes.
   */
  void enter();

  int fd() const { return fd_.get(); }
  explicit operator bool() const { return static_cast<bool>(fd_); }

  /// A path of the entry @a name, or of the directory itself where @a name is empty. Valid until the next call, and
  /// until the thread enters another directory.
  const char* path(const std::string& name);

 private:
  Posix_Fd fd_;
  std::string path_;
};

}  // namespace MTF_BACKUP
