#pragma once

#include <string>

#include "kolt/export.h"
#include "mtf_backup/run/anchored_dir.h"

namespace MTF_BACKUP {

/**
 * A directory inside of a target directory that nobody else may enter, in which entries are made before they get their
 * names.
 *
 * Who may write to the target directory can put something of his own under any name in it at any time, and so under the
 * name of a half-made entry too: it would get the owner and the set-user-id bit of that one. In here he cannot. He may
 * still rename this directory, which is therefore held by descriptor.
 *
 * Its name is ".tessarin-" and 16 hex digits. It is locked as long as it is in use, so that sweep() of any process of
 * this machine takes only those away that dead runs have left. Where a filesystem keeps no modes, nobody can be kept
 * out.
 *
 * Life: make(), then remove() or the end of the object; then it may be made again. Threads: as Anchored_Dir.
 */
class TESSARIN_API Private_Dir {
 public:
  /// A name in it for what mktemp() does not make. sweep() knows both by how they begin.
  static constexpr char entry[] = ".tessarin-entry";

  Private_Dir() = default;
  ~Private_Dir() { remove(); }
  Private_Dir(const Private_Dir&) = delete;
  Private_Dir& operator=(const Private_Dir&) = delete;

  /**
   * Makes it: empty, mode 0700, with nothing of what the target directory bequeaths.
   *
   * @param parent  the target directory; borrowed until remove().
   * @retval false  errno.
   */
  [[nodiscard]] bool make(int parent);
  /// Takes it away with what was left in it. errno stays.
  void remove();
  explicit operator bool() const { return static_cast<bool>(dir_); }

  /// While it is there.
  Anchored_Dir& dir() { return dir_; }
  const Anchored_Dir& dir() const { return dir_; }

  /// Removes from a directory the private ones of this user that dead runs have left. What cannot be removed stays.
  static void sweep(Anchored_Dir& parent);

 private:
  bool take(int parent, std::string name);
  void attach(int parent, std::string name, Posix_Fd fd);

  int parent_ = -1;
  std::string name_;  // in the parent
  Anchored_Dir dir_;
};

}  // namespace MTF_BACKUP
