#pragma once

#include <string>
#include <string_view>

#include "kolt/export.h"

/// A file name as it may stand in a log line: control bytes, '\' and what is not UTF-8 show as "\xNN", so that no name
/// can forge a line or hide. The result is not meant to be read back.
TESSARIN_API std::string printable(std::string_view name);
