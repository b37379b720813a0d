#pragma once

namespace k8s {

/**
 * The system calls of mount_bind() and umounts(). Each returns 0, or -1 with errno.
 *
 * Tests derive from it to see the calls or to make one of them fail.
 */
class Mount_Calls {
 public:
  virtual ~Mount_Calls() = default;

  virtual int mount(const char* src, const char* target, unsigned long flags);
  /// Makes the mount at @a target and all mounts below it read-only and private to this tree, in one step.
  virtual int seal(const char* target);
  virtual int umount(const char* target, int flags);

  /// What is in use: the system's own calls, unless others have been installed.
  static Mount_Calls& instance();
  /// Installs @a calls, borrowed, for the whole process; null puts the system's own back. Not while a job runs.
  static void install(Mount_Calls* calls);
};

}  // namespace k8s
