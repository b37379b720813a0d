#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "kolt/export.h"

namespace client_io {

/// Components that begin like this belong to the drivers.
constexpr std::string_view unfinished_mark = ".unfinished-";

/// Whether @a name may stand between two '/' of a key.
TESSARIN_API bool is_key_component(std::string_view name);
/// Whether @a key has the form that Client_IO_Base asks for.
TESSARIN_API bool is_key(std::string_view key);

/// Logs "Failed to <operation> object "<key>" in "<root>": <reason of errno>." at LM_ERROR, unless a
/// Held_Failure keeps the line; errno stays.
void log_failure(const char* operation, std::string_view key, const std::string& root);
/// The same with "<reason of errno> (<detail>)."; an empty detail is left out.
void log_failure(const char* operation, std::string_view key, const std::string& root, const std::string& detail);

/// is_key(), and when it is none a log line as by log_failure() with errno EINVAL.
bool check_key(const char* operation, std::string_view key, const std::string& root);

}  // namespace client_io
