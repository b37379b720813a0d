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
  /// Logs "Object "<key>" is damaged at offset <offset>: <reason>." at LM_ERROR, or tells the thread's listener in
  /// place of the log, and sets errno to EBADMSG. @return false.
  bool tell() const;
};

/// Hears of the damage that is found on some threads, which is then not logged. Threads: any, several at once.
class Damage_Listener {
 public:
  virtual ~Damage_Listener() = default;
  virtual void damaged(const Damage& damage) = 0;

  /// Of the calling thread; null: none.
  static Damage_Listener* current();

  /// Makes a listener that of the calling thread while the object lives; null is none.
  class Scope {
   public:
    explicit Scope(Damage_Listener* listener);
    ~Scope();
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

   private:
    Damage_Listener* const previous_;
  };
};

/// Tells a damage at once. @return false, for the caller to pass on.
inline bool tell_damage(const std::string& key, uint64_t offset, const std::string& reason) {
  return Damage{key, offset, reason}.tell();
}

/// Tells that an object which a set needs is not there, as Damage::tell(), but the log line is "Object "<key>" is
/// missing." and errno ENOENT. @return false.
bool tell_missing(const std::string& key);

}  // namespace MTF_BACKUP
