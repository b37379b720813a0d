#include "mtf_backup/restore/restore_tally.h"

#include "ace/Log_Msg.h"

namespace MTF_BACKUP {

namespace {

constexpr uint64_t max_lines = 1000;  // about entries that differ

}  // namespace

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

void Restore_Tally::differs(const std::string& shown, const std::string& what, bool loss) {
  if (loss) ++lossy_;
  if (++differing_ <= max_lines)
    ACE_ERROR((LM_ERROR, ACE_TEXT("Restored %C, but not as it was: %C\n"), shown.c_str(), what.c_str()));
}

void Restore_Tally::tell_rest() const {
  if (differing_ > max_lines)
    ACE_ERROR((LM_ERROR, ACE_TEXT("Restored %Q more entries, but not as they were.\n"), differing_ - max_lines));
  if (split_ > 0)
    ACE_ERROR((LM_ERROR, ACE_TEXT("Restored %Q hard links as files of their own: their other names went elsewhere.\n"),
               split_.load()));
}

}  // namespace MTF_BACKUP
