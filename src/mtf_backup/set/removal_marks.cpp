#include "mtf_backup/set/removal_marks.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "ace/Log_Msg.h"
#include "kolt/printable.h"
#include "kolt/without_bad_alloc.h"
#include "mtf_backup/set/set_key.h"

namespace MTF_BACKUP {

namespace {

constexpr char mark_prefix[] = "condemned-";

std::string new_mark() {
  std::random_device random;
  char digits[17];
  std::snprintf(digits, sizeof digits, "%08x%08x", random(), random());
  return std::string(mark_prefix) + digits;
}

}  // namespace

bool is_mark(const std::string& object) {
  return object.starts_with(mark_prefix);
}

bool being_removed(const std::string& dir, std::string& problem) {
  problem = "the removal of set " + printable(dir) + " has begun";
  errno = EBUSY;
  return false;
}

bool has_no_mark(Client_IO_Base& storage, const std::string& dir, std::string& problem) {
  bool marked = false;
  const auto found = [&](const Client_IO_Base::Object_Info&) { return marked = true; };
  if (!list_below(storage, dir + "/" + mark_prefix, found)) {
    problem = "whether set " + printable(dir) + " is to be removed cannot be told (" + std::strerror(errno) + ")";
    return false;
  }
  return !marked || being_removed(dir, problem);
}

Removal_Marks::~Removal_Marks() {
  const int error = errno;
  (void)without_bad_alloc([this] {
    for (const auto& [dir, key] : keys_) (void)storage_.remove(key);
    return true;
  });
  errno = error;
}

bool Removal_Marks::put(const std::string& dir) {
  // Kept before it is there: a failure may leave it in doubt.
  const std::string& key = keys_[dir] = dir + "/" + new_mark();
  const std::unique_ptr<Client_IO_Base::Writer> writer = storage_.create(key);
  if (writer && writer->commit()) return true;
  if (errno != ENOSPC && errno != EDQUOT) return false;
  ACE_ERROR((LM_WARNING, ACE_TEXT("Set %C is removed without a mark, for want of space.\n"), printable(dir).c_str()));
  return true;
}

void Removal_Marks::lift(const std::string& dir) {
  const auto mark = keys_.find(dir);
  (void)storage_.remove(mark->second);  // one that stays makes nobody lose anything
  keys_.erase(mark);
}

bool Removal_Marks::remove_set(const std::string& dir) {
  keys_.erase(dir);
  std::vector<Set_Key> objects;
  if (!storage_.remove(dir + "/" + commit_name) || !list_set_keys(storage_, dir + "/", objects)) return false;
  std::stable_partition(objects.begin(), objects.end(), [](const Set_Key& key) { return !is_mark(key.object); });
  return std::all_of(objects.begin(), objects.end(),
                     [&](const Set_Key& key) { return storage_.remove(dir + "/" + key.object); });
}

}  // namespace MTF_BACKUP
