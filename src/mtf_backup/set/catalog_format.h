#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "mtf_backup/set/catalog_entry.h"

// The stored form of catalogs, as doc/set-format.md tells.
namespace MTF_BACKUP {

constexpr char catalog_name[] = "catalog";
constexpr char catalog_magic[] = "TESSCAT1";
constexpr size_t catalog_header_size = 16;  // magic, check
constexpr size_t block_header_size = 24;  // stored size, plain size, entries, 0, check over these and the stored bytes
constexpr size_t catalog_trailer_size = 40;  // offset and size of the sparse index, blocks, entries, check
constexpr size_t check_size = sizeof(uint64_t);

/// A block is closed when it has reached this many plain bytes.
constexpr size_t block_size = 256 * 1024;
/// No entry of a catalog is longer, so no block is longer than block_size + max_entry_size.
constexpr size_t max_entry_size = 1024 * 1024;
/// No index of blocks is longer: enough for some billions of entries with paths of ordinary length.
constexpr uint64_t max_index_size = uint64_t(256) << 20;

/// Seeds of the checks: of header and trailer the identity itself, of block n this one.
inline uint64_t block_seed(uint64_t identity, uint64_t number) {
  return identity + 1 + number;
}

/// Appends an entry to a block. @a previous_path is that of the entry before it in the block, empty for the first.
void put_entry(std::string& block, const Catalog_Entry& entry, std::string_view previous_path);

/// Reads the entry at the front of @a block and takes it off. @a entry holds the entry before it when its path is used
/// as previous one, so a reader goes on with the same object and clears its path at the start of a block.
/// @return what is wrong, or null.
const char* get_entry(std::string_view& block, Catalog_Entry& entry);

}  // namespace MTF_BACKUP
