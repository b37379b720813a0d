#include "mtf_backup/backup/base_set.h"

#include <cerrno>
#include <cstring>
#include <utility>

#include "kolt/printable.h"

namespace MTF_BACKUP {

namespace {

bool say(std::string& why, std::string text) {
  why = std::move(text);
  return false;
}

/// What errno says about a record that could not be had.
std::string why_not(int error) {
  if (error == ENOENT) return "is missing";
  if (error == EBADMSG) return "has a damaged commit record";
  if (error == ENOTSUP) return "was written by a newer program";
  return std::string("cannot be read (") + std::strerror(error) + ")";
}

std::string shown_set(const std::string& dir) {
  return "set " + printable(dir);
}

bool check_member(Set_Store& store, const Chain_Link& link, std::string& why) {
  Commit_Record record;
  const std::string set = shown_set(link.dir) + ", on which it builds,";
  if (!store.read(link.dir, record)) return say(why, set + ' ' + why_not(errno));
  if (record.set_uuid != link.set_uuid) return say(why, set + " was replaced by another one");
  return store.has_objects(link.dir, record, why);
}

}  // namespace

bool find_base(Set_Store& store, const std::string& name, uint32_t seq, const std::vector<std::string>& sources,
               Base_Set& base, std::string& why) {
  Set_Id id;
  Base_Set found;
  if (!store.find(name, seq, 0, id, found.record)) {
    const std::string set = "the set with number " + std::to_string(seq);
    return say(why, set + ' ' + (errno == ENOENT ? "does not exist" : why_not(errno)));
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
