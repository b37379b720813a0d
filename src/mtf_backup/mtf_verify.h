#pragma once

#include <cstdint>
#include <functional>
#include <set>
#include <string>

#include "kolt/export.h"
#include "mtf/core/error_code.h"
#include "mtf/core/event_handler.h"
#include "mtf_backup/channel_factory.h"

namespace MTF_BACKUP {

/// Something in a pool that is not what was written: an object, or a file that this hits.
struct Finding {
  std::string object;   ///< its key, counted from the resource; of a file: the medium in which it lies
  uint64_t offset = 0;  ///< in the object as it is stored; of a file: of its block in the plain medium
  std::string reason;   ///< of an object: what is wrong with it; empty for a file
  std::string path;     ///< of a file, in the set, raw bytes; empty for an object
};

/// An entry that is as it was written, but which the backup could not read in all: no damage.
struct Verify_Note {
  std::string path;  ///< in the set, raw bytes
  std::string what;  ///< as missing_text()
};

/// Called for each finding, from any thread, one call at a time.
typedef std::function<void(const Finding&)> Finding_Callback;
typedef std::function<void(const Verify_Note&)> Note_Callback;  ///< likewise

struct Verify_Settings {
  Channel_Factory_var channel_factory;
  bool with_data = false;
  std::set<std::string> verified;  ///< directories of sets that were found whole: chains need not read them
  Finding_Callback on_finding;
  Note_Callback on_note;
};

}  // namespace MTF_BACKUP

/**
 * Reads a set and compares it with all that was written down about it: the commit record, existence and sizes of all
 * objects, the whole catalog, all records of the indexes, and that the sets of its chain are there. With data moreover
 * every byte of every object, every frame, and every entry with its own hash, also those that lie in older sets.
 *
 * What is damaged does not hide what is not: all of it is named, once, and is not logged. Nothing is changed.
 *
 * Memory: that of the frames (24 MiB), up to 16 MiB per medium, and what is damaged. Threads: one at a time; the run
 * has threads of its own, the event handler is called by the caller's.
 */
class TESSARIN_API MTF_Verify {
 public:
  explicit MTF_Verify(MTF::Event_Handler_var event_handler) : event_handler_(event_handler) {}

  void channel_factory(MTF_BACKUP::Channel_Factory_var value) { settings_.channel_factory = value; }
  void with_data(bool value) { settings_.with_data = value; }
  /// Sets of the same resource whose data was just found whole: entries in them are not read again.
  void verified(const std::set<std::string>& dirs) { settings_.verified = dirs; }
  void on_finding(MTF_BACKUP::Finding_Callback value) { settings_.on_finding = value; }
  /// Told of a set that is whole as well.
  void on_note(MTF_BACKUP::Note_Callback value) { settings_.on_note = value; }

  /**
   * @param dir  of the set, as Set_Id::dir().
   * @return E_OK: all is as it was written. E_CORRUPT: there were findings. E_NOT_FOUND: there is no such set.
   *   E_OPEN_MEDIA: the storage failed, or the set is of a newer format; logged. E_FAILED: cancelled, or out of memory
   *   or threads.
   */
  [[nodiscard]] MTF::Error_Code verify(const std::string& dir);

 private:
  MTF::Event_Handler_var event_handler_;
  MTF_BACKUP::Verify_Settings settings_;
};
