#include "mtf_backup/restore/link_plan.h"

#include <sys/stat.h>

#include <utility>

#include "mtf_backup/restore/entry_scan.h"
#include "mtf_backup/set/set_path.h"

namespace MTF_BACKUP {

Link_Plan::Kind Link_Plan::plan(Restore_Item& item) {
  const std::string& first_path = item.entry.hard_link_target;
  Catalog_Entry first;
  const int found = find_first(item, first);
  if (found < 0) return STOPPED;
  if (found == 0) return BROKEN;
  Target target;
  const bool is_restored = locate_first(item, target);
  if (is_restored && target.root == item.target.root) return LINK;
  std::vector<Stand_In>& others = stand_ins_[first_path];
  if (find(others, item.target)) return LINK;
  if (is_restored || !others.empty()) job_.tally.splits_link();
  others.push_back({item.path, item.target});
  // All but the name is the first one's, as a link would give it: its status goes with its data.
  first.source = item.entry.source;
  first.path = std::move(item.entry.path);
  item.entry = std::move(first);
  return DATA;
}

Link_Plan::Kind Link_Plan::source_of(const Restore_Item& item, Target& old, std::string& old_path) {
  old_path = item.entry.hard_link_target;
  if (locate_first(item, old) && old.root == item.target.root) return LINK;
  const auto others = stand_ins_.find(old_path);
  const Stand_In* stand_in = others == stand_ins_.end() ? nullptr : find(others->second, item.target);
  if (!stand_in) return BROKEN;
  if (stand_in->path == item.path) return DATA;
  old = stand_in->target;
  old_path = stand_in->path;
  return LINK;
}

/// Where this run restores the first name to. False: nowhere.
bool Link_Plan::locate_first(const Restore_Item& item, Target& first) {
  const std::string& path = item.entry.hard_link_target;
  return job_.selection.contains(path) && job_.targets.locate(path, false, first);
}

/// The one below the same root, if any.
const Link_Plan::Stand_In* Link_Plan::find(const std::vector<Stand_In>& stand_ins, const Target& target) {
  for (const Stand_In& stand_in : stand_ins)
    if (stand_in.target.root == target.root) return &stand_in;
  return nullptr;
}

/// The entry that carries the data: 1 in @a first, 0 there is none, -1 stopping. One that tells of no further names is
/// none: the tally would not remember that it failed, and what stood under its name before would get the new one.
int Link_Plan::find_first(const Restore_Item& item, Catalog_Entry& first) {
  const std::string& path = item.entry.hard_link_target;
  for (uint32_t source = 0; source < job_.record.sources.size(); ++source) {
    const std::string& root = job_.record.sources[source];
    const std::string start = path_in_set(root, "x");  // the root, its separator and one byte
    if (path.size() < start.size() || path.compare(0, start.size() - 1, start, 0, start.size() - 1) != 0) continue;
    const int found = catalog_.find(source, path.substr(start.size() - 1), first);
    if (found < 0) fail_by_catalog(job_.state);
    if (found < 0) return -1;
    const bool usable = found > 0 && !(first.flags & CAT_SKIPPED) && first.hard_link_target.empty() &&
                        first.stat.nlink > 1 && !first.is_directory() &&
                        (first.stat.mode & S_IFMT) == (item.entry.stat.mode & S_IFMT);
    if (usable) return 1;
  }
  return 0;
}

}  // namespace MTF_BACKUP
