#include "mtf_backup/run/disk_waits.h"

#include <sys/resource.h>

#include <utility>

namespace MTF_BACKUP {

bool Disk_Waits::waited(size_t operations) {
  rusage now{};
  if (::getrusage(RUSAGE_THREAD, &now) != 0) return false;
  const size_t blocks = static_cast<size_t>(now.ru_inblock - std::exchange(blocks_, now.ru_inblock));
  const size_t pauses = static_cast<size_t>(now.ru_nvcsw - std::exchange(pauses_, now.ru_nvcsw));
  return blocks > operations / 2 || pauses > operations / 4 + 8;
}

}  // namespace MTF_BACKUP
