#include "ctl/sets/pool_sets.h"

#include <algorithm>
#include <limits>

#include "ctl/failure.h"
#include "ctl/sets/pool.h"
#include "kolt/printable.h"
#include "mtf_backup/set/set_store.h"

namespace ctl {

using MTF_BACKUP::Pool_Key;

uint32_t next_seq(const Set_Place& place, const std::vector<Volume>& volumes) {
  uint32_t newest = 0;
  const std::vector<Pool_Key> keys = Pool(place.pool).keys(place.host, place.resource);
  for (const Volume& volume : volumes)
    for (const Pool_Key& key : keys)
      if (key.set.name == MTF_BACKUP::encode_name(volume.name)) newest = std::max(newest, key.set.seq);
  if (newest == std::numeric_limits<uint32_t>::max())
    throw Failure(exit_usage, "There is no number after the newest set: give one with --seq.");
  return newest + 1;
}

uint64_t size_of_sets(const Set_Place& place, const std::vector<Volume>& volumes, uint32_t seq, uint32_t incarnation) {
  const Pool pool(place.pool);
  const std::vector<Pool_Key> keys = pool.keys(place.host, place.resource);
  uint64_t size = 0;
  for (const Volume& volume : volumes) {
    const std::string name = MTF_BACKUP::encode_name(volume.name);
    const auto newest = std::find_if(keys.rbegin(), keys.rend(), [&](const Pool_Key& key) {
      return key.set.name == name && key.set.seq == seq && (incarnation == 0 || key.set.incarnation == incarnation);
    });
    if (newest == keys.rend())
      throw Failure(exit_pool, "There is no set '" + printable(volume.name) + "' with number " + std::to_string(seq) +
                                   " in the pool.");
    size += pool.record(*newest).summary.total_size;
  }
  return size;
}

}  // namespace ctl
