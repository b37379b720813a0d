#include "mtf_backup/restore/selection.h"

#include <algorithm>

#include "ace/Log_Msg.h"
#include "json_spirit/extract.h"

namespace MTF_BACKUP {

namespace {

std::string without_end(std::string path) {
  while (!path.empty() && path.back() == '/') path.pop_back();
  return path;
}

}  // namespace

bool lies_below(const std::string& path, const std::string& dir) {
  const size_t size = dir == "/" ? 0 : dir.size();
  return path.compare(0, size, dir, 0, size) == 0 && (size == 0 || path.size() == size || path[size] == '/');
}

bool Selection::open(const json_spirit::Array* select) {
  everything_ = select == nullptr;
  if (everything_) return true;
  for (const json_spirit::Value& value : *select) {
    const json_spirit::String_type* dir = nullptr;
    if (value.type() == json_spirit::obj_type) json_spirit::extract(value.get_obj())("dir", dir);
    if (!dir) {
      ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to start the restore: an element of the selection has no dir.\n")));
      return false;
    }
    dirs_.push_back(without_end(*dir));
  }
  return true;
}

bool Selection::contains(const std::string& path) const {
  return everything_ ||
         std::any_of(dirs_.begin(), dirs_.end(), [&](const std::string& dir) { return lies_below(path, dir); });
}

}  // namespace MTF_BACKUP
