#pragma once

#include "kolt/export.h"

namespace MTF_FS {

/// Makes a directory and those above it, mode 0755 less the umask. True where it is there already; false with errno,
/// also where a component is no directory. Links in the path are followed.
TESSARIN_API bool mkdir_p(const char* path);

}  // namespace MTF_FS
