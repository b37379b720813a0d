#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "mtf/core/entry.h"

// Bytes of the streams that are our own: doc/set-format.md has the tables.

namespace MTF {

constexpr size_t unix_stat_size = 96;

/// @a at has room for unix_stat_size bytes.
void put_unix_stat(char* at, const Entry_Stat& st);
/// Takes a longer stream too: later versions only append. False where it is too short or has no version.
bool get_unix_stat(std::string_view bytes, Entry_Stat& st);

/// Appends to @a bytes.
void put_xattrs(std::string& bytes, const Xattrs& attrs);
/// False where the bytes are no list of attributes.
bool get_xattrs(std::string_view bytes, Xattrs& attrs);

}  // namespace MTF
