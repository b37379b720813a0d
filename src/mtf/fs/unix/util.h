#pragma once

#include "ace/OS_NS_sys_stat.h"
#include "kolt/export.h"

namespace MTF_FS {

/// lstat(2): 0, or -1 with errno.
TESSARIN_API int lstat(const char* path, ACE_stat* st);
/// Changes the owner; a link is not followed. False, with errno and one LM_ERROR line, on failure.
TESSARIN_API bool set_file_owner(const char* path, unsigned int uid, unsigned int gid);

}  // namespace MTF_FS
