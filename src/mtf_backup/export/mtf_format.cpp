#include "mtf_backup/export/mtf_format.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstring>

#include "mtf_backup/set/hash.h"

namespace MTF_BACKUP {

bool MTF_Format::begin(const Commit_Record& record) {
  header_.family_id = static_cast<uint32_t>(hash64(record.set_uuid, 0));
  header_.media_name = record.name;
  header_.software_name = "Tessarin";
  header_.set_name = record.name;
  header_.user = record.host_uuid;
  header_.time = record.begin_time;
  return writer_.begin(header_);
}

bool MTF_Format::source(const std::string& path) {
  return writer_.volume({path, header_.user, header_.time});
}

bool MTF_Format::entry(const Export_Entry& entry) {
  directory_ = S_ISDIR(entry.entry.stat.mode);
  extents_ = entry.extents;
  next_extent_ = 0;
  damage_ = entry.damage;
  valid_size_ = entry.valid_size;
  if (directory_) return writer_.directory(entry.entry);
  return entry.sparse ? writer_.begin_sparse_file(entry.entry, entry.size)
                      : writer_.begin_file(entry.entry, entry.size);
}

bool MTF_Format::data(uint64_t at, std::string_view bytes) {
  const bool begins = next_extent_ < extents_.size() && extents_[next_extent_].at == at;
  if (begins && !writer_.begin_extent(at, extents_[next_extent_++].size)) return false;
  return put(bytes);
}

bool MTF_Format::put(std::string_view bytes) {
  while (!bytes.empty()) {
    char* at = nullptr;
    size_t room = 0;
    if (!writer_.room(at, room)) return false;
    const size_t n = std::min(room, bytes.size());
    std::memcpy(at, bytes.data(), n);
    if (n == 0 || !writer_.filled(n)) return false;
    bytes.remove_prefix(n);
  }
  return true;
}

bool MTF_Format::end_entry() {
  return directory_ || writer_.end_file(damage_, valid_size_);
}

}  // namespace MTF_BACKUP
