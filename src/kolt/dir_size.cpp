#include "kolt/dir_size.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <vector>

#include "ace/OS_NS_sys_stat.h"
#include "kolt/directory_stack.h"
#include "kolt/dirents.h"

namespace {

// Adds up the entries of an open directory that are no directories, and keeps the names of the others.
ACE_OFF_T size_of_files(int fd, kolt::Dirents& dirents, kolt::Name_List& subdirectories) {
  ACE_OFF_T size = 0;
  dirents.for_each(fd, [&](const char* name) {
    struct stat status;
    if (::fstatat(fd, name, &status, AT_SYMLINK_NOFOLLOW) != 0) return;
    if (S_ISDIR(status.st_mode))
      subdirectories.add(name);
    else
      size += status.st_size;
  });
  return size;
}

}  // namespace

ACE_OFF_T dir_size(const char* path) {
  kolt::Directory_Stack walk;
  if (path == nullptr || !walk.open(path)) return 0;
  kolt::Dirents dirents;
  std::vector<kolt::Name_List> pending(1);  // the subdirectories still to be visited, of each level of the walk
  ACE_OFF_T size = size_of_files(walk.fd(), dirents, pending.back());
  while (walk.depth() != 0) {
    const char* name = pending.back().next();
    if (name == nullptr) {
      pending.pop_back();
      walk.leave();
    } else if (walk.enter(name)) {
      pending.emplace_back();
      size += size_of_files(walk.fd(), dirents, pending.back());
    }
  }
  return size;
}

bool is_directory(const char* path) {
  ACE_stat status;
  return path != nullptr && ACE_OS::stat(path, &status) == 0 && S_ISDIR(status.st_mode);
}
