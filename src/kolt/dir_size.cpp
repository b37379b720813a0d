#include "kolt/dir_size.h"

#include "ace/OS_NS_sys_stat.h"

bool is_directory(const char* path) {
  ACE_stat status;
  return path != nullptr && ACE_OS::stat(path, &status) == 0 && S_ISDIR(status.st_mode);
}
