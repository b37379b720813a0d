#pragma once

#include <string>

#include "kolt/pool_info.h"
#include "mtf_backup/channel_factory.h"
#include "mtf_backup/set/set_store.h"

namespace ctl_test {

/// Commits a set of 10 files with 1000 bytes, 100 in the storage, and returns whether that went well.
inline bool make_set(const std::string& pool_url, const std::string& host, const std::string& resource,
                     const std::string& name, uint32_t seq, uint32_t incarnation = 1) {
  Pool_Info pool;
  pool.url = pool_url;
  const auto factory = MTF_BACKUP::make_channel_factory(pool, host + "/" + resource, {});
  const auto storage = factory ? factory->storage() : nullptr;
  if (!storage) return false;
  MTF_BACKUP::Commit_Record record;
  record.set_uuid = "set";
  record.pool_uuid = "pool";
  record.host_uuid = host;
  record.minor_resource_id = resource;
  record.name = name;
  record.seq = seq;
  record.incarnation = incarnation;
  record.begin_time = 1700000000;
  record.end_time = 1700000001;
  record.compression = COMPR_ZSTD;
  record.channels = 1;
  record.sources = {"/data"};
  record.summary.file_count = 10;
  record.summary.total_size = 1000;
  record.summary.storage_size = 100;
  return MTF_BACKUP::Set_Store(storage).commit({name, seq, incarnation}, record);
}

}  // namespace ctl_test
