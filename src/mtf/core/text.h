#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "kolt/export.h"

namespace MTF {

/// Writes UTF-16LE. @a text is UTF-8 (kolt::is_utf8()), and @a out has room for 2 bytes for each of its bytes.
/// @return bytes written
TESSARIN_API size_t put_utf16(std::string_view text, char* out);
/// UTF-8 of UTF-16LE; a lone surrogate becomes U+FFFD, and an odd last byte is left out.
TESSARIN_API std::string from_utf16(std::string_view bytes);

}  // namespace MTF
