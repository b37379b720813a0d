#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "mtf_backup/restore/restore_tally.h"
#include "mtf_backup/restore/selection.h"
#include "mtf_backup/restore/target_tree.h"
#include "mtf_backup/restore_settings.h"
#include "mtf_backup/run/run_state.h"
#include "mtf_backup/set/catalog_entry.h"
#include "mtf_backup/set/commit_record.h"
#include "mtf_backup/set/medium_set.h"

namespace MTF_BACKUP {

/// What the stages of a restore have in common. Outlives them.
struct Restore_Job {
  const Restore_Settings& settings;
  const Commit_Record& record;
  Selection& selection;
  Target_Tree& targets;  ///< one stage at a time
  Medium_Set& media;
  Run_State& state;
  Restore_Tally& tally;
  std::set<std::pair<uint32_t, std::string>> blocked;  ///< directories that could not be made; one stage at a time
};

/// An entry to restore.
struct Restore_Item {
  Catalog_Entry entry;
  std::string path;  ///< in the set
  Target target;
};

typedef std::vector<Restore_Item> Restore_Batch;

}  // namespace MTF_BACKUP
