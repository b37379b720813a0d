#pragma once

#include <map>
#include <memory>
#include <string>

#include "kolt/export.h"
#include "kolt/posix_fd.h"
#include "mtf/core/path_converter.h"
#include "mtf/core/restore_callback.h"
#include "mtf_backup/run/anchored_dir.h"

namespace MTF_BACKUP {

/// A directory that a path rule names. It may be reached through links, since who asked for the restore chose it; below
/// it nothing is.
struct Target_Root {
  std::string path;
  Posix_Fd fd;    ///< not open before the first entry below it
  Posix_Fd disk;  ///< the same, to wait for the disk: told is what failed since it was opened; may not be readable
};

/// Where an entry is restored to.
struct Target {
  const Target_Root* root = nullptr;
  std::string below;  ///< relative to the root; empty: the root itself

  /// The directory in which it lies, relative to the root.
  std::string directory() const;
  std::string name() const;
  /// For log lines.
  std::string shown() const;
};

/**
 * Knows where entries go and makes the directories for them.
 *
 * Threads: one at a time. The roots stay as long as the object, and one that is open may be used by any thread.
 */
class TESSARIN_API Target_Tree {
 public:
  /// @param converter  may be empty: then everything goes below @a location with its whole path in the set.
  Target_Tree(MTF::IPath_Converter_var converter, const std::string& location, MTF::IRestore_Callback_var callback);
  ~Target_Tree();

  /// Where the entry with this path in the set goes. False: nowhere, no rule reaches it or it would lie outside the
  /// location.
  [[nodiscard]] bool locate(const std::string& path, bool directory, Target& target);

  /**
   * Makes the directory and those above it that are missing, and removes what dead restores have left in it.
   *
   * @param mode  what the directory will get in the end: until then nobody else enters one that is not open to all.
   * @retval false  errno; ENOTDIR or ELOOP: a file or a link is in the way.
   */
  [[nodiscard]] bool make_directory(const Target& target, unsigned mode);

  /**
   * Waits until the filesystems of the roots have written everything to disk, which nothing can break off. Of others
   * that are mounted below nothing is known.
   * @retval false  one has lost something; it has its line at LM_ERROR.
   */
  [[nodiscard]] bool sync() const;

 private:
  Target_Root* root(const std::string& path);
  bool open_root(Target_Root& root);

  MTF::IPath_Converter_var converter_;
  const std::string location_;
  MTF::IRestore_Callback_var callback_;
  std::map<std::string, std::unique_ptr<Target_Root>> roots_;  // by path
  Target_Root* last_root_ = nullptr;
};

}  // namespace MTF_BACKUP
