#pragma once

#include <fts.h>

#include <functional>
#include <string>

#include "mtf_backup/set/catalog_entry.h"

// What is recorded of golden sets: text that is compared byte for byte.

namespace mover_test {

/// Shows all that lies below @a root, and it, a directory after what it holds. The working directory is the one of the
/// entry, so that `fts_accpath` serves where `fts_path` is longer than a path may be.
void for_each_entry(const std::string& root, const std::function<void(const FTSENT&)>& visit);

/// One line per entry of a tree: type and mode, size, time, attributes, and what it holds. Owners as far as root sees
/// them.
std::string list_tree(const std::string& root);

/// The line of an entry of a catalog.
std::string list_entry(const MTF_BACKUP::Catalog_Entry& entry);

}  // namespace mover_test
