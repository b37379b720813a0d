#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ctl/job_params.h"

// What a job needs to know of the sets that are there. Names and numbers stand in the keys of sets, so that damaged
// ones count, and no more is read than is asked for.
namespace ctl {

/**
 * The number after the newest set of these volumes, 1 if they have none yet.
 * @throws Failure  exit_pool: the pool cannot be read; exit_usage: there is no number after it.
 */
uint32_t next_seq(const Set_Place& place, const std::vector<Volume>& volumes);

/// The bytes of all sets that a restore asks for. @throws Failure (exit_pool): the pool cannot be read, a set is not in
/// it or is damaged.
uint64_t size_of_sets(const Set_Place& place, const std::vector<Volume>& volumes, uint32_t seq, uint32_t incarnation);

}  // namespace ctl
