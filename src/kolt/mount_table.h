#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "kolt/export.h"

/**
 * The mount points strictly below a directory, as this process sees them, in the order in which they can be taken down:
 * the deepest first, and of several on one point the one mounted last first, each as often as it is mounted.
 *
 * @param path    resolved first, if it exists: the system lists mounts by their real paths.
 * @param mounts  on success the paths, byte for byte; on failure empty.
 * @return whether the list could be read. If not, one LM_ERROR line "Failed to read '/proc/self/mountinfo': %m.\n".
 */
TESSARIN_API bool mounts_below(const char* path, std::vector<std::string>& mounts);

/// The same from a text in the form of /proc/self/mountinfo; lines that are none are passed over.
TESSARIN_API std::vector<std::string> parse_mounts_below(std::string_view mountinfo, std::string_view path);

/// The mount that a path lies on.
struct Mount_Of {
  std::string point;
  bool receives = false;  ///< what is mounted below it elsewhere shows here as well: it is shared, or a slave
};

/**
 * Finds the mount that @a path lies on, as this process sees it.
 *
 * @param path    resolved first.
 * @param mount   untouched on failure.
 * @retval false  errno tells why; where the list of mounts cannot be read, after a line at LM_ERROR as of
 *                mounts_below().
 */
TESSARIN_API bool find_mount_of(const char* path, Mount_Of& mount);

/// The same from a text in the form of /proc/self/mountinfo. @retval false  no line fits.
TESSARIN_API bool parse_mount_of(std::string_view mountinfo, std::string_view path, Mount_Of& mount);
