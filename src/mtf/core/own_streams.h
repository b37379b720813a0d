#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "kolt/export.h"
#include "mtf/core/entry.h"

// Bytes of the streams that are our own: doc/set-format.md has the tables.

namespace MTF {

constexpr size_t unix_stat_size = 96;

/// @a at has room for unix_stat_size bytes.
void put_unix_stat(char* at, const Entry_Stat& st);
/// Takes a longer stream too: later versions only append. False where it is too short or has no version.
bool get_unix_stat(std::string_view bytes, Entry_Stat& st);

/// How many bytes put_xattrs() writes.
TESSARIN_API size_t xattrs_size(const Xattrs& attrs);
/// Appends to @a bytes.
void put_xattrs(std::string& bytes, const Xattrs& attrs);
/// False where the bytes are no list of attributes.
bool get_xattrs(std::string_view bytes, Xattrs& attrs);

}  // namespace MTF
