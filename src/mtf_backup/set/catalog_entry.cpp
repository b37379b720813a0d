#include "mtf_backup/set/catalog_entry.h"

#include <string_view>

#include "kolt/printable.h"

namespace MTF_BACKUP {

namespace {

struct Component {
  std::string_view name;
  bool directory;  // a directory itself, or something below it follows
};

// Takes the first component off a path that is not empty.
Component first_component(std::string_view& path, bool directory) {
  const size_t slash = path.find('/');
  const Component component{path.substr(0, slash), slash != path.npos || directory};
  path.remove_prefix(slash == path.npos ? path.size() : slash + 1);
  return component;
}

const char* missing_part(uint32_t flags) {
  if (flags & CAT_SKIPPED) return "it is";
  if (!(flags & CAT_BARE)) return "some of its data is";
  return flags & CAT_CORRUPT ? "some of its data and its extended attributes are" : "its extended attributes are";
}

}  // namespace

std::string missing_text(const Catalog_Entry& entry) {
  if (!(entry.flags & (CAT_SKIPPED | CAT_CORRUPT | CAT_BARE))) return "";
  std::string text = std::string(missing_part(entry.flags)) + " not in the set";
  if (!entry.reason.empty()) text += " (" + printable(entry.reason) + ")";
  return text;
}

int catalog_order(uint32_t source_a, const std::string& path_a, bool directory_a, uint32_t source_b,
                  const std::string& path_b, bool directory_b) {
  if (source_a != source_b) return source_a < source_b ? -1 : 1;
  std::string_view a = path_a;
  std::string_view b = path_b;
  while (!a.empty() && !b.empty()) {
    const Component ours = first_component(a, directory_a);
    const Component theirs = first_component(b, directory_b);
    if (ours.directory != theirs.directory) return theirs.directory ? -1 : 1;
    if (const int order = ours.name.compare(theirs.name)) return order;
  }
  return static_cast<int>(!a.empty()) - static_cast<int>(!b.empty());
}

int catalog_order(const Catalog_Entry& a, const Catalog_Entry& b) {
  return catalog_order(a.source, a.path, a.is_directory(), b.source, b.path, b.is_directory());
}

}  // namespace MTF_BACKUP
