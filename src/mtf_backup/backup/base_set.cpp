#include "mtf_backup/backup/base_set.h"

#include <cerrno>
#include <utility>

#include "kolt/printable.h"

namespace MTF_BACKUP {

namespace {

bool say(std::string& why, std::string text) {
  why = std::move(text);
  return false;
}

std::string shown_set(const std::string& dir) {
  return "set " + printable(dir);
}

bool check_member(Set_Store& store, const Chain_Link& link, std::string& why) {
  Commit_Record record;
  return store.read_member(link, record, why) && store.has_objects(link.dir, record, why);
}

}  // namespace

bool find_base(Set_Store& store, const std::string& name, uint32_t seq, const std::vector<std::string>& sources,
               Base_Set& base, std::string& why) {
  Set_Id id;
  Base_Set found;
  if (!store.find(name, seq, 0, id, found.record)) {
    const std::string set = "the set with number " + std::to_string(seq);
    return say(why, set + ' ' + (errno == ENOENT ? "does not exist" : why_no_record(errno)));
  }
  found.dir = id.dir();
  if (found.record.sources != sources) return say(why, shown_set(found.dir) + " has other sources");
  std::string missing;
  bool whole = store.has_objects(found.dir, found.record, missing);
  for (const Chain_Link& link : found.record.chain) whole = whole && check_member(store, link, missing);
  if (!whole) return say(why, "of " + shown_set(found.dir) + ' ' + missing);
  base = std::move(found);
  return true;
}

}  // namespace MTF_BACKUP
