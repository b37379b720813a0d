#include "mtf_backup/set/set_store.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <vector>

#include "ace/Log_Msg.h"
#include "client_io/encrypted_layout.h"
#include "kolt/printable.h"
#include "kolt/without_bad_alloc.h"
#include "mtf_backup/set/damage.h"
#include "mtf_backup/set/hash.h"
#include "mtf_backup/set/open_object.h"
#include "mtf_backup/set/percent.h"
#include "mtf_backup/set/removal_marks.h"
#include "mtf_backup/set/set_key.h"

namespace MTF_BACKUP {

namespace {

constexpr size_t max_component = 255;
constexpr uint64_t max_record_size = uint64_t(64) << 20;

// The keys of commit records below a prefix, in the order of the sets.
bool list_commits(Client_IO_Base& storage, const std::string& prefix, std::vector<Set_Key>& keys) {
  if (!list_set_keys(storage, prefix, keys)) return false;
  std::erase_if(keys, [](const Set_Key& key) { return key.object != commit_name; });
  std::sort(keys.begin(), keys.end(), [](const Set_Key& a, const Set_Key& b) { return a.order() < b.order(); });
  return true;
}

std::string prefix_of(const std::string& name, uint32_t seq) {
  return encode_name(name) + "/" + seq_part(seq);
}

// Reads a record and makes sure that it is the one of this place. A missing one is not logged.
bool load_commit(Client_IO_Base& storage, const Set_Key& key, Commit_Record& record) {
  const std::string name = key.dir() + "/" + commit_name;
  const std::unique_ptr<Client_IO_Base::Reader> reader = storage.open(name);
  if (!reader) return false;
  if (reader->size() > max_record_size) return tell_damage(name, 0, "it is longer than a commit record can be");
  std::string text(static_cast<size_t>(reader->size()), '\0');
  if (!read_exactly(*reader, name, 0, text.data(), text.size())) return false;
  if (client_io::looks_encrypted(text.data(), text.size()))
    return tell_damage(name, 0, "it is encrypted, but its pool has no cipher");
  if (!record.from_text(text, name)) return false;
  const Set_Key stated{encode_name(record.name), record.seq, record.incarnation, {}};
  return stated.order() == key.order() || tell_damage(name, 0, "it is that of another set");
}

// As load_commit() for one that was listed.
bool read_commit(Client_IO_Base& storage, const Set_Key& key, Commit_Record& record) {
  return load_commit(storage, key, record) || (errno == ENOENT && tell_missing(key.dir() + "/" + commit_name));
}

bool is_whole(Client_IO_Base& storage, const std::string& dir, const Commit_Record& record) {
  return std::all_of(record.objects.begin(), record.objects.end(), [&](const Stored_Object& object) {
    return open_object(storage, dir + "/" + object.name, object.size) != nullptr;
  });
}

// Somebody may have removed a set while another was made that builds on it.
bool has_chain(Client_IO_Base& storage, const Commit_Record& record) {
  return std::all_of(record.chain.begin(), record.chain.end(), [&](const Chain_Link& link) {
    const std::string key = link.dir + "/" + commit_name;
    return storage.open(key) != nullptr || (errno == ENOENT && tell_missing(key));
  });
}

bool tell_exists(const std::string& key) {
  ACE_ERROR((LM_ERROR, ACE_TEXT("Object \"%C\" exists already.\n"), printable(key).c_str()));
  errno = EEXIST;
  return false;
}

bool ended_by_callback() {
  errno = ECANCELED;
  return false;
}

}  // namespace

std::string Set_Id::dir() const {
  return set_dir(encode_name(name), seq, incarnation);
}

std::string encode_name(const std::string& name) {
  std::string encoded = percent_encode(name, " !\"#$&'()*+,/:;<=>?@[\\]^`{|}~");
  if (encoded.starts_with('.')) encoded.replace(0, 1, "%2E");
  if (encoded.size() <= max_component) return encoded;
  const std::string hash = hash_text(XXH3_128bits(name.data(), name.size()));
  return encoded.substr(0, max_component - 1 - hash.size()) + "%" + hash;
}

std::string why_no_record(int error) {
  if (error == ENOENT) return "is missing";
  if (error == EBADMSG) return "has a damaged commit record";
  if (error == ENOTSUP) return "was written by a newer program";
  return std::string("cannot be read (") + std::strerror(error) + ")";
}

Set_Store::Set_Store(std::shared_ptr<Client_IO_Base> storage) : storage_(std::move(storage)) {}

bool Set_Store::list(const Callback& each) {
  std::vector<Set_Key> keys;
  if (!list_commits(*storage_, "", keys)) return false;
  bool whole = true;
  for (const Set_Key& key : keys) {
    Commit_Record record;
    if (!read_commit(*storage_, key, record)) {
      if (errno != EBADMSG && errno != ENOTSUP) return false;
      whole = false;
    } else if (!each({record.name, key.seq, key.incarnation}, record)) {
      return ended_by_callback();
    }
  }
  if (!whole) errno = EBADMSG;
  return whole;
}

bool Set_Store::read(const std::string& dir, Commit_Record& record) {
  Set_Key key;
  Commit_Record found;
  if (!parse_set_key(dir + "/" + commit_name, key)) {
    errno = ENOENT;
    return false;
  }
  if (!load_commit(*storage_, key, found)) return false;
  record = std::move(found);
  return true;
}

bool Set_Store::find(const std::string& name, uint32_t seq, uint32_t incarnation, Set_Id& id, Commit_Record& record) {
  std::vector<Set_Key> keys;
  if (!list_commits(*storage_, prefix_of(name, seq), keys)) return false;
  if (incarnation != 0) std::erase_if(keys, [&](const Set_Key& key) { return key.incarnation != incarnation; });
  if (keys.empty()) {
    errno = ENOENT;
    return false;
  }
  Commit_Record found;
  if (!read_commit(*storage_, keys.back(), found)) return false;
  id = {name, seq, keys.back().incarnation};
  record = std::move(found);
  return true;
}

bool Set_Store::begin(const std::string& name, uint32_t seq, Set_Id& id) {
  std::vector<Set_Key> keys;
  if (!list_set_keys(*storage_, prefix_of(name, seq), keys)) return false;
  uint32_t highest = 0;
  for (const Set_Key& key : keys) highest = std::max(highest, key.incarnation);
  if (highest == UINT32_MAX) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("There is no incarnation after the last one of set %C with number %u.\n"),
               printable(name).c_str(), seq));
    errno = EOVERFLOW;
    return false;
  }
  id = {name, seq, highest + 1};
  return true;
}

bool Set_Store::has_objects(const std::string& dir, const Commit_Record& record, std::string& problem) {
  std::map<std::string, uint64_t> sizes;
  const std::string prefix = dir + "/";
  bool marked = false;
  const auto keep = [&](const Client_IO_Base::Object_Info& info) {
    const std::string name = info.key.substr(prefix.size());
    sizes[name] = info.size;
    marked = marked || is_mark(name);
    return true;
  };
  if (!list_below(*storage_, prefix, keep)) {
    problem = std::string("the objects cannot be listed (") + std::strerror(errno) + ")";
    return false;
  }
  if (marked) return being_removed(dir, problem);
  for (const Stored_Object& object : record.objects) {
    const auto found = sizes.find(object.name);
    if (found != sizes.end() && found->second == object.size) continue;
    problem =
        "object " + printable(prefix + object.name) + (found == sizes.end() ? " is missing" : " has another size");
    errno = found == sizes.end() ? ENOENT : EBADMSG;
    return false;
  }
  return true;
}

bool Set_Store::read_member(const Chain_Link& link, Commit_Record& record, std::string& problem) {
  const std::string set = "set " + printable(link.dir) + ", on which it builds,";
  Commit_Record found;
  if (!read(link.dir, found)) {
    problem = set + ' ' + why_no_record(errno);
    return false;
  }
  if (found.set_uuid != link.set_uuid) {
    problem = set + " was replaced by another one";
    errno = EBADMSG;
    return false;
  }
  record = std::move(found);
  return true;
}

/// Marks are looked for before what they protect: once a removal is through its mark is gone, and so is the rest.
bool Set_Store::stands(const std::string& dir, const Commit_Record& record, std::string& problem) {
  Commit_Record member;
  return has_no_mark(*storage_, dir, problem) && has_objects(dir, record, problem) &&
         std::all_of(record.chain.begin(), record.chain.end(), [&](const Chain_Link& link) {
           return has_no_mark(*storage_, link.dir, problem) && read_member(link, member, problem);
         });
}

bool Set_Store::commit(const Set_Id& id, const Commit_Record& record) {
  const std::string key = id.dir() + "/" + commit_name;
  if (storage_->open(key)) return tell_exists(key);
  if (errno != ENOENT || !is_whole(*storage_, id.dir(), record) || !has_chain(*storage_, record)) return false;
  Commit_Record stored = record;
  stored.name = id.name;
  stored.seq = id.seq;
  stored.incarnation = id.incarnation;
  const std::string text = stored.to_text();
  const std::unique_ptr<Client_IO_Base::Writer> writer = storage_->create(key);
  if (!writer || !writer->write(text.data(), text.size()) || !writer->commit()) return false;
  std::string problem;
  if (without_bad_alloc([&] { return stands(id.dir(), stored, problem); })) return true;
  const int error = errno;
  const bool taken_back = storage_->remove(key);
  if (error != ECANCELED && error != ENOMEM)
    ACE_ERROR((LM_ERROR, ACE_TEXT("Set %C is given up: %C.\n"), printable(id.dir()).c_str(), problem.c_str()));
  if (!taken_back)
    ACE_ERROR((LM_ERROR, ACE_TEXT("Set %C cannot be taken back and stands.\n"), printable(id.dir()).c_str()));
  errno = error;
  return false;
}

}  // namespace MTF_BACKUP
