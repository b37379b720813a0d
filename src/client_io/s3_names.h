#pragma once

#include <string>
#include <string_view>

#include "kolt/export.h"

// Keys are any bytes, names of S3 objects are UTF-8 and listed in the order of their bytes. So each byte of a key
// stands in the name as the code point of its value: ASCII as it is, and the order is kept.
namespace client_io {

/// Bytes that a name has at most.
inline constexpr size_t max_s3_name = 1024;

/// The name of a key, or of the beginning of one.
TESSARIN_API std::string s3_name_of(std::string_view key);

/// The key that has this name. False where none has.
[[nodiscard]] TESSARIN_API bool s3_key_of(std::string_view name, std::string& key);

/// What a listing in "url" encoding stands for.
TESSARIN_API std::string s3_url_decoded(std::string_view text);

}  // namespace client_io
