#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ctl/job_params.h"
#include "ctl/sets/pool.h"

// What a job needs to know of the sets that are there.
namespace ctl {

/**
 * All sets at a place, in the order of list_pool(). An empty host or resource in @a place stands for all of them; a
 * host that was named need not have a pool yet.
 * @throws Failure (exit_pool): the pool cannot be read. What is damaged in it is logged and left out.
 */
std::vector<Pool_Set> list_sets(const Set_Place& place);

/// The number after the newest one of these volumes, 1 if they have no set yet.
uint32_t next_seq(const std::vector<Pool_Set>& sets, const std::vector<Volume>& volumes);

/// The bytes of all sets that a restore asks for. @throws Failure (exit_pool): a set is not in the pool.
uint64_t size_of_sets(const std::vector<Pool_Set>& sets, const std::vector<Volume>& volumes, uint32_t seq,
                      uint32_t incarnation);

/// Whether this program can read the pool by its URL alone.
bool is_readable_pool(const std::string& pool_url);

}  // namespace ctl
