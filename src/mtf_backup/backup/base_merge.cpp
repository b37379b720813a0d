#include "mtf_backup/backup/base_merge.h"

#include <cerrno>
#include <utility>

#include "ace/Log_Msg.h"
#include "kolt/printable.h"
#include "mtf_backup/set/catalog_format.h"

namespace MTF_BACKUP {

namespace {

/// What had changed within so many seconds before the older set was begun may have changed again with the same times. A
/// store to memory that a file is mapped to moves them only where its page is clean: those that follow move nothing
/// until the page was written back, which by default is at most 35 seconds later. Steps of clocks, of up to two
/// seconds, are less. A filesystem in memory never writes back: there such stores are not found.
constexpr uint64_t young_age = 60;

uint64_t catalog_size(const Commit_Record& record) {
  const Stored_Object* catalog = record.find(catalog_name);
  return catalog ? catalog->size : 0;
}

bool is_before(const MTF::Timestamp& time, int64_t moment) {
  return time.sec<moment&& static_cast<uint64_t>(moment) - static_cast<uint64_t>(time.sec)> young_age;
}

}  // namespace

Base_Merge::Base_Merge(Client_IO_Base& storage, const Base_Set& base, const Run_State& state)
    : base_(base),
      state_(state),
      catalog_(storage, base.dir, base.record.set_uuid, catalog_size(base.record)),
      numbers_(1 + base.record.chain.size()) {}

std::unique_ptr<Catalog_Entry> Base_Merge::keep(const Work_Item& item) {
  if (!go_to(item) || !is_same(item)) return nullptr;
  auto kept = std::make_unique<Catalog_Entry>(std::move(old_));
  has_old_ = false;
  kept->stat = item.stat;
  kept->set = link_to(kept->set);
  return kept;
}

/// Whether the older set has an entry of this path and kind, which old_ then is.
bool Base_Merge::go_to(const Work_Item& item) {
  const std::string path = item.path();
  const bool directory = item.name.empty();
  for (;;) {
    if (has_old_) {
      const int order = catalog_order(old_.source, old_.path, old_.is_directory(), item.source, path, directory);
      if (order >= 0) return order == 0;
    }
    if (ended_) return false;
    const int got = catalog_.next(old_);
    has_old_ = got > 0;
    ended_ = got <= 0;
    if (got < 0 && !state_.stopping())
      ACE_ERROR((LM_WARNING, ACE_TEXT("The catalog of set %C cannot be read any further: all that follows is read.\n"),
                 printable(base_.dir).c_str()));
  }
}

bool Base_Merge::is_same(const Work_Item& item) const {
  const MTF::Entry_Stat& then = old_.stat;
  const MTF::Entry_Stat& now = item.stat;
  const int64_t begin = base_.record.begin_time;
  return old_.flags == 0 && old_.set < numbers_.size() && old_.hard_link_target == item.hard_link_target &&
         then.mode == now.mode && then.uid == now.uid && then.gid == now.gid && then.rdev == now.rdev &&
         then.ino == now.ino && then.size == now.size && then.mtime == now.mtime && then.ctime == now.ctime &&
         is_before(now.mtime, begin) && is_before(now.ctime, begin);
}

/// What the new catalog calls a set of the older one.
uint32_t Base_Merge::link_to(uint32_t set) {
  if (numbers_[set] == 0) {
    chain_.push_back(set == 0 ? Chain_Link{base_.dir, base_.record.set_uuid} : base_.record.chain[set - 1]);
    numbers_[set] = static_cast<uint32_t>(chain_.size());
  }
  return numbers_[set];
}

}  // namespace MTF_BACKUP
