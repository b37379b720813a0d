#pragma once

#include <string>
#include <utility>
#include <vector>

#include "ace/Basic_Types.h"

namespace MTF {

/// What `stat` tells about an entry, in a form that every callback understands. Times are whole seconds of the epoch.
struct Callback_Stat {
  ACE_UINT64 gid = 0;
  ACE_UINT64 uid = 0;
  ACE_UINT64 mode = 0;  ///< type and permission bits
  ACE_UINT64 dev = 0;
  ACE_UINT64 ino = 0;
  ACE_UINT64 nlink = 0;
  ACE_UINT64 rdev = 0;
  ACE_UINT64 size = 0;
  ACE_UINT64 blksize = 0;
  ACE_UINT64 blocks = 0;  ///< of 512 bytes
  ACE_UINT64 atime = 0;
  ACE_UINT64 mtime = 0;
  ACE_UINT64 ctime = 0;
  std::string owner;
  std::string group;
};

/// Extended attributes of an entry: name (with its namespace, "user.x") and value, sorted by name.
typedef std::vector<std::pair<std::string, std::string>> Xattrs;

}  // namespace MTF
