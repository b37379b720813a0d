#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "mtf/core/entry.h"
#include "mtf/core/set_info.h"
#include "mtf_backup/set/commit_record.h"

namespace MTF_BACKUP {

/// A stretch of data in a file.
struct Extent {
  uint64_t at = 0;
  uint64_t size = 0;
};

/// An entry as an export writes it.
struct Export_Entry {
  MTF::Entry entry;                        ///< path relative to its source
  uint64_t size = 0;                       ///< of a regular file that is no further name: with its holes
  std::vector<Extent> extents;             ///< where a file with holes has data
  bool sparse = false;                     ///< the extents count; otherwise there are `size` bytes
  MTF::File_Damage damage = MTF::FD_NONE;  ///< of a file that could not be backed up whole:
  uint64_t valid_size = 0;                 ///< from here on its data is filling
};

/**
 * A form in which a set is written, in this order of calls: begin (source (entry data* end_entry)*)* end. Every
 * operation is false when the output failed. Threads: one at a time.
 */
class Export_Format {
 public:
  virtual ~Export_Format() = default;

  virtual bool begin(const Commit_Record& record) = 0;
  virtual bool source(const std::string& path) = 0;
  /// Whether there is a place for it in this form.
  virtual bool takes(const MTF::Entry& entry) const = 0;
  virtual bool entry(const Export_Entry& entry) = 0;
  /// @param at  its place in the file: behind all data before.
  virtual bool data(uint64_t at, std::string_view bytes) = 0;
  virtual bool end_entry() = 0;
  virtual bool end() = 0;
};

}  // namespace MTF_BACKUP
