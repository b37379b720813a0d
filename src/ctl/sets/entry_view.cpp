#include "ctl/sets/entry_view.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <cinttypes>
#include <cstdio>

#include "ctl/human.h"
#include "ctl/sets/bytes.h"
#include "json_spirit/assign.h"
#include "kolt/printable.h"

namespace ctl {

using MTF_BACKUP::Catalog_Entry;

namespace {

char type_letter(uint32_t mode) {
  switch (mode & S_IFMT) {
    case S_IFDIR:
      return 'd';
    case S_IFLNK:
      return 'l';
    case S_IFCHR:
      return 'c';
    case S_IFBLK:
      return 'b';
    case S_IFIFO:
      return 'p';
    case S_IFSOCK:
      return 's';
    default:
      return '-';
  }
}

const char* type_name(uint32_t mode) {
  switch (mode & S_IFMT) {
    case S_IFDIR:
      return "directory";
    case S_IFLNK:
      return "link";
    case S_IFCHR:
      return "character device";
    case S_IFBLK:
      return "block device";
    case S_IFIFO:
      return "fifo";
    case S_IFSOCK:
      return "socket";
    default:
      return "file";
  }
}

bool is_device(uint32_t mode) {
  return S_ISCHR(mode) || S_ISBLK(mode);
}

/// The size, or the numbers of a device.
std::string size_text(const MTF::Entry_Stat& stat) {
  if (!is_device(stat.mode)) return std::to_string(stat.size);
  return std::to_string(gnu_dev_major(stat.rdev)) + ", " + std::to_string(gnu_dev_minor(stat.rdev));
}

json_spirit::Array flag_names(uint32_t flags) {
  json_spirit::Array names;
  if (flags & MTF_BACKUP::CAT_CORRUPT) names.emplace_back("corrupt");
  if (flags & MTF_BACKUP::CAT_CHANGED) names.emplace_back("changed");
  if (flags & MTF_BACKUP::CAT_SKIPPED) names.emplace_back("skipped");
  if (flags & MTF_BACKUP::CAT_BARE) names.emplace_back("bare");
  return names;
}

}  // namespace

std::string mode_text(uint32_t mode) {
  std::string text(1, type_letter(mode));
  for (int shift = 6; shift >= 0; shift -= 3) {
    const uint32_t bits = mode >> shift;
    text += bits & 4 ? 'r' : '-';
    text += bits & 2 ? 'w' : '-';
    text += bits & 1 ? 'x' : '-';
  }
  if (mode & S_ISUID) text[3] = text[3] == 'x' ? 's' : 'S';
  if (mode & S_ISGID) text[6] = text[6] == 'x' ? 's' : 'S';
  if (mode & S_ISVTX) text[9] = text[9] == 'x' ? 't' : 'T';
  return text;
}

std::string entry_line(const Catalog_Entry& entry, const std::string& shown) {
  const MTF::Entry_Stat& stat = entry.stat;
  char front[120];
  std::snprintf(front, sizeof front, "%s %3" PRIu64 " %6u %6u %12s %s ", mode_text(stat.mode).c_str(), stat.nlink,
                stat.uid, stat.gid, size_text(stat).c_str(), human_time(stat.mtime.sec).c_str());
  std::string line = front + printable(shown);
  if (!entry.link_target.empty()) line += " -> " + printable(entry.link_target);
  if (!entry.hard_link_target.empty()) line += " = " + printable(entry.hard_link_target);
  if (!entry.reason.empty()) line += " (" + printable(entry.reason) + ")";
  return line;
}

json_spirit::Object entry_document(const Catalog_Entry& entry, const std::string& path) {
  const MTF::Entry_Stat& stat = entry.stat;
  json_spirit::Object document;
  insert_bytes(document, "path", path);
  json_spirit::insert(document)("type", type_name(stat.mode))("mode", stat.mode & 07777u)("uid", stat.uid)(
      "gid", stat.gid)("size", stat.size)("mtime", stat.mtime.sec)("mtime_nsec", stat.mtime.nsec)("links", stat.nlink);
  if (is_device(stat.mode))
    json_spirit::insert(document)("major", gnu_dev_major(stat.rdev))("minor", gnu_dev_minor(stat.rdev));
  if (!entry.link_target.empty()) insert_bytes(document, "link_target", entry.link_target);
  if (!entry.hard_link_target.empty()) insert_bytes(document, "hard_link_target", entry.hard_link_target);
  if (entry.flags != 0) json_spirit::insert(document)("flags", flag_names(entry.flags))("reason", entry.reason);
  return document;
}

}  // namespace ctl
