#include "mtf_backup/restore/link_plan.h"

#include <sys/stat.h>

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
  if (is_restored(item, target)) return LINK;
  const auto [at, fresh] = stand_ins_.try_emplace(first_path, Stand_In{item.path, item.target});
  if (!fresh) return at->second.target.root == item.target.root ? LINK : BROKEN;
  item.entry.hard_link_target.clear();
  item.entry.link_target = first.link_target;
  item.entry.xattr_hash = first.xattr_hash;
  item.entry.set = first.set;
  item.entry.channel = first.channel;
  item.entry.offset = first.offset;
  item.entry.data_size = first.data_size;
  item.entry.data_hash = first.data_hash;
  return DATA;
}

Link_Plan::Kind Link_Plan::source_of(const Restore_Item& item, Target& old, std::string& old_path) {
  const std::string& first_path = item.entry.hard_link_target;
  const auto stand_in = stand_ins_.find(first_path);
  if (stand_in == stand_ins_.end()) {
    old_path = first_path;
    return is_restored(item, old) ? LINK : BROKEN;
  }
  if (stand_in->second.path == item.path) return DATA;
  old = stand_in->second.target;
  old_path = stand_in->second.path;
  return LINK;
}

/// Whether the first name is among what this run restores, below the same root.
bool Link_Plan::is_restored(const Restore_Item& item, Target& first) {
  const std::string& path = item.entry.hard_link_target;
  return job_.selection.contains(path) && job_.targets.locate(path, false, first) && first.root == item.target.root;
}

/// The entry that carries the data: 1 in @a first, 0 there is none, -1 stopping.
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
                        !first.is_directory() && (first.stat.mode & S_IFMT) == (item.entry.stat.mode & S_IFMT);
    if (usable) return 1;
  }
  return 0;
}

}  // namespace MTF_BACKUP
