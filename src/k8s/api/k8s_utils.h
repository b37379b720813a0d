#pragma once

#include <string>

namespace k8s {

/**
 * Binds the directory @a src with all that is mounted below it at @a target, which is made with its parents (mode 0750)
 * where it is missing, and makes the bound tree read-only: the volume itself and every mount below it. The tree is cut
 * off from its source: mounts and unmounts on one side do not reach the other.
 *
 * Needs the right to mount. Threads: must not race with another job's binds.
 *
 * @retval false  one line at LM_ERROR tells what failed. A bind whose protection failed stays in place, so that the
 *                caller's umounts() takes it down; it may be writable until then.
 */
[[nodiscard]] bool mount_bind(const std::string& src, const std::string& target);

/**
 * Detaches whatever is mounted at the direct children of the directory @a path; deeper mount points of their own are
 * not looked for. A child that can't be unmounted gets a line at LM_WARNING, and the walk goes on.
 *
 * @retval true   @a path is a directory, whatever became of its children.
 * @retval false  @a path is no directory; nothing is logged.
 */
bool umounts(const std::string& path);

}  // namespace k8s
