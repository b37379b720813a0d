#include "mtf_backup/restore/restore_tally.h"

#include "ace/Log_Msg.h"

namespace MTF_BACKUP {

namespace {

constexpr uint64_t max_lines = 1000;        // about entries that differ
constexpr uint64_t max_loss_lines = 10000;  // about those that lack some of their content

uint64_t above(uint64_t count, uint64_t max) {
  return count > max ? count - max : 0;
}

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

void Restore_Tally::restored(const Catalog_Entry& entry, const Target& target) {
  if (!entry.is_directory()) restored_size_ += entry.stat.size;
  if (entry.flags & CAT_SKIPPED) return;  // a directory, which was told
  const std::string lacking = missing_text(entry);
  if (lacking.empty()) return;
  ++missing_;
  tell(target.shown(), lacking, ++loss_lines_ <= max_loss_lines);
}

void Restore_Tally::differs(const std::string& shown, const std::string& what, bool loss) {
  if (loss) ++lossy_;
  tell(shown, what, loss ? ++loss_lines_ <= max_loss_lines : ++differing_ <= max_lines);
}

void Restore_Tally::tell(const std::string& shown, const std::string& what, bool has_line) {
  if (has_line) ACE_ERROR((LM_ERROR, ACE_TEXT("Restored %C, but not as it was: %C\n"), shown.c_str(), what.c_str()));
}

void Restore_Tally::tell_rest() const {
  const uint64_t untold = above(differing_, max_lines) + above(loss_lines_, max_loss_lines);
  if (untold > 0) ACE_ERROR((LM_ERROR, ACE_TEXT("Restored %Q more entries, but not as they were.\n"), untold));
  if (split_ > 0)
    ACE_ERROR((LM_ERROR, ACE_TEXT("Restored %Q hard links as files of their own: their other names went elsewhere.\n"),
               split_.load()));
}

}  // namespace MTF_BACKUP
