#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "mtf_backup/backup/base_set.h"
#include "mtf_backup/backup/work_batch.h"
#include "mtf_backup/run/run_state.h"
#include "mtf_backup/set/catalog_reader.h"

namespace MTF_BACKUP {

/**
 * Goes through the catalog of an older set beside a walk, which is in the same order, and tells what has not changed
 * since.
 *
 * An entry is as it was when all that a change of it would change is the same: type, mode, owner, device number, inode,
 * size, and the times of the last modification and change to the nanosecond. The number of its filesystem may differ:
 * that is another one after a restart. Read again is as well what the older set holds not as it was, and what had
 * changed less than a minute before that set was begun, so that a later change may have left the same times.
 *
 * Where the catalog is damaged, what follows is taken as changed, after a line at LM_WARNING.
 * Memory: one block of the catalog. Threads: one at a time.
 */
class Base_Merge {
 public:
  /// All are borrowed.
  Base_Merge(Client_IO_Base& storage, const Base_Set& base, const Run_State& state);

  /// Opens the catalog. False: it is damaged or missing, which has been logged.
  [[nodiscard]] bool open() { return catalog_.open(); }

  /**
   * To be called for every entry of the walk, in its order.
   * @return the entry for the new catalog, with the status of today and the place where its block lies; null: it is to
   *   be read.
   */
  std::unique_ptr<Catalog_Entry> keep(const Work_Item& item);

  /// The sets that kept entries refer to, as the new commit record tells them.
  const std::vector<Chain_Link>& chain() const { return chain_; }

 private:
  bool go_to(const Work_Item& item);
  bool is_same(const Work_Item& item) const;
  uint32_t link_to(uint32_t set);

  const Base_Set& base_;
  const Run_State& state_;
  Catalog_Reader catalog_;
  Catalog_Entry old_;     // of the older set, the next one to look at
  bool has_old_ = false;  // old_ holds one
  bool ended_ = false;
  std::vector<Chain_Link> chain_;
  std::vector<uint32_t> numbers_;  // by Catalog_Entry::set in the older set: that in the new one, 0 not yet known
};

}  // namespace MTF_BACKUP
