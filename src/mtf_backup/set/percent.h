#pragma once

#include <string>
#include <string_view>

namespace MTF_BACKUP {

/// Raw bytes as printable ASCII: '%' and all bytes but 0x20 to 0x7e as %XX, in capitals. Bytes in @a also too.
std::string percent_encode(std::string_view bytes, std::string_view also = {});

/// The reverse. False, with @a bytes undefined, where a '%' is not followed by two hexadecimal digits.
bool percent_decode(std::string_view text, std::string& bytes);

}  // namespace MTF_BACKUP
