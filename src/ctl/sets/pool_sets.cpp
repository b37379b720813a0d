#include "ctl/sets/pool_sets.h"

#include <algorithm>

#include "ctl/failure.h"

namespace ctl {

namespace {

bool is_one_of(const Pool_Set& set, const std::vector<Volume>& volumes) {
  return std::any_of(volumes.begin(), volumes.end(),
                     [&](const Volume& volume) { return volume.name == set.record.name; });
}

}  // namespace

bool is_readable_pool(const std::string& pool_url) {
  return pool_url.starts_with("file://");
}

std::vector<Pool_Set> list_sets(const Set_Place& place) {
  Pool_Info info;
  info.url = place.pool;
  const Pool pool(std::move(info));
  if (place.host.empty()) pool.check();
  return pool.sets(place.host, place.resource).sets;
}

uint32_t next_seq(const std::vector<Pool_Set>& sets, const std::vector<Volume>& volumes) {
  uint32_t newest = 0;
  for (const Pool_Set& set : sets)
    if (is_one_of(set, volumes)) newest = std::max(newest, set.record.seq);
  return newest + 1;
}

uint64_t size_of_sets(const std::vector<Pool_Set>& sets, const std::vector<Volume>& volumes, uint32_t seq,
                      uint32_t incarnation) {
  uint64_t size = 0;
  for (const Volume& volume : volumes) {
    const Pool_Set* found = nullptr;  // the last one that fits: incarnations are in ascending order
    for (const Pool_Set& set : sets)
      if (set.record.name == volume.name && set.record.seq == seq &&
          (incarnation == 0 || set.record.incarnation == incarnation))
        found = &set;
    if (found == nullptr)
      throw Failure(exit_pool,
                    "There is no set '" + volume.name + "' with number " + std::to_string(seq) + " in the pool.");
    size += found->record.summary.total_size;
  }
  return size;
}

}  // namespace ctl
