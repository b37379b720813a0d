#include "websvcs/leftovers.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include "ace/Log_Msg.h"
#include "kolt/mkdir_p.h"
#include "kolt/mount_table.h"
#include "kolt/rm_all.h"

void Leftovers::sweep(const std::string& base, const std::string& data) {
  if (mkdir_p(base.c_str(), 0700)) lock_.reset(::open(base.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!lock_ || ::flock(lock_.get(), LOCK_EX | LOCK_NB) == -1) {
    ACE_ERROR((LM_WARNING, ACE_TEXT("'%C' is not swept: %C\n"), base.c_str(),
               errno == EWOULDBLOCK ? "another agent uses it" : ACE_OS::strerror(errno)));
    lock_.reset();
    return;
  }
  const std::string directory = base + "/" + data;
  std::vector<std::string> mounts;
  if (!mounts_below(directory.c_str(), mounts)) return;
  for (const std::string& mount : mounts) {
    if (::umount2(mount.c_str(), MNT_DETACH | UMOUNT_NOFOLLOW) == 0) {
      ACE_DEBUG((LM_INFO, ACE_TEXT("Took down '%C', left by an earlier run.\n"), mount.c_str()));
    } else {
      ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to take down '%C': %m\n"), mount.c_str()));
    }
  }
  rm_all(directory.c_str());
}
