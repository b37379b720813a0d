// What takes sets out of a pool: Set_Store's operations that have to know which set needs which.
#include <algorithm>
#include <cerrno>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "ace/Log_Msg.h"
#include "kolt/printable.h"
#include "mtf_backup/set/removal_marks.h"
#include "mtf_backup/set/set_key.h"
#include "mtf_backup/set/set_store.h"

namespace MTF_BACKUP {

namespace {

struct Known_Set {
  Set_Id id;
  std::vector<std::string> needs;  // directories of the sets in its chain
};
typedef std::map<std::string, Known_Set> Known_Sets;  // by directory

/// All sets among the keys whose record can be read: a damaged set needs none, since nothing brings it back.
bool read_needs(Set_Store& store, const std::vector<Set_Key>& keys, Known_Sets& sets) {
  for (const Set_Key& key : keys) {
    if (key.object != commit_name) continue;
    Commit_Record record;
    if (!store.read(key.dir(), record)) {
      if (errno == EBADMSG || errno == ENOENT) continue;
      return false;
    }
    Known_Set& known = sets[key.dir()];
    known.id = {record.name, key.seq, key.incarnation};
    for (Chain_Link& link : record.chain) known.needs.push_back(std::move(link.dir));
  }
  return true;
}

bool read_needs(Set_Store& store, Client_IO_Base& storage, const std::string& prefix, Known_Sets& sets) {
  std::vector<Set_Key> keys;
  return list_set_keys(storage, prefix, keys) && read_needs(store, keys, sets);
}

bool needs(const Known_Set& set, const std::string& dir) {
  return std::find(set.needs.begin(), set.needs.end(), dir) != set.needs.end();
}

/// Whether a set that stays needs one that is to go.
bool is_needed(const Known_Sets& sets, const std::set<std::string>& going) {
  for (const auto& [dir, set] : sets) {
    if (going.contains(dir)) continue;
    for (const std::string& need : set.needs) {
      if (!going.contains(need)) continue;
      ACE_ERROR((LM_ERROR, ACE_TEXT("Set %C is not removed: set %C builds on it.\n"), printable(need).c_str(),
                 printable(dir).c_str()));
      return true;
    }
  }
  return false;
}

/// One that no other of them needs. (Sets that need each other in a circle were made by nobody.)
std::string next_to_go(const Known_Sets& sets, const std::set<std::string>& going) {
  for (const std::string& dir : going) {
    const bool needed = std::any_of(going.begin(), going.end(), [&](const std::string& other) {
      const auto set = sets.find(other);
      return set != sets.end() && needs(set->second, dir);
    });
    if (!needed) return dir;
  }
  return *going.begin();
}

/// Adds the directories that hold objects, and of these the ones with a commit record.
bool list_dirs(Client_IO_Base& storage, std::set<std::string>& dirs, std::vector<Set_Key>& commits) {
  std::vector<Set_Key> keys;
  if (!list_set_keys(storage, "", keys)) return false;
  for (Set_Key& key : keys) {
    dirs.insert(key.dir());
    if (key.object == commit_name) commits.push_back(std::move(key));
  }
  return true;
}

}  // namespace

bool Set_Store::dependents(const Set_Id& id, std::vector<Set_Id>& sets) {
  Known_Sets known;
  if (!read_needs(*this, *storage_, encode_name(id.name) + "/", known)) return false;
  sets.clear();
  for (const auto& [dir, set] : known)
    if (needs(set, id.dir())) sets.push_back(set.id);
  return true;
}

bool Set_Store::remove(const std::vector<Set_Id>& sets, const std::function<bool(const Set_Id&)>& on_removed) {
  std::set<std::string> names;
  std::set<std::string> going;
  std::map<std::string, Set_Id> ids;  // by directory
  for (const Set_Id& id : sets) {
    names.insert(encode_name(id.name));
    going.insert(id.dir());
    ids.emplace(id.dir(), id);
  }
  Removal_Marks marks(*storage_);
  for (const std::string& dir : going)
    if (!marks.put(dir)) return false;
  // Read behind the marks: of a set that is committed later the writer sees them.
  Known_Sets known;
  for (const std::string& name : names)
    if (!read_needs(*this, *storage_, name + "/", known)) return false;
  if (is_needed(known, going)) {
    errno = EBUSY;
    return false;
  }
  while (!going.empty()) {
    const std::string dir = next_to_go(known, going);
    if (!marks.remove_set(dir)) return false;
    going.erase(dir);
    if (!on_removed(ids.at(dir)) && !going.empty()) {
      errno = ECANCELED;
      return false;
    }
  }
  return true;
}

bool Set_Store::discard(const Set_Id& id, const std::vector<Stored_Object>& objects) {
  const std::string prefix = id.dir() + "/";
  std::vector<Set_Key> keys;
  if (!list_set_keys(*storage_, prefix, keys)) return false;
  // Then it is somebody else's, who has won.
  if (std::any_of(keys.begin(), keys.end(), [](const Set_Key& key) { return key.object == commit_name; })) return true;
  return std::all_of(objects.begin(), objects.end(),
                     [&](const Stored_Object& object) { return storage_->remove(prefix + object.name); }) &&
         storage_->sweep(prefix);
}

bool Set_Store::sweep() {
  std::set<std::string> leftovers;
  std::vector<Set_Key> commits;
  if (!list_dirs(*storage_, leftovers, commits)) return false;
  for (const Set_Key& key : commits) leftovers.erase(key.dir());
  return (leftovers.empty() || sweep(leftovers)) && storage_->sweep("");
}

bool Set_Store::sweep(const std::set<std::string>& leftovers) {
  Removal_Marks marks(*storage_);
  for (const std::string& dir : leftovers)
    if (!marks.put(dir)) return false;
  // Listed behind the marks: of a set that is committed later the writer sees them.
  std::set<std::string> dirs;
  std::vector<Set_Key> commits;
  Known_Sets known;
  if (!list_dirs(*storage_, dirs, commits) || !read_needs(*this, commits, known)) return false;
  std::set<std::string> staying;
  for (const auto& [dir, set] : known) staying.insert(set.needs.begin(), set.needs.end());
  for (const Set_Key& key : commits) {
    const std::string dir = key.dir();
    staying.insert(dir);
    if (leftovers.contains(dir))
      ACE_ERROR((LM_WARNING, ACE_TEXT("Set %C was committed meanwhile and is not swept.\n"), printable(dir).c_str()));
  }
  for (const std::string& dir : leftovers) {
    if (staying.contains(dir))
      marks.lift(dir);
    else if (!marks.remove_set(dir))
      return false;
  }
  return true;
}

}  // namespace MTF_BACKUP
