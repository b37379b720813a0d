#include "mtf_backup/backup/entry_collector.h"

#include <utility>

#include "ace/Log_Msg.h"
#include "kolt/printable.h"
#include "mtf_backup/backup/work_batch.h"

namespace MTF_BACKUP {

namespace {

constexpr size_t max_waiting_size = size_t(8) << 20;

/// Of the entries in memory.
size_t size_of(const Batch_Result& result) {
  size_t size = 0;
  for (const Catalog_Entry& entry : result.entries)
    size += sizeof entry + entry.path.size() + entry.link_target.size() + entry.hard_link_target.size();
  return size;
}

}  // namespace

bool Entry_Collector::deliver(Batch_Result result) {
  const size_t size = size_of(result);
  std::unique_lock<std::mutex> guard(lock_);
  advanced_.wait(guard, [&] { return aborted_ || result.number == next_ || waiting_size_ + size <= max_waiting_size; });
  if (aborted_) return false;
  waiting_size_ += size;
  waiting_.emplace(result.number, std::move(result));
  while (!waiting_.empty() && waiting_.begin()->first == next_) {
    Batch_Result& first = waiting_.begin()->second;
    if (!append(first)) return false;
    waiting_size_ -= size_of(first);
    waiting_.erase(waiting_.begin());
    ++next_;
    advanced_.notify_all();
  }
  return true;
}

void Entry_Collector::abort() {
  std::lock_guard<std::mutex> guard(lock_);
  aborted_ = true;
  advanced_.notify_all();
}

bool Entry_Collector::append(Batch_Result& result) {
  lost_.insert(result.lost.begin(), result.lost.end());
  for (Catalog_Entry& entry : result.entries) {
    if (!entry.hard_link_target.empty() && !lost_.empty()) check_link(entry);
    if (!catalog_.append(entry)) {
      state_.fail(MTF::E_ADD_TO_CATALOG);
      return false;
    }
    add_up(entry);
  }
  return true;
}

/// A further name of a file is worth nothing where the data under its first name is missing.
void Entry_Collector::check_link(Catalog_Entry& entry) {
  if (!lost_.contains(entry.hard_link_target)) return;
  entry.flags |= CAT_SKIPPED;
  entry.reason = "no data under its other name";
  ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to back up %C: %C, %C\n"),
             printable(path_in_set(sources_[entry.source], entry.path)).c_str(),
             printable(entry.hard_link_target).c_str(), entry.reason.c_str()));
}

void Entry_Collector::add_up(const Catalog_Entry& entry) {
  const bool skipped = entry.flags & CAT_SKIPPED;
  ++(entry.is_directory() ? summary_.dir_count : summary_.file_count);
  if (skipped) ++summary_.skipped_count;
  if (entry.flags & (CAT_SKIPPED | CAT_BARE)) has_losses_ = true;
  if (entry.flags & CAT_CORRUPT) ++summary_.corrupt_count;
  if (entry.is_directory()) return;
  summary_.total_size += entry.stat.size;
  if (!skipped && entry.set == 0) summary_.inc_size += entry.stat.size;
}

}  // namespace MTF_BACKUP
