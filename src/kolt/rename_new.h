#pragma once

#include "kolt/export.h"

/**
 * Gives a file its name unless there is one of that name. Both names count from the directory @a dir, which may be
 * AT_FDCWD. Filesystems that cannot rename so can still link so.
 * @return 0, or -1 with errno: EEXIST where the name is taken.
 */
TESSARIN_API int rename_new(int dir, const char* from, const char* to);
