#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ctl/job_params.h"
#include "kolt/compression.h"

namespace ctl {

/// A set as the pool tells it.
struct Set_Info {
  std::string host;
  std::string resource;
  std::string name;
  uint32_t seq = 0;
  uint32_t incarnation = 0;
  int64_t time = 0;  ///< of its beginning, seconds since 1970
  uint64_t files = 0;
  uint64_t size = 0;         ///< bytes
  uint64_t stored_size = 0;  ///< bytes
  Compression_Method compression = COMPR_NONE;
};

/**
 * All sets at a place, ordered by host, resource, name, number and incarnation. An empty host or resource in @a place
 * stands for all of them.
 * @throws Failure (exit_pool): the pool cannot be read. What is damaged in it is logged and left out.
 */
std::vector<Set_Info> list_sets(const Set_Place& place);

/// The number after the newest one of these volumes, 1 if they have no set yet.
uint32_t next_seq(const std::vector<Set_Info>& sets, const std::vector<Volume>& volumes);

/// The bytes of all sets that a restore asks for. @throws Failure (exit_pool): a set is not in the pool.
uint64_t size_of_sets(const std::vector<Set_Info>& sets, const std::vector<Volume>& volumes, uint32_t seq,
                      uint32_t incarnation);

/// Whether this program can read the pool by itself.
bool is_readable_pool(const std::string& pool_url);

}  // namespace ctl
