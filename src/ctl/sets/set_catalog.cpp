#include "ctl/sets/set_catalog.h"

#include "ctl/failure.h"
#include "ctl/sets/set_name.h"
#include "mtf_backup/restore/selection.h"
#include "mtf_backup/set/set_path.h"

namespace ctl {

namespace {

/// Without empty and "." components, and without a '/' in front.
std::string plain_path(const std::string& path) {
  std::string plain;
  for (size_t begin = 0; begin < path.size();) {
    const size_t end = std::min(path.find('/', begin), path.size());
    const std::string name = path.substr(begin, end - begin);
    if (!name.empty() && name != ".") plain = MTF_BACKUP::join_names(plain, name);
    begin = end + 1;
  }
  return plain;
}

}  // namespace

Set_Catalog::Set_Catalog(const Pool& pool, const Pool_Set& set) : set_(set), storage_(pool.storage(set.key)) {
  const MTF_BACKUP::Stored_Object* const catalog = set.record.find("catalog");
  reader_ = std::make_unique<MTF_BACKUP::Catalog_Reader>(*storage_, set.key.set.dir(), set.record.set_uuid,
                                                         catalog ? catalog->size : 0);
  if (!reader_->open()) fail();
}

bool Set_Catalog::next(MTF_BACKUP::Catalog_Entry& entry) {
  const int got = reader_->next(entry);
  if (got < 0) fail();
  return got > 0;
}

std::string Set_Catalog::path(const MTF_BACKUP::Catalog_Entry& entry) const {
  const std::vector<std::string>& sources = set_.record.sources;
  return entry.source < sources.size() ? MTF_BACKUP::path_in_set(sources[entry.source], entry.path) : entry.path;
}

void Set_Catalog::fail() const {
  throw Failure(exit_pool, "The catalog of set " + set_label(set_.key) + " cannot be read.");
}

std::vector<Set_Path> places_of_path(const MTF_BACKUP::Commit_Record& record, const std::string& path) {
  const std::string plain = plain_path(path);
  std::vector<Set_Path> places;
  for (uint32_t i = 0; i < record.sources.size(); ++i) {
    const std::string source = plain_path(record.sources[i]);
    if (!path.starts_with('/'))
      places.push_back({i, plain});
    else if (source.empty() || MTF_BACKUP::lies_below(plain, source))
      places.push_back({i, plain_path(plain.substr(source.size()))});
  }
  return places;
}

}  // namespace ctl
