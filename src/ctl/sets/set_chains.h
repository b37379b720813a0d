#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "ctl/sets/pool.h"

namespace ctl {

/// Which sets need which: an incremental set has data in the sets of its chain. Borrows the sets.
class Set_Chains {
 public:
  explicit Set_Chains(const std::vector<Pool_Set>& sets) : sets_(sets) {}

  /// The sets that have data in this one, as numbers in the sets.
  std::vector<size_t> dependents(const MTF_BACKUP::Pool_Key& key) const;

 private:
  const std::vector<Pool_Set>& sets_;
};

}  // namespace ctl
