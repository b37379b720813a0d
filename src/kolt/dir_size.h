#pragma once

#include "ace/Basic_Types.h"
#include "ace/os_include/sys/os_types.h"
#include "kolt/export.h"

/**
 * The bytes of all files below a directory: the sum of st_size of every entry that is no directory, a symbolic link
 * counting by its own size, a hard link each time it is met.
 *
 * Links are not followed below @a path. A directory that cannot be opened adds nothing; if @a path is one, the result
 * is 0. Nothing is logged. Descriptors and stack are bounded, whatever the depth of the tree; memory grows with the
 * number of subdirectories on one path, not with the number of files. Threads: any.
 */
TESSARIN_API ACE_OFF_T dir_size(const char* path);

/// Whether @a path is a directory, or a link to one. A path that cannot be examined is none.
TESSARIN_API bool is_directory(const char* path);
