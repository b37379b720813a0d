#pragma once

#include <string>
#include <string_view>

#include "kolt/export.h"

/// Base64 (RFC 4648, the ordinary alphabet) with padding, in one line.
TESSARIN_API std::string base64_encode(std::string_view bytes);
