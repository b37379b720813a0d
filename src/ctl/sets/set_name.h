#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "mtf_backup/set/set_key.h"

namespace ctl {

/// How a command line names a set: NAME, NAME:SEQ, NAME:SEQ.INCARNATION, or the set's directory NAME/SEQ.INCARNATION.
struct Set_Name {
  std::string text;
  std::string name;             ///< raw bytes, or as it stands in the pool
  std::optional<uint32_t> seq;  ///< none: the highest
  uint32_t incarnation = 0;     ///< 0: the highest
};

/// What does not end in numbers is a name as a whole.
Set_Name parse_set_name(const std::string& text);

/**
 * The set that @a text names.
 * @param keys      in the order of list_pool().
 * @throws Failure  exit_pool: there is none, with what there is in its place; exit_usage: sets of that name lie in
 *                  several places.
 */
MTF_BACKUP::Pool_Key find_set(const std::vector<MTF_BACKUP::Pool_Key>& keys, const std::string& text);

/// The sets that @a texts name, each once; all where there are none. @throws Failure  as find_set().
std::vector<MTF_BACKUP::Pool_Key> find_sets(const std::vector<MTF_BACKUP::Pool_Key>& keys,
                                            const std::vector<std::string>& texts);

/// "data:3.1"
std::string set_label(const std::string& name, uint32_t seq, uint32_t incarnation);
/// The same by a key alone, with the name as it stands in the pool.
std::string set_label(const MTF_BACKUP::Pool_Key& key);

}  // namespace ctl
