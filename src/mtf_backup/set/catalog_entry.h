#pragma once

#include <cstdint>
#include <string>

#include "kolt/export.h"
#include "mtf/core/entry.h"

namespace MTF_BACKUP {

/// What happened to an entry while it was backed up; bits of Catalog_Entry::flags.
enum Catalog_Flag : uint32_t {
  CAT_CORRUPT = 1,  ///< the medium holds a substitute for some of the data
  CAT_CHANGED = 2,  ///< the file changed while it was read
  CAT_SKIPPED = 4,  ///< not on the medium at all
  CAT_BARE = 8,     ///< without extended attributes, which could not be read
};

/// One entry of a set, with all that a listing, an incremental and the restore of a single file need. Texts are raw
/// bytes.
struct Catalog_Entry {
  uint32_t source = 0;   ///< number of the source in the commit record
  std::string path;      ///< relative to the source, no '/' at either end; empty for the source's root
  MTF::Entry_Stat stat;  ///< stat.mode tells the kind of entry, also of a skipped one; 0: not even that could be read
  uint32_t flags = 0;    ///< Catalog_Flag
  std::string reason;    ///< why it is flagged; else empty
  std::string link_target;       ///< of a symbolic link
  std::string hard_link_target;  ///< path in the set of the entry that this one is another name of
  uint64_t xattr_hash = 0;       ///< XXH3-64 over the extended attributes, 0 without any
  uint32_t set = 0;              ///< whose medium: 0 this set's, n that of the n-th in Commit_Record::chain, from 1
  uint32_t channel = 0;          ///< number of the medium in that set
  uint64_t offset = 0;           ///< plain offset of the entry's block on the medium
  uint64_t data_size = 0;        ///< bytes of file data on the medium, without holes
  uint64_t data_hash = 0;        ///< XXH3-64 of those bytes; with holes, of each extent's place and bytes

  bool is_directory() const { return (stat.mode & 0170000u) == 0040000u; }
  bool operator==(const Catalog_Entry&) const = default;
};

/// What of an entry the set does not have, and why, as a text for people, printable: "some of its data is not in the
/// set
/// (...)". Empty where nothing is missing.
TESSARIN_API std::string missing_text(const Catalog_Entry& entry);

/**
 * The order of walks, media and catalogs: by source; in a directory its own entry, then its non-directories by name,
 * then its subdirectories by name, each with all below it. Names are compared as bytes.
 *
 * @return less than, equal to or greater than 0, as the first entry comes before, at or behind the second.
 */
TESSARIN_API int catalog_order(uint32_t source_a, const std::string& path_a, bool directory_a, uint32_t source_b,
                               const std::string& path_b, bool directory_b);
TESSARIN_API int catalog_order(const Catalog_Entry& a, const Catalog_Entry& b);

}  // namespace MTF_BACKUP
