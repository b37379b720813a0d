#include "mtf_backup/restore/entry_differences.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "kolt/printable.h"
#include "kolt/string_sprintf.h"
#include "mtf/fs/unix/xattr.h"

namespace MTF_BACKUP {

bool is_access_list(const std::string& attribute) {
  return attribute == access_list || attribute == "system.posix_acl_default";
}

bool has_attribute(const MTF::Xattrs& attrs, const std::string& name) {
  return std::any_of(attrs.begin(), attrs.end(), [&](const auto& attr) { return attr.first == name; });
}

void Entry_Differences::add(const std::string& what, int error) {
  if (!text_.empty()) text_ += ", ";
  text_ += what;
  if (error != 0) text_ += std::string(" (") + std::strerror(error) + ')';
}

void Entry_Differences::owner(const MTF::Entry_Stat& stat, const struct stat& now, int error) {
  if (now.st_uid == stat.uid && now.st_gid == stat.gid) return;
  add(string_sprintf("owner %u:%u instead of %u:%u", now.st_uid, now.st_gid, stat.uid, stat.gid), error);
}

void Entry_Differences::mode(const MTF::Entry_Stat& stat, const struct stat& now, int error) {
  const unsigned is = now.st_mode & 07777;
  const unsigned was = stat.mode & 07777;
  if (is == was || S_ISLNK(stat.mode)) return;
  add(string_sprintf("mode %04o instead of %04o", is, was), error);
}

void Entry_Differences::times_and_size(const MTF::Entry_Stat& stat, const struct stat& now, int error) {
  if (now.st_mtim.tv_sec != stat.mtime.sec || now.st_mtim.tv_nsec != static_cast<long>(stat.mtime.nsec))
    add("another modification time", error);
  const uint64_t size = static_cast<uint64_t>(now.st_size);
  if (!S_ISREG(stat.mode) || size == stat.size) return;
  add(string_sprintf("%llu bytes instead of %llu", static_cast<unsigned long long>(size),
                     static_cast<unsigned long long>(stat.size)),
      0);
  is_loss_ = true;
}

void Entry_Differences::attributes(const char* path, const MTF::Xattrs& attrs, int error) {
  MTF::Xattrs found;
  std::string names;
  const bool readable = MTF_FS::read_xattrs(path, found);
  if (!readable && error == 0) error = errno;
  for (const auto& attr : attrs)
    if (!std::binary_search(found.begin(), found.end(), attr)) names += ' ' + printable(attr.first);
  for (const auto& attr : found)
    if (is_access_list(attr.first) && !has_attribute(attrs, attr.first)) names += " no " + attr.first;
  if (names.empty() && readable) return;
  add("without the extended attributes" + names, error);
  is_loss_ = true;
}

}  // namespace MTF_BACKUP
