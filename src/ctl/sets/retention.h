#pragma once

#include <string>
#include <vector>

#include "ctl/sets/pool.h"
#include "ctl/sets/sets_options.h"

namespace ctl {

/// What becomes of a set.
struct Retention_Verdict {
  bool keep = false;
  std::vector<std::string> reasons;  ///< to keep it: "last 1", "day 2024-05-31", "week 2024-W22", "needed by data:3.1"
  size_t by_rules = 0;               ///< so many of these are rules; the others name sets that need it
};

/**
 * Judges sets by the rules, each name of each resource for itself, in local time by when a set was begun. What a kept
 * set needs is kept too.
 * @param name  the sets to judge; all others are kept, with the reason "another name". Empty: all.
 * @return one verdict per set.
 */
std::vector<Retention_Verdict> judge(const std::vector<Pool_Set>& sets, const Retention& rules,
                                     const std::string& name);

}  // namespace ctl
