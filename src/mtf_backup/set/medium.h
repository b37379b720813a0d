#pragma once

#include <cstdint>
#include <string>

#include "kolt/compression.h"
#include "kolt/export.h"

namespace MTF_BACKUP {

/// One stored object of a set, as the commit record names it.
struct Stored_Object {
  std::string name;   ///< relative to the set's directory, e.g. "channel-000.mtf.zst"
  uint64_t size = 0;  ///< stored bytes
  std::string hash;   ///< XXH3-128 of the stored bytes, 32 lowercase hexadecimal digits
};

/// Which medium of which set: what a writer and a reader of it must agree on.
struct Medium_Id {
  std::string set_dir;   ///< key of the set's directory, as Set_Id::dir()
  std::string set_uuid;  ///< of the commit record
  unsigned channel = 0;  ///< from 0
  Compression_Method compression = COMPR_NONE;
};

/// The form in which the frames of a medium are stored: COMPR_NONE, COMPR_LZOP or COMPR_ZSTD.
TESSARIN_API Compression_Method stored_form(Compression_Method compression);
/// "channel-000.mtf", "channel-000.mtf.lzo" or "channel-000.mtf.zst".
TESSARIN_API std::string medium_name(const Medium_Id& id);
/// "channel-000.index".
TESSARIN_API std::string index_name(const Medium_Id& id);
/// A number that no other object of the pool has but by accident; checksums are seeded with it, so that an object which
/// got into the place of another is told from it. @a name is relative to the set's directory.
TESSARIN_API uint64_t object_identity(const std::string& set_uuid, const std::string& set_dir, const std::string& name);

}  // namespace MTF_BACKUP
