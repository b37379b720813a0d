#pragma once

#include "kolt/export.h"
#include "mtf/core/callback_stat.h"

namespace MTF_FS {

/// All extended attributes that may be read, sorted by name; a link is not followed. True with none where the
/// filesystem knows none; an attribute that vanishes meanwhile is left out. False with errno on an error.
TESSARIN_API bool read_xattrs(const char* path, MTF::Xattrs& attrs);
/// Sets each attribute; a link is not followed. Tries all of them; false with the first errno where one failed.
TESSARIN_API bool set_xattrs(const char* path, const MTF::Xattrs& attrs);

}  // namespace MTF_FS
