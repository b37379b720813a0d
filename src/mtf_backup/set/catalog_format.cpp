#include "mtf_backup/set/catalog_format.h"

#include <algorithm>

#include "mtf_backup/set/wire.h"

namespace MTF_BACKUP {

namespace {

size_t shared_length(std::string_view a, std::string_view b) {
  const size_t n = std::min(a.size(), b.size());
  return static_cast<size_t>(std::mismatch(a.begin(), a.begin() + n, b.begin()).first - a.begin());
}

// Calls @a each with every number of the entry, in their stored order: one list for writing and for reading.
template <typename Entry, typename Each>
void each_number(Entry& entry, Each&& each) {
  each(entry.source);
  each(entry.flags);
  each(entry.stat.mode);
  each(entry.stat.uid);
  each(entry.stat.gid);
  each(entry.stat.rdev);
  each(entry.stat.dev);
  each(entry.stat.ino);
  each(entry.stat.nlink);
  each(entry.stat.size);
  for (auto* time : {&entry.stat.atime, &entry.stat.mtime, &entry.stat.ctime}) {
    each(time->sec);
    each(time->nsec);
  }
  each(entry.xattr_hash);
  each(entry.set);
  each(entry.channel);
  each(entry.offset);
  each(entry.data_size);
  each(entry.data_hash);
}

}  // namespace

void put_entry(std::string& block, const Catalog_Entry& entry, std::string_view previous_path) {
  const size_t shared = shared_length(previous_path, entry.path);
  put(block, static_cast<uint32_t>(shared));
  put_text(block, std::string_view(entry.path).substr(shared));
  each_number(entry, [&](const auto& number) { put(block, number); });
  put_text(block, entry.reason);
  put_text(block, entry.link_target);
  put_text(block, entry.hard_link_target);
}

const char* get_entry(std::string_view& block, Catalog_Entry& entry) {
  Wire_Reader reader(block);
  uint32_t shared = 0;
  reader.get(shared);
  const std::string_view rest = reader.text();
  if (shared > entry.path.size()) return "an entry's path goes on from a longer one than there is";
  entry.path.resize(shared);
  entry.path += rest;
  each_number(entry, [&](auto& number) { reader.get(number); });
  reader.get_text(entry.reason);
  reader.get_text(entry.link_target);
  reader.get_text(entry.hard_link_target);
  if (!reader.ok()) return "an entry ends too early";
  if (entry.path.size() > max_entry_size) return "an entry has a path that is too long";
  block.remove_prefix(block.size() - reader.left());
  return nullptr;
}

}  // namespace MTF_BACKUP
