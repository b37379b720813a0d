#pragma once

#include <mutex>
#include <set>
#include <string>
#include <utility>

#include "mtf_backup/mtf_verify.h"
#include "mtf_backup/set/damage.h"

namespace MTF_BACKUP {

/// Passes each finding on, once. Threads: any.
class Finding_Log : public Damage_Listener {
 public:
  Finding_Log(const Finding_Callback& callback, const Note_Callback& note_callback)
      : callback_(callback), note_callback_(note_callback) {}

  void damaged(const Damage& damage) override {
    std::lock_guard<std::mutex> guard(lock_);
    if (objects_.emplace(damage.key, damage.offset).second && callback_)
      callback_({damage.key, damage.offset, damage.reason, {}});
  }
  /// @param path  in the set; @a medium, @a offset: where it lies.
  void hit(const std::string& path, const std::string& medium, uint64_t offset) {
    std::lock_guard<std::mutex> guard(lock_);
    hits_.insert(path);
    if (callback_) callback_({medium, offset, {}, path});
  }
  /// @param path  of an entry that the set does not have in all; @a what: as missing_text().
  void note(const std::string& path, const std::string& what) {
    std::lock_guard<std::mutex> guard(lock_);
    if (note_callback_) note_callback_({path, what});
  }

  bool empty() const {
    std::lock_guard<std::mutex> guard(lock_);
    return objects_.empty() && hits_.empty();
  }
  bool has_hits() const {
    std::lock_guard<std::mutex> guard(lock_);
    return !hits_.empty();
  }
  bool is_hit(const std::string& path) const {
    std::lock_guard<std::mutex> guard(lock_);
    return hits_.contains(path);
  }
  /// Whether something was found in this object.
  bool knows(const std::string& key) const {
    std::lock_guard<std::mutex> guard(lock_);
    const auto found = objects_.lower_bound({key, 0});
    return found != objects_.end() && found->first == key;
  }

 private:
  const Finding_Callback& callback_;
  const Note_Callback& note_callback_;
  mutable std::mutex lock_;
  std::set<std::pair<std::string, uint64_t>> objects_;  // guarded by lock_, as all below
  std::set<std::string> hits_;                          // paths in the set
};

}  // namespace MTF_BACKUP
