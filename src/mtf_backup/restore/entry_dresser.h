#pragma once

#include <sys/stat.h>

#include <string>

#include "mtf/core/entry.h"
#include "mtf/core/restore_callback.h"
#include "mtf_backup/restore/restore_tally.h"
#include "mtf_backup/run/anchored_dir.h"

namespace MTF_BACKUP {

/**
 * Gives a restored entry its owner, mode, extended attributes and times, in this order: a change of the owner takes
 * special bits and capabilities away. Where the owner cannot be had, set-user-id and set-group-id are left off. Access
 * lists that the entry has inherited in its new place and did not have before are taken away. Where its own access list
 * cannot be had, its group gets no rights.
 *
 * Then the entry is looked at again, with no trust in what the calls have said, and what is not as it was backed up is
 * told to the tally; the entry stays. Threads: one at a time.
 */
class Entry_Dresser {
 public:
  /// Both are borrowed.
  Entry_Dresser(MTF::IRestore_Callback& callback, Restore_Tally& tally) : callback_(callback), tally_(tally) {}

  /**
   * @param dir, name  where it stands now; an empty name is the directory itself.
   * @param shown      its final path, for log lines.
   * @retval false  it is gone or of another type; errno. Nothing is logged.
   */
  [[nodiscard]] bool dress(Anchored_Dir& dir, const std::string& name, const MTF::Entry_Stat& stat,
                           const MTF::Xattrs& attrs, const std::string& shown);

 private:
  /// What the calls have failed with; 0: they have not.
  struct Errors {
    int owner = 0;
    int mode = 0;
    int attrs = 0;
    int times = 0;
  };

  void set_owner(const char* path, const MTF::Entry_Stat& stat, const struct stat& now, Errors& errors);
  bool drop_access_lists(const char* path, const MTF::Xattrs& attrs, Errors& errors);
  void set_rights(const char* path, const MTF::Entry_Stat& stat, const struct stat& now, MTF::Xattrs attrs,
                  Errors& errors);
  void set_attributes(const char* path, unsigned mode, const MTF::Xattrs& attrs, Errors& errors);

  MTF::IRestore_Callback& callback_;
  Restore_Tally& tally_;
};

}  // namespace MTF_BACKUP
