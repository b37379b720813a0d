#include "mtf_backup/test/golden_listing.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <xxhash.h>

#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <sstream>

#include "support/temp_dir.h"

namespace mover_test {
namespace {

typedef std::set<std::string> Lines;

std::string hex(const std::string& bytes) {
  std::string text;
  for (const unsigned char c : bytes) {
    char digits[4];
    std::snprintf(digits, sizeof digits, c > 0x20 && c < 0x7f && c != '%' ? "%c" : "%%%02X", c);
    text += digits;
  }
  return text;
}

std::string hash_of(const std::string& bytes) {
  char text[17];
  std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(XXH3_64bits(bytes.data(), bytes.size())));
  return text;
}

/// Others are made by the system where the tree lies.
bool is_recorded(const std::string& attribute) {
  return attribute.starts_with("user.") || attribute.starts_with("system.posix_acl_") ||
         attribute == "security.capability";
}

std::string attributes_of(const char* path) {
  char names[4096];
  const ssize_t size = llistxattr(path, names, sizeof names);
  Lines attributes;
  for (ssize_t at = 0; at < size; at += static_cast<ssize_t>(strlen(names + at) + 1)) {
    char value[4096];
    const ssize_t length = lgetxattr(path, names + at, value, sizeof value);
    if (is_recorded(names + at))
      attributes.insert(std::string(names + at) + "=" + hex(std::string(value, length > 0 ? length : 0)));
  }
  std::string text;
  for (const std::string& attribute : attributes) text += " " + attribute;
  return text;
}

std::string content_of(const char* path, const struct stat& st) {
  std::ostringstream text;
  if (S_ISLNK(st.st_mode)) text << " -> " << hex(std::filesystem::read_symlink(path).string());
  if (S_ISCHR(st.st_mode) || S_ISBLK(st.st_mode)) text << " device " << major(st.st_rdev) << ':' << minor(st.st_rdev);
  if (S_ISREG(st.st_mode)) {
    text << ' ' << st.st_size << ' ' << hash_of(test_support::read_file(path));
    if (st.st_blocks * 512 < st.st_size / 2) text << " sparse";
  }
  return text.str();
}

std::string joined(const Lines& lines) {
  std::string text;
  for (const std::string& line : lines) text += line + "\n";
  return text;
}

}  // namespace

void for_each_entry(const std::string& root, const std::function<void(const FTSENT&)>& visit) {
  std::string path = root;
  char* const paths[] = {path.data(), nullptr};
  const std::unique_ptr<FTS, int (*)(FTS*)> walk(fts_open(paths, FTS_PHYSICAL, nullptr), fts_close);
  ASSERT_TRUE(walk) << strerror(errno);
  while (const FTSENT* const entry = fts_read(walk.get())) {
    if (entry->fts_info == FTS_D) continue;
    ASSERT_TRUE(entry->fts_info != FTS_ERR && entry->fts_info != FTS_DNR && entry->fts_info != FTS_NS)
        << entry->fts_path << ": " << strerror(entry->fts_errno);
    visit(*entry);
  }
}

std::string list_tree(const std::string& root) {
  Lines lines;
  std::map<ino_t, Lines> names;
  for_each_entry(root, [&](const FTSENT& entry) {
    const struct stat& st = *entry.fts_statp;
    const std::string name = entry.fts_level == 0 ? "." : hex(entry.fts_path + root.size() + 1);
    std::ostringstream line;
    line << name << ' ' << std::oct << st.st_mode << std::dec << ' ';
    if (geteuid() == 0) line << st.st_uid << ':' << st.st_gid << ' ';
    line << st.st_mtim.tv_sec << '.' << st.st_mtim.tv_nsec << attributes_of(entry.fts_accpath)
         << content_of(entry.fts_accpath, st);
    lines.insert(line.str());
    if (S_ISREG(st.st_mode) && st.st_nlink > 1) names[st.st_ino].insert(name);
  });
  Lines groups;
  for (const auto& [inode, group] : names) {
    std::string line = "one file:";
    for (const std::string& name : group) line += " " + name;
    groups.insert(line);
  }
  return joined(lines) + joined(groups);
}

std::string list_entry(const MTF_BACKUP::Catalog_Entry& entry) {
  std::ostringstream line;
  line << (entry.path.empty() ? "." : hex(entry.path)) << ' ' << std::oct << entry.stat.mode << std::dec << ' '
       << entry.stat.uid << ':' << entry.stat.gid << ' ' << entry.stat.size << ' ' << entry.stat.mtime.sec << '.'
       << entry.stat.mtime.nsec << " set " << entry.set << " channel " << entry.channel << " data " << entry.data_size
       << ' ' << std::hex << entry.data_hash << " attributes " << entry.xattr_hash << std::dec;
  if (!entry.link_target.empty()) line << " -> " << hex(entry.link_target);
  if (!entry.hard_link_target.empty()) line << " = " << hex(entry.hard_link_target);
  if (entry.flags != 0) line << " flags " << entry.flags << ' ' << hex(entry.reason);
  return line.str() + "\n";
}

}  // namespace mover_test
