#pragma once

#include <sys/stat.h>

#include <string>

#include "mtf/core/entry.h"

namespace MTF_BACKUP {

/// The attribute that holds an entry's own access list.
inline constexpr char access_list[] = "system.posix_acl_access";

bool is_access_list(const std::string& attribute);
bool has_attribute(const MTF::Xattrs& attrs, const std::string& name);

/**
 * Collects in what a restored entry is not as it was backed up, as a text for people.
 *
 * A wrong owner, mode or time is a difference; a wrong size or a missing attribute is a loss as well, since it is
 * content that is not there.
 */
class Entry_Differences {
 public:
  /// @param error  here and below: why it could not be set; 0: not known.
  void owner(const MTF::Entry_Stat& stat, const struct stat& now, int error);
  void mode(const MTF::Entry_Stat& stat, const struct stat& now, int error);
  /// The access time is left out: others may be reading.
  void times_and_size(const MTF::Entry_Stat& stat, const struct stat& now, int error);
  /// Attributes that the entry had, and access lists that it had not.
  void attributes(const char* path, const MTF::Xattrs& attrs, int error);

  bool empty() const { return text_.empty(); }
  bool is_loss() const { return is_loss_; }
  const std::string& text() const { return text_; }

 private:
  void add(const std::string& what, int error);

  std::string text_;
  bool is_loss_ = false;
};

}  // namespace MTF_BACKUP
