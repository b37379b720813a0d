#pragma once

#include <string>
#include <vector>

#include "mtf_backup/set/set_store.h"

namespace MTF_BACKUP {

/// The set that an incremental builds on.
struct Base_Set {
  std::string dir;  ///< empty: there is none, and all is read
  Commit_Record record;
};

/**
 * Looks for the newest set of a name and number, and makes sure that one can build on it: it has the same sources, and
 * all objects of it and of the sets of its chain are there in their sizes, and none of these sets is being removed.
 * Nothing of their content is read but the commit records.
 *
 * @param why  on failure what is wrong, for a log line.
 * @retval false  @a base is unchanged. What is damaged or could not be read has a line at LM_ERROR.
 */
[[nodiscard]] bool find_base(Set_Store& store, const std::string& name, uint32_t seq,
                             const std::vector<std::string>& sources, Base_Set& base, std::string& why);

}  // namespace MTF_BACKUP
