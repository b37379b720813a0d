#pragma once

#include <string>

#include "kolt/export.h"

/**
 * Whether a regular file can be taken for configuration or code of this process: its path is absolute, and the file and
 * all directories above it, as they really lie, belong to root or the running user and cannot be written by anybody
 * else. A directory in which only owners may remove ("sticky", as /tmp) counts as not writable. In a user namespace,
 * where the system's root cannot be told from other users outside, an owner from outside counts as root.
 *
 * @return false with one line at LM_ERROR that names what is not trusted and why.
 */
TESSARIN_API bool is_trusted_file(const std::string& path);
