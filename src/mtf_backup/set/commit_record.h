#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "kolt/compression.h"
#include "kolt/export.h"
#include "mtf/core/cat_summary.h"
#include "mtf_backup/set/medium.h"

namespace MTF_BACKUP {

/// An older set in which blocks of this one's entries lie.
struct Chain_Link {
  std::string dir;  ///< key of its directory, as Set_Id::dir()
  std::string set_uuid;

  bool operator==(const Chain_Link&) const = default;
};

/**
 * What makes a set: the last object written, naming all others. Text fields hold raw bytes, which need not be UTF-8.
 */
struct TESSARIN_API Commit_Record {
  static constexpr unsigned current_format = 1;

  std::string set_uuid;
  std::string pool_uuid;
  std::string host_uuid;
  std::string minor_resource_id;
  std::string name;
  uint32_t seq = 0;
  uint32_t incarnation = 0;  ///< from 1
  std::string base;          ///< directory of the set before, which this one builds on; empty: a full set
  int64_t begin_time = 0;    ///< seconds since 1970, UTC
  int64_t end_time = 0;
  Compression_Method compression = COMPR_NONE;
  unsigned channels = 0;             ///< number of media
  std::vector<std::string> sources;  ///< paths, by source number
  std::vector<Chain_Link> chain;     ///< those that an entry refers to by Catalog_Entry::set, which counts from 1
  MTF::Cat_Summary summary;
  std::vector<Stored_Object>
      objects;  ///< all objects of the set but this record, in the order in which they were written

  /// The object @a name of the set, null if it is not named.
  const Stored_Object* find(const std::string& name) const;

  /// The stored form: one JSON document with a checksum over all else in it.
  std::string to_text() const;

  /**
   * Reads the stored form. Strict: the checksum, the format version, every member and its range.
   * @param where  names the record in the log.
   * @retval false  errno is EBADMSG (damaged) or ENOTSUP (a newer format), after one line at LM_ERROR; the record is
   *   unchanged.
   */
  [[nodiscard]] bool from_text(const std::string& text, const std::string& where);
};

}  // namespace MTF_BACKUP
