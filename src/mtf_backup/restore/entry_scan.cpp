#include "mtf_backup/restore/entry_scan.h"

#include <algorithm>
#include <cerrno>

#include "ace/Log_Msg.h"
#include "kolt/printable.h"
#include "mtf_backup/set/set_path.h"

namespace MTF_BACKUP {

// A set without its catalog is as damaged as one with a bad one.
void fail_by_catalog(Run_State& state) {
  state.fail(errno == EBADMSG || errno == ENOENT ? MTF::E_CORRUPT : MTF::E_DOWNLOAD_CAT_ERROR);
}

bool Entry_Scan::Range::contains(const Catalog_Entry& entry) const {
  if (entry.source != source) return false;
  return directory ? path.empty() || lies_below(entry.path, path) : entry.path == path && !entry.is_directory();
}

/// Finds out what to read.
void Entry_Scan::begin() {
  begun_ = true;
  const std::vector<std::string>& sources = job_.record.sources;
  const Selection& selection = job_.selection;
  whole_ = std::all_of(sources.begin(), sources.end(), [&](const std::string& s) { return selection.contains(s); });
  if (whole_) return;
  for (uint32_t i = 0; i < sources.size(); ++i) {
    if (selection.contains(sources[i])) {
      add_range({i, "", true});
      continue;
    }
    const std::string& source = sources[i];
    for (const std::string& dir : selection.dirs()) {
      if (!lies_below(dir, source)) continue;
      const size_t below = source.ends_with('/') ? source.size() : source.size() + 1;
      // Of which kind it is the catalog tells.
      for (const bool directory : {false, true}) add_range({i, dir.substr(std::min(below, dir.size())), directory});
    }
  }
  std::sort(ranges_.begin(), ranges_.end(), [](const Range& a, const Range& b) {
    return catalog_order(a.source, a.path, a.directory, b.source, b.path, b.directory) > 0;
  });
}

/// What lies in another range is not read twice.
void Entry_Scan::add_range(const Range& range) {
  const auto covers = [](const Range& outer, const Range& inner) {
    const bool same = outer.path == inner.path && outer.directory == inner.directory;
    const bool below =
        outer.directory && inner.path != outer.path && (outer.path.empty() || lies_below(inner.path, outer.path));
    return outer.source == inner.source && (same || below);
  };
  if (std::any_of(ranges_.begin(), ranges_.end(), [&](const Range& other) { return covers(other, range); })) return;
  std::erase_if(ranges_, [&](const Range& other) { return covers(range, other); });
  ranges_.push_back(range);
}

/// The next entry of a range; results as of Catalog_Reader::next().
int Entry_Scan::next_entry(Catalog_Entry& entry) {
  if (!begun_) begin();
  if (whole_) return catalog_.next(entry);
  for (; !ranges_.empty(); ranges_.pop_back()) {
    const Range& range = ranges_.back();
    if (!in_range_ && !catalog_.seek(range.source, range.path, range.directory)) return -1;
    const int got = catalog_.next(entry);
    if (got < 0) return got;
    in_range_ = got > 0 && range.contains(entry);
    if (in_range_) return 1;
  }
  return 0;
}

int Entry_Scan::next(Restore_Item& item) {
  while (!job_.state.stopping()) {
    const int got = next_entry(item.entry);
    if (got < 0) fail_by_catalog(job_.state);
    if (got <= 0) return got;
    if (wanted(item)) return 1;
  }
  return -1;
}

bool Entry_Scan::wanted(Restore_Item& item) {
  const Catalog_Entry& entry = item.entry;
  if (entry.source >= job_.record.sources.size()) return refuse(item, entry.path, "it lies in no source of the set");
  item.path = path_in_set(job_.record.sources[entry.source], entry.path);
  if (!job_.selection.contains(item.path) || blocked(entry)) return false;
  if (!has_plain_names(entry.path)) return refuse(item, item.path, "not a plain path");
  return job_.targets.locate(item.path, entry.is_directory(), item.target);
}

bool Entry_Scan::refuse(const Restore_Item& item, const std::string& path, const char* why) {
  if (!tell_) return false;
  ACE_ERROR((LM_ERROR, ACE_TEXT("Refused to restore %C: %C.\n"), printable(path).c_str(), why));
  job_.tally.failed(item.entry, path, false);
  return false;
}

void Entry_Scan::block(const Catalog_Entry& directory) {
  job_.blocked.emplace(directory.source, directory.path);
  in_blocked_ = true;
  block_ = directory;
}

/// What lies below a directory follows it without a gap.
bool Entry_Scan::blocked(const Catalog_Entry& entry) {
  if (in_blocked_ && entry.source == block_.source && lies_below(entry.path, block_.path)) return true;
  in_blocked_ = entry.is_directory() && job_.blocked.contains({entry.source, entry.path});
  if (in_blocked_) block_ = entry;
  return in_blocked_;
}

}  // namespace MTF_BACKUP
