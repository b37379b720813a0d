#include "mtf/fs/mkdir_p.h"

#include "kolt/mkdir_p.h"

namespace MTF_FS {

bool mkdir_p(const char* path) {
  return ::mkdir_p(path, 0755, Mkdir_Callback());
}

}  // namespace MTF_FS
