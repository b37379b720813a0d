#include "mtf_backup/set/directory_list.h"

#include "mtf_backup/restore/selection.h"

namespace MTF_BACKUP {

namespace {

/// So many entries of a subtree are read before the rest of it is skipped: about as many as a block of a catalog holds.
constexpr unsigned near_by = 1000;

std::string directory_of(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

}  // namespace

int list_directory(Catalog_Reader& catalog, uint32_t source, const std::string& path, const Entry_Callback& each) {
  Catalog_Entry entry;
  int got = catalog.find(source, path, entry);
  if (got < 1) return got;
  if (!entry.is_directory()) {
    each(entry);
    return 1;
  }
  std::string last;     // the directory shown last
  unsigned passed = 0;  // entries below it
  while ((got = catalog.next(entry)) > 0) {
    if (entry.source != source || !(path.empty() || lies_below(entry.path, path))) break;
    if (directory_of(entry.path) == path) {
      each(entry);
      last = entry.path;
      passed = 0;
    } else if (++passed == near_by) {
      // No name comes between this one and all that lies below it: names hold no NUL.
      if (!catalog.seek(source, last + '\0', true)) return -1;
      passed = 0;
    }
  }
  return got < 0 ? -1 : 1;
}

}  // namespace MTF_BACKUP
