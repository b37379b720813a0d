#pragma once

#include <string>

#include "json_spirit/json_spirit_value.h"
#include "mtf_backup/set/catalog_entry.h"

namespace ctl {

/// Type and permissions as `ls -l` shows them: "drwxr-xr-x".
std::string mode_text(uint32_t mode);

/// One line as of `ls -l`. @param shown  the name in it, raw.
std::string entry_line(const MTF_BACKUP::Catalog_Entry& entry, const std::string& shown);

/// An entry for scripts. @param path  in the set.
json_spirit::Object entry_document(const MTF_BACKUP::Catalog_Entry& entry, const std::string& path);

}  // namespace ctl
