#include "mtf/fs/unix/util.h"

#include <unistd.h>

#include <cerrno>

#include "ace/Log_Msg.h"

namespace MTF_FS {

int lstat(const char* path, ACE_stat* st) {
  return ACE_OS::lstat(path, st);
}

bool set_file_owner(const char* path, unsigned int uid, unsigned int gid) {
  if (::lchown(path, uid, gid) == 0) return true;
  const int error = errno;
  ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to change %s owner, errno=%d, %m\n"), path, error));
  errno = error;
  return false;
}

}  // namespace MTF_FS
