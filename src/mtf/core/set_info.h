#pragma once

#include <cstdint>
#include <string>

namespace MTF {

/// What a medium tells about itself and its set. Texts are UTF-8 and are cut where they do not fit in their block
/// (about 450 characters for all texts of a set together): they are there to be shown.
struct Set_Header {
  uint32_t family_id = 0;  ///< the same on all media of the set
  std::string media_name;
  std::string software_name;  ///< not empty
  std::string set_name;
  std::string user;
  int64_t time = 0;          ///< when the set was begun, seconds of the epoch
  bool incremental = false;  ///< holds only what changed since another set

  bool operator==(const Set_Header&) const = default;
};

/// One source directory.
struct Volume {
  std::string source_path;  ///< raw bytes
  std::string machine;      ///< shown only; cut like the texts of Set_Header
  int64_t time = 0;         ///< when it was begun, seconds of the epoch

  bool operator==(const Volume&) const = default;
};

/// Why the data of a file in a set is not what the file held.
enum File_Damage {
  FD_NONE = 0,
  FD_LENGTH_CHANGED = 1,  ///< the file became shorter while it was read
  FD_UNREADABLE = 2       ///< reading failed
};

}  // namespace MTF
