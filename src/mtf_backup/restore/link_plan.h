#pragma once

#include <string>
#include <unordered_map>

#include "mtf_backup/restore/restore_job.h"
#include "mtf_backup/set/catalog_reader.h"

namespace MTF_BACKUP {

/**
 * Decides what becomes of the further names of a file: links where the first name is restored too and lies below the
 * same root; otherwise the data goes under one of them, and the others are links to that one.
 *
 * Memory: one path per file whose first name is not restored. Threads: one at a time.
 */
class Link_Plan {
 public:
  /// @param catalog  open, and used by nobody else.
  Link_Plan(Restore_Job& job, Catalog_Reader& catalog) : job_(job), catalog_(catalog) {}

  enum Kind { LINK, DATA, BROKEN, STOPPED };

  /**
   * Called for every item with a hard_link_target, in catalog order, before any link is made.
   *
   * @param item  DATA: its entry then says where the data lies.
   * @return LINK: comes later. DATA: to be restored as a file. BROKEN: the first name is nothing to link to; not
   * logged.
   */
  Kind plan(Restore_Item& item);

  /// Called in the same order once all files are in place: what the item is to be linked to.
  /// @return LINK: @a old tells it and @a old_path is its path in the set. DATA: nothing is left to do.
  Kind source_of(const Restore_Item& item, Target& old, std::string& old_path);

 private:
  struct Stand_In {
    std::string path;  // in the set
    Target target;
  };

  bool is_restored(const Restore_Item& item, Target& first);
  int find_first(const Restore_Item& item, Catalog_Entry& first);

  Restore_Job& job_;
  Catalog_Reader& catalog_;
  std::unordered_map<std::string, Stand_In> stand_ins_;  // by the first name's path in the set
};

}  // namespace MTF_BACKUP
