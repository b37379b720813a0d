#include "ctl/pool_sets.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "ctl/failure.h"
#include "kolt/pool_info.h"
#include "mtf_backup/channel_factory.h"
#include "mtf_backup/set/set_store.h"

namespace ctl {

namespace {

namespace fs = std::filesystem;

constexpr char file_scheme[] = "file://";

/// The names of the directories in @a path, sorted, or just @a only if it is not empty.
std::vector<std::string> children(const fs::path& path, const std::string& only) {
  if (!only.empty()) return {only};
  std::vector<std::string> names;
  std::error_code error;
  for (fs::directory_iterator i(path, error), end; !error && i != end; i.increment(error))
    if (i->is_directory() && i->path().filename().string()[0] != '.') names.push_back(i->path().filename());
  if (error) throw Failure(exit_pool, "The pool cannot be read: " + path.string() + ": " + error.message() + ".");
  std::sort(names.begin(), names.end());
  return names;
}

Set_Info info_of(const Set_Place& place, const MTF_BACKUP::Set_Id& id, const MTF_BACKUP::Commit_Record& record) {
  Set_Info info;
  info.host = place.host;
  info.resource = place.resource;
  info.name = id.name;
  info.seq = id.seq;
  info.incarnation = id.incarnation;
  info.time = record.begin_time;
  info.files = record.summary.file_count;
  info.size = record.summary.total_size;
  info.stored_size = record.summary.storage_size;
  info.compression = record.compression;
  return info;
}

void list_resource(const Set_Place& place, std::vector<Set_Info>& sets) {
  Pool_Info pool;
  pool.url = place.pool;
  const auto factory = MTF_BACKUP::make_channel_factory(pool, place.host + '/' + place.resource, {});
  const auto storage = factory ? factory->storage() : nullptr;
  if (!storage) throw Failure(exit_pool, "The pool " + place.pool + " cannot be read.");
  const bool all = MTF_BACKUP::Set_Store(storage).list([&](const auto& id, const auto& record) {
    sets.push_back(info_of(place, id, record));
    return true;
  });
  if (!all && errno != EBADMSG)
    throw Failure(exit_pool, "The pool " + place.pool + " cannot be read: " + std::strerror(errno) + ".");
}

bool is_one_of(const Set_Info& set, const std::vector<Volume>& volumes) {
  return std::any_of(volumes.begin(), volumes.end(), [&](const Volume& volume) { return volume.name == set.name; });
}

}  // namespace

bool is_readable_pool(const std::string& pool_url) {
  return pool_url.rfind(file_scheme, 0) == 0;
}

std::vector<Set_Info> list_sets(const Set_Place& place) {
  if (!is_readable_pool(place.pool))
    throw Failure(exit_pool, "Only pools of the form file:///DIR can be read here, not '" + place.pool + "'.");
  const fs::path root = place.pool.substr(sizeof file_scheme - 1);
  std::vector<Set_Info> sets;
  for (const std::string& host : children(root, place.host)) {
    // A place that was named need not exist yet; then it has no sets.
    if (!fs::exists(root / host)) continue;
    for (const std::string& resource : children(root / host, place.resource))
      list_resource({place.pool, host, resource}, sets);
  }
  return sets;
}

uint32_t next_seq(const std::vector<Set_Info>& sets, const std::vector<Volume>& volumes) {
  uint32_t newest = 0;
  for (const Set_Info& set : sets)
    if (is_one_of(set, volumes)) newest = std::max(newest, set.seq);
  return newest + 1;
}

uint64_t size_of_sets(const std::vector<Set_Info>& sets, const std::vector<Volume>& volumes, uint32_t seq,
                      uint32_t incarnation) {
  uint64_t size = 0;
  for (const Volume& volume : volumes) {
    const Set_Info* found = nullptr;  // the last one that fits: incarnations are in ascending order
    for (const Set_Info& set : sets)
      if (set.name == volume.name && set.seq == seq && (incarnation == 0 || set.incarnation == incarnation))
        found = &set;
    if (found == nullptr)
      throw Failure(exit_pool,
                    "There is no set '" + volume.name + "' with number " + std::to_string(seq) + " in the pool.");
    size += found->size;
  }
  return size;
}

}  // namespace ctl
