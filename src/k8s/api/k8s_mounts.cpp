#include "k8s/api/k8s_utils.h"

#include <sys/mount.h>

#include "ace/Log_Msg.h"
#include "k8s/api/mount_calls.h"
#include "kolt/dir_size.h"
#include "kolt/directory_iterator.h"
#include "kolt/mkdir_p.h"
#include "kolt/path.h"

namespace k8s {

namespace {

constexpr mode_t target_mode = 0750;
constexpr unsigned long bind_flags = MS_BIND | MS_REC;
constexpr unsigned long read_only_flags = bind_flags | MS_REMOUNT | MS_RDONLY;

bool is_directory_mode(mode_t mode) {
  return (mode & S_IFMT) == S_IFDIR;
}

}  // namespace

bool mount_bind(const std::string& src, const std::string& target) {
  if (!mkdir_p(target.c_str(), target_mode, nullptr)) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to create directory '%s'.\n"), target.c_str()));
    return false;
  }

  Mount_Calls& calls = Mount_Calls::instance();
  const bool bound = calls.mount(src.c_str(), target.c_str(), bind_flags) == 0;
  const bool read_only = bound && calls.mount(src.c_str(), target.c_str(), read_only_flags) == 0;
  // The remount changes the top mount only. Also, a tree that is still shared with its source would take the source's
  // own submounts along when it is detached, so it is sealed even where the remount failed and the job is about to end.
  const bool sealed = bound && calls.seal(target.c_str()) == 0;
  if (!read_only) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to mount data directory '%s' to '%s'.\n"), src.c_str(), target.c_str()));
    return false;
  }
  if (!sealed) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to make all mounts below data directory '%s' read-only, errno=%d, %m\n"),
               target.c_str(), errno));
    return false;
  }
  return true;
}

bool umounts(const std::string& path) {
  if (!is_directory(path.c_str())) return false;
  for (const Directory_Entry& entry : iterate_directory(path.c_str())) {
    if (!is_directory_mode(entry.stat.st_mode)) continue;
    const kolt::Path child(path, entry.name, '/', false);
    if (Mount_Calls::instance().umount(child.c_str(), MNT_DETACH) != 0)
      ACE_ERROR((LM_WARNING, ACE_TEXT("Failed to umount data directory '%s'.\n"), path.c_str()));
  }
  return true;
}

}  // namespace k8s
