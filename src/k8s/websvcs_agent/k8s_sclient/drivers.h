#pragma once

#include <string>

#include "ace/Basic_Types.h"
#include "json_spirit/json_spirit_value.h"
#include "mtf/fs/path_converter.h"

class MTF_Backup;
struct Pool_Info;

namespace MTF {
class Metadata;
}

// What stands between a job and the data mover: each driver moves one volume and adds its figures to the job's totals.
// They run on the task's thread and wait until the volume is done.

/**
 * Writes the directory @a path as the set @a name into the storage pool that @a params describes.
 *
 * @param params  `meta`, `minor_resource_id`, `opts`, `seq`, `subtype`, `max_seconds_retry`, `resumption_buffer_size`,
 *                `access_key`, `pool_info`; optional `server_side_dedup` and the rate windows
 * @retval true   the set is in the pool; also where the directory held nothing to back up.
 * @retval false  at least one line tells why, but for a lack of memory (errno is ENOMEM); nothing is added to the
 * totals.
 */
bool mtf_backup(const std::string& job_id, const std::string& name, const std::string& path,
                const json_spirit::Object& params);

/**
 * Tells the data mover what identifies the set and how it is stored. For a deduplicating store the compression goes to
 * the storage clients, and the data mover itself applies none. The data mover gets @a seq less one, cut to 32 bits.
 *
 * @retval false  one line at LM_ERROR tells why; @a bak may have been set up in part.
 */
bool build_mtf_metadata(const MTF::Metadata& meta, const std::string& minor_resource_id,
                        const json_spirit::Object& opts, const Pool_Info& pool, ACE_INT64 seq, MTF_Backup& bak);

/**
 * Brings the set @a name back: what lies at or below the paths of @a entries, to where @a rules_map says.
 *
 * @param params  `minor_resource_id`, `pool_uuid`, `host_uuid`, `seq`, `incarnation`, `channel_num`, `concurrent`,
 *                `access_key`, `pool_info`, `max_seconds_retry`, `resumption_buffer_size`; optional the rate windows
 * @retval true   it is in place; also where the set held nothing of the selection.
 * @retval false  as for mtf_backup(); files that are in place already stay.
 */
bool mtf_restore(const std::string& job_id, const std::string& name, const json_spirit::Array& entries,
                 const MTF_FS::path_transform_rules& rules_map, const json_spirit::Object& params);
