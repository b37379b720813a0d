#include "kolt/rename_new.h"

#include <stdio.h>
#include <unistd.h>

#include <cerrno>

int rename_new(int dir, const char* from, const char* to) {
  if (renameat2(dir, from, dir, to, RENAME_NOREPLACE) == 0) return 0;
  if (errno != EINVAL && errno != ENOSYS) return -1;
  if (linkat(dir, from, dir, to, 0) != 0) return -1;
  return unlinkat(dir, from, 0);
}
