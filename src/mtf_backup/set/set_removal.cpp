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
#include "mtf_backup/set/set_key.h"
#include "mtf_backup/set/set_store.h"

namespace MTF_BACKUP {

namespace {

struct Known_Set {
  Set_Id id;
  std::vector<std::string> needs;  // directories of the sets in its chain
};
typedef std::map<std::string, Known_Set> Known_Sets;  // by directory

/// All sets below a prefix whose record can be read: a damaged set needs none, since nothing brings it back.
bool read_needs(Set_Store& store, Client_IO_Base& storage, const std::string& prefix, Known_Sets& sets) {
  std::vector<Set_Key> keys;
  if (!list_set_keys(storage, prefix, keys)) return false;
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

bool list_objects(Client_IO_Base& storage, const std::string& prefix, std::vector<std::string>& keys) {
  return storage.list(prefix, [&](const Client_IO_Base::Object_Info& info) {
    keys.push_back(info.key);
    return true;
  });
}

bool remove_all(Client_IO_Base& storage, const std::vector<std::string>& keys) {
  return std::all_of(keys.begin(), keys.end(), [&](const std::string& key) { return storage.remove(key); });
}

bool remove_set(Client_IO_Base& storage, const std::string& dir) {
  const std::string prefix = dir + "/";
  std::vector<std::string> keys;
  return storage.remove(prefix + commit_name) && list_objects(storage, prefix, keys) && remove_all(storage, keys);
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
  Known_Sets known;
  for (const std::string& name : names)
    if (!read_needs(*this, *storage_, name + "/", known)) return false;
  if (is_needed(known, going)) {
    errno = EBUSY;
    return false;
  }
  while (!going.empty()) {
    const std::string dir = next_to_go(known, going);
    if (!remove_set(*storage_, dir)) return false;
    going.erase(dir);
    if (!on_removed(ids.at(dir)) && !going.empty()) {
      errno = ECANCELED;
      return false;
    }
  }
  return true;
}

bool Set_Store::discard(const Set_Id& id) {
  const std::string prefix = id.dir() + "/";
  std::vector<std::string> keys;
  if (!list_objects(*storage_, prefix, keys)) return false;
  // Then it is somebody else's, who has won.
  if (std::find(keys.begin(), keys.end(), prefix + commit_name) != keys.end()) return true;
  return remove_all(*storage_, keys) && storage_->sweep(prefix);
}

bool Set_Store::sweep() {
  std::vector<Set_Key> keys;
  if (!list_set_keys(*storage_, "", keys)) return false;
  std::set<std::string> staying;
  for (const Set_Key& key : keys)
    if (key.object == commit_name) staying.insert(key.dir());
  std::erase_if(keys, [&](const Set_Key& key) { return staying.contains(key.dir()); });
  if (!keys.empty()) {
    Known_Sets known;
    if (!read_needs(*this, *storage_, "", known)) return false;
    for (const auto& [dir, set] : known) staying.insert(set.needs.begin(), set.needs.end());
  }
  for (const Set_Key& key : keys)
    if (!staying.contains(key.dir()) && !storage_->remove(key.dir() + "/" + key.object)) return false;
  return storage_->sweep("");
}

}  // namespace MTF_BACKUP
