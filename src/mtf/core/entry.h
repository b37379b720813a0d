#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "ace/OS_NS_sys_stat.h"
#include "kolt/export.h"
#include "mtf/core/callback_stat.h"

namespace MTF {

/// A moment: seconds of the epoch, which may be negative, and 0 to 999,999,999 nanoseconds after it.
struct Timestamp {
  int64_t sec = 0;
  uint32_t nsec = 0;

  bool operator==(const Timestamp&) const = default;
};

/// What a set keeps of `stat`.
struct Entry_Stat {
  uint32_t mode = 0;  ///< type and permission bits, as st_mode
  uint32_t uid = 0;
  uint32_t gid = 0;
  uint64_t rdev = 0;  ///< of a device: as st_rdev
  uint64_t dev = 0;
  uint64_t ino = 0;
  uint64_t nlink = 0;
  uint64_t size = 0;
  Timestamp atime;
  Timestamp mtime;
  Timestamp ctime;

  bool operator==(const Entry_Stat&) const = default;
};

TESSARIN_API Entry_Stat entry_stat(const ACE_stat& st);
/// With whole seconds (0 for a moment before the epoch); what a set does not keep is 0 or empty.
TESSARIN_API Callback_Stat callback_stat(const Entry_Stat& st);

/// What an entry of a medium may have: a writer refuses more, and a reader takes more for damage.
constexpr size_t entry_text_max = 1 << 20;     ///< bytes of a path or the target of a link
constexpr size_t entry_xattrs_max = 16 << 20;  ///< bytes of all extended attributes, as stored: see xattrs_size()

/// A directory or file of a set. Texts are raw bytes: no encoding is presumed, and none holds a NUL.
struct Entry {
  std::string path;      ///< relative to its volume, components joined by '/'; empty: the volume's root
  bool has_stat = true;  ///< false only in what a reader found without one
  Entry_Stat stat;
  std::string link_target;  ///< of a symbolic link
  std::string
      hard_link_target;  ///< not empty: another name of the entry with this path in the set, and no data of its own
  Xattrs xattrs;

  bool operator==(const Entry&) const = default;
};

}  // namespace MTF
