#include "mtf_backup/export/tar_format.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "mtf_backup/set/set_path.h"

namespace MTF_BACKUP {

namespace {

constexpr size_t record_size = 512;
constexpr size_t archive_block = 20 * record_size;
constexpr size_t name_size = 100;
constexpr uint64_t max_id = 07777777;
constexpr uint64_t max_number = 077777777777;

std::string member_name(const std::string& path_in_set, bool directory) {
  std::string name = path_in_set.substr(std::min(path_in_set.find_first_not_of('/'), path_in_set.size()));
  if (name.empty()) name = ".";
  return directory ? name + '/' : name;
}

bool is_plain(const std::string& text) {
  return text.size() <= name_size &&
         std::all_of(text.begin(), text.end(), [](unsigned char c) { return c >= 0x20 && c < 0x7f; });
}

char type_of(const MTF::Entry& entry) {
  if (!entry.hard_link_target.empty()) return '1';
  switch (entry.stat.mode & S_IFMT) {
    case S_IFLNK:
      return '2';
    case S_IFCHR:
      return '3';
    case S_IFBLK:
      return '4';
    case S_IFDIR:
      return '5';
    case S_IFIFO:
      return '6';
    default:
      return '0';
  }
}

/// Seconds with a fraction, as a decimal number: what counts forward from a negative second is a smaller fraction back.
std::string time_text(const MTF::Timestamp& time) {
  const bool back = time.sec < 0 && time.nsec > 0;
  const int64_t whole = back ? time.sec + 1 : time.sec;
  char text[40];
  std::snprintf(text, sizeof text, "%s%" PRIu64 ".%09u", time.sec < 0 ? "-" : "",
                whole < 0 ? 0 - static_cast<uint64_t>(whole) : static_cast<uint64_t>(whole),
                back ? 1000000000 - time.nsec : time.nsec);
  return text;
}

/// A '=' would end the keyword.
std::string xattr_keyword(const std::string& name) {
  std::string keyword = "SCHILY.xattr.";
  for (const char c : name) keyword += c == '=' ? "%3D" : c == '%' ? "%25" : std::string(1, c);
  return keyword;
}

/// "<length> <keyword>=<value>\n", where the length counts itself.
std::string extended_record(const std::string& keyword, const std::string& value) {
  const std::string rest = ' ' + keyword + '=' + value + '\n';
  size_t length = rest.size();
  for (size_t digits = 0; digits != std::to_string(length).size(); length = rest.size() + digits)
    digits = std::to_string(length).size();
  return std::to_string(length) + rest;
}

/// All of the field but a NUL at its end. The callers know that the value fits.
void set_octal(char* field, size_t width, uint64_t value) {
  field[--width] = '\0';
  for (; width > 0; value >>= 3) field[--width] = static_cast<char>('0' + (value & 7));
}

/// The map in front of the data of a file with holes, which ends with its size.
std::string sparse_map(const Export_Entry& entry) {
  std::vector<Extent> extents = entry.extents;
  if (extents.empty() || extents.back().at + extents.back().size < entry.size) extents.push_back({entry.size, 0});
  std::string map = std::to_string(extents.size()) + '\n';
  for (const Extent& extent : extents) map += std::to_string(extent.at) + '\n' + std::to_string(extent.size) + '\n';
  map.resize((map.size() + record_size - 1) / record_size * record_size);
  return map;
}

uint64_t data_size(const Export_Entry& entry) {
  if (!entry.sparse) return entry.size;
  uint64_t size = 0;
  for (const Extent& extent : entry.extents) size += extent.size;
  return size;
}

}  // namespace

bool Tar_Format::source(const std::string& path) {
  source_ = path;
  return true;
}

bool Tar_Format::takes(const MTF::Entry& entry) const {
  return !S_ISSOCK(entry.stat.mode);
}

bool Tar_Format::entry(const Export_Entry& exported) {
  const MTF::Entry& entry = exported.entry;
  Header header;
  header.stat = &entry.stat;
  header.type = type_of(entry);
  header.name = member_name(path_in_set(source_, entry.path), header.type == '5');
  header.link = header.type == '1' ? member_name(entry.hard_link_target, false) : entry.link_target;
  const std::string map = exported.sparse ? sparse_map(exported) : std::string();
  header.size = map.size() + data_size(exported);

  Records records;
  for (const auto& [name, value] : entry.xattrs) records.emplace_back(xattr_keyword(name), value);
  if (exported.sparse) {
    records.emplace_back("GNU.sparse.major", "1");
    records.emplace_back("GNU.sparse.minor", "0");
    records.emplace_back("GNU.sparse.name", header.name);
    records.emplace_back("GNU.sparse.realsize", std::to_string(exported.size));
    header.name = "GNUSparseFile.0/" + header.name;
  }
  if (!is_plain(header.name)) records.emplace_back("path", header.name);
  if (!is_plain(header.link)) records.emplace_back("linkpath", header.link);
  if (header.size > max_number) records.emplace_back("size", std::to_string(header.size));
  if (entry.stat.uid > max_id) records.emplace_back("uid", std::to_string(entry.stat.uid));
  if (entry.stat.gid > max_id) records.emplace_back("gid", std::to_string(entry.stat.gid));
  if (entry.stat.mtime.nsec != 0 || entry.stat.mtime.sec < 0 ||
      static_cast<uint64_t>(entry.stat.mtime.sec) > max_number)
    records.emplace_back("mtime", time_text(entry.stat.mtime));
  return (records.empty() || put_extended(header.name, records)) && put_header(header) && sink_.put(map);
}

bool Tar_Format::put_extended(const std::string& name, const Records& records) {
  std::string text;
  for (const auto& [keyword, value] : records) text += extended_record(keyword, value);
  Header header;
  header.name = "PaxHeaders/" + name.substr(name.find_last_of('/', name.size() - 2) + 1);
  header.type = 'x';
  header.size = text.size();
  return put_header(header) && sink_.put(text) && pad();
}

bool Tar_Format::put_header(const Header& header) {
  char block[record_size] = {};
  std::memcpy(block, header.name.data(), std::min(header.name.size(), name_size));
  const MTF::Entry_Stat nobody;
  const MTF::Entry_Stat& stat = header.stat ? *header.stat : nobody;
  set_octal(block + 100, 8, header.stat ? stat.mode & 07777u : 0644u);
  set_octal(block + 108, 8, stat.uid > max_id ? 0 : stat.uid);
  set_octal(block + 116, 8, stat.gid > max_id ? 0 : stat.gid);
  set_octal(block + 124, 12, std::min(header.size, max_number));
  set_octal(block + 136, 12, std::clamp<int64_t>(stat.mtime.sec, 0, static_cast<int64_t>(max_number)));
  std::memset(block + 148, ' ', 8);
  block[156] = header.type;
  std::memcpy(block + 157, header.link.data(), std::min(header.link.size(), name_size));
  std::memcpy(block + 257,
              "ustar\0"
              "00",
              8);
  const bool device = header.type == '3' || header.type == '4';
  set_octal(block + 329, 8, device ? gnu_dev_major(stat.rdev) & max_id : 0);
  set_octal(block + 337, 8, device ? gnu_dev_minor(stat.rdev) & max_id : 0);
  unsigned sum = 0;
  for (const char c : block) sum += static_cast<unsigned char>(c);
  set_octal(block + 148, 7, sum);
  return sink_.put({block, sizeof block});
}

bool Tar_Format::data(uint64_t, std::string_view bytes) {
  return sink_.put(bytes);
}

bool Tar_Format::pad() {
  const size_t missing = static_cast<size_t>(-sink_.offset() % record_size);
  return sink_.put(std::string(missing, '\0'));
}

bool Tar_Format::end_entry() {
  return pad();
}

/// Two empty records, and up to the block that tape drives like.
bool Tar_Format::end() {
  const uint64_t end = sink_.offset() + 2 * record_size;
  const size_t filling = static_cast<size_t>(2 * record_size + (archive_block - end % archive_block) % archive_block);
  return sink_.put(std::string(filling, '\0')) && sink_.flush();
}

}  // namespace MTF_BACKUP
