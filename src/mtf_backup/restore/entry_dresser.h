#pragma once

#include <string>

#include "mtf/core/entry.h"
#include "mtf/core/restore_callback.h"
#include "mtf_backup/run/anchored_dir.h"

namespace MTF_BACKUP {

/**
 * Gives a restored entry its owner, mode, extended attributes and times, in this order: a change of the owner takes
 * special bits and capabilities away. Where the owner cannot be had, set-user-id and set-group-id are left off.
 *
 * What cannot be set has one line at LM_ERROR that says what differs; the entry stays. Threads: one at a time.
 */
class Entry_Dresser {
 public:
  explicit Entry_Dresser(MTF::IRestore_Callback& callback) : callback_(callback) {}

  /**
   * @param dir, name  where it stands now; an empty name is the directory itself.
   * @param shown      its final path, for log lines.
   * @retval false  it is gone or of another type; errno. Nothing is logged.
   */
  [[nodiscard]] bool dress(Anchored_Dir& dir, const std::string& name, const MTF::Entry_Stat& stat,
                           const MTF::Xattrs& attrs, const std::string& shown);

 private:
  bool set_owner(Anchored_Dir& dir, const std::string& name, const MTF::Entry_Stat& stat, const struct stat& now,
                 const std::string& shown);

  MTF::IRestore_Callback& callback_;
};

}  // namespace MTF_BACKUP
