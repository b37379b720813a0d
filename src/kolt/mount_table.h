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
