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

namespace {

/// Takes down the mounts that the table names, deepest first. @return how many went; @a failed is the last that did
/// not.
int take_down_once(const std::vector<std::string>& mounts, std::string& failed) {
  int gone = 0;
  for (const std::string& mount : mounts) {
    if (::umount2(mount.c_str(), MNT_DETACH | UMOUNT_NOFOLLOW) == 0) {
      ACE_DEBUG((LM_INFO, ACE_TEXT("Took down '%C', left by an earlier run.\n"), mount.c_str()));
      ++gone;
    } else {
      failed = "'" + mount + "': " + ACE_OS::strerror(errno);
    }
  }
  return gone;
}

/// A mount may hide others, or take those inside along, so the table is read again for as long as something goes.
void take_down(const std::string& directory) {
  std::vector<std::string> mounts;
  std::string failed;
  do {
    mounts.clear();
    if (!mounts_below(directory.c_str(), mounts)) return;
  } while (!mounts.empty() && take_down_once(mounts, failed) > 0);
  if (!mounts.empty()) ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to take down %C\n"), failed.c_str()));
}

}  // namespace

void Leftovers::sweep(const std::string& base, const std::string& data) {
  if (mkdir_p(base.c_str(), 0700)) lock_.reset(::open(base.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!lock_ || ::flock(lock_.get(), LOCK_EX | LOCK_NB) == -1) {
    ACE_ERROR((LM_WARNING, ACE_TEXT("'%C' is not swept: %C\n"), base.c_str(),
               errno == EWOULDBLOCK ? "another agent uses it" : ACE_OS::strerror(errno)));
    lock_.reset();
    return;
  }
  const std::string directory = base + "/" + data;
  take_down(directory);
  rm_all(directory.c_str());
}
