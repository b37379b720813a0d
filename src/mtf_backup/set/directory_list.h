#pragma once

#include <functional>
#include <string>

#include "kolt/export.h"
#include "mtf_backup/set/catalog_reader.h"

namespace MTF_BACKUP {

typedef std::function<void(const Catalog_Entry&)> Entry_Callback;

/**
 * Shows what lies in one directory of a set, or the entry itself where @a path is none. What lies deeper is passed
 * over: little of the catalog is read however much the directory holds.
 *
 * @param catalog  open.
 * @param path     relative to the source; empty: its root.
 * @param each     called in catalog order: first all that are no directories, by name, then the directories.
 * @retval 1  shown.  @retval 0  there is no such entry.  @retval -1  failed, as Catalog_Reader::next().
 */
[[nodiscard]] TESSARIN_API int list_directory(Catalog_Reader& catalog, uint32_t source, const std::string& path,
                                              const Entry_Callback& each);

}  // namespace MTF_BACKUP
