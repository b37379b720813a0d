#include "mtf_backup/verify/set_check.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "mtf_backup/set/damage.h"
#include "mtf_backup/set/medium_index.h"
#include "mtf_backup/set/open_object.h"
#include "mtf_backup/set/set_key.h"
#include "mtf_backup/set/set_store.h"

namespace MTF_BACKUP {

namespace {

constexpr char catalog_object[] = "catalog";

}  // namespace

/// Whether a failure at an object leaves the others alone. One that nobody has told yet is told.
bool Set_Check::go_on(const std::string& key, uint64_t offset) const {
  const int error = errno;
  if (error != EBADMSG && error != ENOENT && error != EIO) return false;
  if (!findings_.knows(key)) tell_damage(key, offset, std::string("it cannot be read: ") + std::strerror(error));
  return true;
}

bool Set_Check::check_object(const std::string& key, uint64_t size) {
  return open_object(storage_, key, size) || go_on(key, 0);
}

bool Set_Check::check_objects() {
  if (!record_.find(catalog_object)) tell_damage(key_of(commit_name), 0, "it names no catalog");
  return std::all_of(record_.objects.begin(), record_.objects.end(),
                     [&](const Stored_Object& object) { return check_object(key_of(object.name), object.size); });
}

bool Set_Check::check_indexes(const Run_State& state) {
  for (unsigned channel = 0; channel < record_.channels; ++channel)
    if (!check_index(channel, state)) return false;
  return true;
}

bool Set_Check::check_index(unsigned channel, const Run_State& state) {
  const Medium_Id id{dir_, record_.set_uuid, channel, record_.compression};
  const std::string key = key_of(index_name(id));
  const Stored_Object* const medium = record_.find(medium_name(id));
  const Stored_Object* const index = record_.find(index_name(id));
  if (!medium || !index) {
    tell_damage(key_of(commit_name), 0, "it does not name the medium of channel " + std::to_string(channel));
    return true;
  }
  Index_Reader reader;
  if (!reader.open(storage_, id, index->size, medium->size)) return go_on(key, 0);
  uint64_t end = 0;   // of the frame before
  bool known = true;  // whether that is so
  for (uint64_t number = 0; number < reader.frames() && !state.stopping(); ++number) {
    Frame_Record frame;
    Damage damage;
    const uint64_t at = index_header_size + number * index_record_size;
    if (!reader.record(number, frame, damage)) {
      if (!damage.reason.empty())
        damage.tell();
      else if (!go_on(key, at))
        return false;
      known = false;
      continue;
    }
    if (known && frame.stored_offset != end) tell_damage(key, at, "a frame does not begin where the one before ends");
    end = frame.stored_offset + frame.stored_size;
    known = true;
  }
  if (known && !state.stopping() && end != medium->size)
    tell_damage(key, index->size - index_trailer_size, "the last frame does not end with its medium");
  return true;
}

bool Set_Check::check_chain() {
  return std::all_of(record_.chain.begin(), record_.chain.end(),
                     [&](const Chain_Link& link) { return check_link(link); });
}

bool Set_Check::check_link(const Chain_Link& link) {
  const std::string key = link.dir + '/' + commit_name;
  const std::shared_ptr<Client_IO_Base> borrowed(std::shared_ptr<void>(), &storage_);
  Commit_Record member;
  if (!Set_Store(borrowed).read(link.dir, member)) {
    if (errno == ENOENT) tell_missing(key);
    return go_on(key, 0);
  }
  if (member.set_uuid != link.set_uuid) {
    tell_damage(key, 0, "it is that of another set than was built on");
    return true;
  }
  return std::all_of(member.objects.begin(), member.objects.end(), [&](const Stored_Object& object) {
    return object.name == catalog_object || check_object(link.dir + '/' + object.name, object.size);
  });
}

bool Set_Check::check_catalog(const Run_State& state, const std::function<bool(const Catalog_Entry&)>& each) {
  const Stored_Object* const catalog = record_.find(catalog_object);
  if (!catalog) return true;
  const std::string key = key_of(catalog_object);
  Catalog_Reader reader(storage_, dir_, record_.set_uuid, catalog->size);
  if (!reader.open()) return go_on(key, 0);
  Catalog_Entry entry;
  uint64_t count = 0;
  int got = 0;
  while (!state.stopping() && (got = reader.next(entry)) > 0) {
    ++count;
    if (const char* reason = fault(entry))
      tell_damage(key, 0, std::string(reason) + ": " + entry.path);
    else if (!each(entry))
      return true;
  }
  if (state.stopping()) return true;
  if (got < 0) return go_on(key, 0);
  if (count != reader.entries()) tell_damage(key, catalog->size, "it has not as many entries as it says");
  // Nothing else looks at the index of blocks.
  return reader.seek(UINT32_MAX, "", true) || go_on(key, 0);
}

const char* Set_Check::fault(const Catalog_Entry& entry) const {
  if (entry.source >= record_.sources.size()) return "an entry lies in no source of the set";
  if (entry.set > record_.chain.size()) return "an entry lies in no set of the chain";
  if (entry.set == 0 && entry.channel >= record_.channels && !(entry.flags & CAT_SKIPPED))
    return "an entry lies on no medium of the set";
  return nullptr;
}

bool Set_Check::check_hash(Client_IO_Base& storage, const Stored_Object& object, Object_Hash& hash) {
  const std::string key = key_of(object.name);
  if (findings_.knows(key)) return true;
  const std::unique_ptr<Client_IO_Base::Reader> reader = storage.open(key);
  uint64_t offset = 0;
  if (!reader || !hash.finish(*reader, offset)) return go_on(key, offset);
  if (hash.text() != object.hash) tell_damage(key, 0, "it is not what was written");
  return true;
}

}  // namespace MTF_BACKUP
