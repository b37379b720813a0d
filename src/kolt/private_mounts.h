#pragma once

#include <string>

#include "kolt/export.h"

/**
 * @file
 * Directories of this process that nobody else sees: for files that have to lie at a fixed path, without leaving
 * anything on the machine.
 *
 * Threads: the calls concern the whole process; none of them while there is a second thread.
 */
namespace kolt {

/**
 * Enters a mount namespace of its own, from which no mount gets out; where the process has no right to mount, also a
 * user namespace, in which it is root and still has the rights of the user that it was.
 *
 * @retval false  this machine forbids it; errno tells why. Nothing is logged.
 */
[[nodiscard]] TESSARIN_API bool enter_private_mounts();

/**
 * Covers the directory @a path with an empty, writable one. Where there is none on this machine, the next directory
 * above it that there is becomes one that shows all that it held, and in which @a path can be made.
 *
 * Only after enter_private_mounts(), or in a process that was started in namespaces of its own.
 *
 * @retval false  errno tells why: ENOTDIR if @a path is something else, ENOENT if not even a directory below the root
 *                directory is there. Nothing is logged.
 */
[[nodiscard]] TESSARIN_API bool cover_directory(const std::string& path);

}  // namespace kolt
