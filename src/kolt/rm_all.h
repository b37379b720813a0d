#pragma once

#include "kolt/export.h"

/**
 * Removes @a path with all that it holds.
 *
 * Never leaves the mount that the directory holding @a path lies on: a mount point, also a bind of the same file
 * system, stays with all below it, and so does @a path itself if it is one. Never follows a symbolic link: the link
 * goes, what it points to stays. Works by directory descriptors, so that names exchanged during the work lead nowhere
 * else. Descriptors and stack are bounded, whatever the depth of the tree.
 *
 * What cannot be removed stays, with the directories above it; all else goes.
 *
 * @return whether nothing is left; a path that does not exist is fine. Otherwise one LM_WARNING line
 *         "Failed to remove '%s': %u left behind, the first is '%s': %m.\n" names the path, how many entries were
 * refused (not counting the directories above them) and the first of them, and errno is the error of that one: EXDEV
 * for a mount point.
 */
TESSARIN_API bool rm_all(const char* path);
