#pragma once

#include <cstdint>
#include <string>

namespace MTF_BACKUP {

/// What is wrong with the bytes of an object, for whoever has to tell it.
struct Damage {
  std::string key;
  uint64_t offset = 0;
  std::string reason;  ///< empty: nothing is wrong

  /// Keeps the finding and sets errno to EBADMSG. @return false, for the caller to pass on.
  bool set(const std::string& where, uint64_t at, const std::string& why);
  /// Logs "Object "<key>" is damaged at offset <offset>: <reason>." at LM_ERROR and sets errno to EBADMSG. @return
  /// false.
  bool tell() const;
};

/// Tells a damage at once. @return false, for the caller to pass on.
inline bool tell_damage(const std::string& key, uint64_t offset, const std::string& reason) {
  return Damage{key, offset, reason}.tell();
}

}  // namespace MTF_BACKUP
