#pragma once

#include <string_view>

#include "json_spirit/json_spirit_value.h"

namespace json_spirit {

/// Containers inside of containers that a text may have.
constexpr std::size_t MAX_DEPTH = 256;

/// Reads @a text into @a out, which must be null. When false, @a out holds what was read before the fault.
bool read_text(std::string_view text, Value& out);

}  // namespace json_spirit
