#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "kolt/export.h"

namespace MTF {

/// Whether the bytes are well-formed UTF-8: shortest forms only, no surrogates, nothing above U+10FFFF. NUL is allowed.
TESSARIN_API bool is_utf8(std::string_view bytes);
/// Writes UTF-16LE. @a text is UTF-8, and @a out has room for 2 bytes for each of its bytes.
/// @return bytes written
TESSARIN_API size_t put_utf16(std::string_view text, char* out);
/// UTF-8 of UTF-16LE; a lone surrogate becomes U+FFFD, and an odd last byte is left out.
TESSARIN_API std::string from_utf16(std::string_view bytes);
/// The longest beginning of @a text that is no longer than @a max bytes and cuts no UTF-8 character.
TESSARIN_API std::string_view utf8_prefix(std::string_view text, size_t max);

}  // namespace MTF
