#include "mtf_backup/restore/restore_planner.h"

#include <cstring>
#include <utility>

#include "ace/Log_Msg.h"
#include "kolt/printable.h"

namespace MTF_BACKUP {

namespace {

constexpr size_t max_items = 256;
constexpr uint64_t max_size = uint64_t(4) << 20;
constexpr uint64_t copies_of_path = 3;  // in the entry, in the set, in the target
constexpr unsigned open_mode = 0755;    // of directories above the selection, of which nothing is known

const char* error_text(int error) {
  const bool link = error == ELOOP || error == ENOTDIR;
  return link ? "a link or a file is in the way" : std::strerror(error);
}

}  // namespace

void Restore_Planner::run() {
  Restore_Item item;
  int got;
  while ((got = scan_.next(item)) > 0) {
    ++planned_;
    if (!put(item)) return;
    item = Restore_Item();
  }
  if (got == 0 && flush()) queue_.close();
}

bool Restore_Planner::put(Restore_Item& item) {
  const bool skipped = item.entry.flags & CAT_SKIPPED;
  if (skipped) tell_missing(item);
  if (item.entry.is_directory()) return put_directory(item);
  const uint64_t size = item.entry.stat.size;
  total_size_ += size;
  if (skipped) {
    job_.state.processed += size;
    return true;
  }
  if (item.entry.set == 0) held_size_ += size;
  return put_file(item);
}

/// It failed the backup, too.
void Restore_Planner::tell_missing(const Restore_Item& item) {
  ACE_ERROR((LM_WARNING, ACE_TEXT("%C is not in the set: %C\n"), printable(item.path).c_str(),
             printable(item.entry.reason).c_str()));
  job_.tally.missing();
}

bool Restore_Planner::put_directory(const Restore_Item& item) {
  if (job_.targets.make_directory(item.target, item.entry.stat.mode)) {
    made_root_ = item.target.root;
    made_ = item.target.below;
    return true;
  }
  const int error = errno;
  scan_.block(item.entry);
  ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to make directory %C, all below it is left out: %C\n"),
             item.target.shown().c_str(), error_text(error)));
  job_.tally.failed(item.entry, item.path, false);
  if (!is_resource_error(error)) return true;
  job_.state.fail(MTF::E_FAILED);
  return false;
}

bool Restore_Planner::put_file(Restore_Item& item) {
  if (!make_parent(item)) return failed(item, error_text(errno));
  const uint64_t size = item.entry.stat.size;
  if (!item.entry.hard_link_target.empty()) {
    const Link_Plan::Kind kind = links_.plan(item);
    if (kind == Link_Plan::STOPPED) return false;
    if (kind == Link_Plan::BROKEN) return failed(item, "it is a link to nothing that could be restored");
    if (kind == Link_Plan::LINK) {
      job_.state.processed += size;
      return true;
    }
  }
  const uint64_t held = size + copies_of_path * item.path.size() + item.entry.hard_link_target.size();
  if (!batch_.empty() && batch_size_ + held > max_size && !flush()) return false;
  batch_size_ += held;
  batch_.push_back(std::move(item));
  return batch_.size() < max_items && batch_size_ < max_size ? true : flush();
}

/// The directory has been made with its own entry, unless only something in it is selected.
bool Restore_Planner::make_parent(const Restore_Item& item) {
  Target parent{item.target.root, item.target.directory()};
  if (made_root_ == parent.root && made_ == parent.below) return true;
  if (!job_.targets.make_directory(parent, open_mode)) return false;
  made_root_ = parent.root;
  made_ = parent.below;
  return true;
}

bool Restore_Planner::failed(const Restore_Item& item, const char* why) {
  ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to restore %C: %C\n"), item.target.shown().c_str(), why));
  job_.state.processed += item.entry.stat.size;
  job_.tally.failed(item.entry, item.path, false);
  return true;
}

bool Restore_Planner::flush() {
  if (batch_.empty()) return true;
  batch_size_ = 0;
  return queue_.push(std::exchange(batch_, {}));
}

}  // namespace MTF_BACKUP
