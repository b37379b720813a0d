#include "mtf_backup/restore/restore_job.h"

namespace MTF_BACKUP {

void Restore_Tally::failed(const Catalog_Entry& entry, const std::string& path, bool damaged) {
  ++(damaged ? damaged_ : failed_);
  if (entry.is_directory() || (entry.stat.nlink < 2 && entry.hard_link_target.empty())) return;
  std::lock_guard<std::mutex> guard(lock_);
  linked_.insert(path);
}

bool Restore_Tally::has_failed(const std::string& path) const {
  std::lock_guard<std::mutex> guard(lock_);
  return linked_.contains(path);
}

}  // namespace MTF_BACKUP
