#pragma once

#include <sys/types.h>

#include <functional>

#include "kolt/export.h"

/// Told of each directory just after it was made. @return false to stop: then mkdir_p() fails with ECANCELED.
typedef std::function<bool(const char* path)> Mkdir_Callback;

/**
 * Makes a directory with its missing parents, all with @a mode less the process's umask.
 *
 * A directory that exists already, also behind a symbolic link, counts as made and is left as it is.
 *
 * @param callback  may be empty.
 * @return whether @a path is a directory now. If not, errno tells why (ENOTDIR or EEXIST: something else stands there),
 *         and the parents made so far stay. Nothing is logged.
 */
TESSARIN_API bool mkdir_p(const char* path, mode_t mode, const Mkdir_Callback& callback = nullptr);
