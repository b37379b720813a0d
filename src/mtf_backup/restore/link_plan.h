#pragma once

#include <string>
#include <unordered_map>
#include <vector>

#include "mtf_backup/restore/restore_job.h"
#include "mtf_backup/set/catalog_reader.h"

namespace MTF_BACKUP {

/**
 * Decides what becomes of the further names of a file, below each root for itself: links where the first name is
 * restored there too; otherwise the data goes under one of them, and the others are links to that one. So a file whose
 * names go to several roots becomes several files, which the tally is told.
 *
 * Memory: one path per file and root below which its first name is not restored. Threads: one at a time.
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

  bool locate_first(const Restore_Item& item, Target& first);
  static const Stand_In* find(const std::vector<Stand_In>& stand_ins, const Target& target);
  int find_first(const Restore_Item& item, Catalog_Entry& first);

  Restore_Job& job_;
  Catalog_Reader& catalog_;
  std::unordered_map<std::string, std::vector<Stand_In>> stand_ins_;  // by the first name's path in the set
};

}  // namespace MTF_BACKUP
