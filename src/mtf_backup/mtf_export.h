#pragma once

#include <cstdint>
#include <string>

#include "kolt/export.h"
#include "mtf/core/error_code.h"
#include "mtf/core/event_handler.h"
#include "mtf_backup/channel_factory.h"

namespace MTF_BACKUP {

enum Export_Form {
  EXPORT_TAR,  ///< a pax archive
  EXPORT_MTF   ///< one plain MTF medium
};

struct Export_Settings {
  Channel_Factory_var channel_factory;
  Export_Form form = EXPORT_TAR;
  int fd = -1;
};

}  // namespace MTF_BACKUP

/**
 * Writes a whole set, with what of it lies in older sets, as one stream that other programs read.
 *
 * Left out, with a line at LM_WARNING, is what the set does not hold (skipped entries), what the form has no place for
 * (sockets in tar), and what would lead whoever unpacks the stream elsewhere (names with ".."). Damaged entries are
 * left out too, with the line at LM_ERROR of whoever found the damage; where it is found when a part of a file is
 * written already the export ends. Further names of what is left out go with it. Written as the set holds it, with a
 * line at LM_WARNING, is a file that became shorter while it was backed up, and an entry whose attributes the set
 * lacks.
 *
 * Ownership: borrows the descriptor. Threads: one at a time; the event handler is called by the caller's.
 */
class TESSARIN_API MTF_Export {
 public:
  explicit MTF_Export(MTF::Event_Handler_var event_handler) : event_handler_(event_handler) {}

  void channel_factory(MTF_BACKUP::Channel_Factory_var value) { settings_.channel_factory = value; }
  void form(MTF_BACKUP::Export_Form value) { settings_.form = value; }
  /// Where the stream goes: a file or a pipe, open for writing.
  void output(int fd) { settings_.fd = fd; }

  /**
   * @param dir  of the set, as Set_Id::dir().
   * @return E_OK. E_END_WITH_SKIPPED_FILES: all is written but what was left out. E_CORRUPT: likewise,
   * some of it for damage; or the export has ended early, see complete(). E_NOT_FOUND: there is no such set.
   * E_OPEN_MEDIA: the storage failed. E_WRITE_TO_STORAGE: the output failed. E_FAILED: cancelled, or out of memory or
   * threads.
   */
  [[nodiscard]] MTF::Error_Code run(const std::string& dir);

  /// Whether the stream of the last run has its end, so that it can be read.
  bool complete() const { return complete_; }
  uint64_t entries() const { return entries_; }    ///< written
  uint64_t left_out() const { return left_out_; }  ///< not written
  uint64_t size() const { return size_; }          ///< bytes of the stream

 private:
  MTF::Event_Handler_var event_handler_;
  MTF_BACKUP::Export_Settings settings_;
  bool complete_ = false;
  uint64_t entries_ = 0;
  uint64_t left_out_ = 0;
  uint64_t size_ = 0;
};
