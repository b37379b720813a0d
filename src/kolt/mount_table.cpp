#include "kolt/mount_table.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <memory>

#include "ace/Log_Msg.h"
#include "kolt/posix_fd.h"

namespace {

constexpr char mountinfo_path[] = "/proc/self/mountinfo";
constexpr int mount_point_field = 4;
constexpr int first_shared_field = 6;

bool read_all(const char* path, std::string& text) {
  const Posix_Fd fd(::open(path, O_RDONLY | O_CLOEXEC));
  if (!fd) return false;
  char buffer[16384];
  ssize_t size;
  while ((size = ::read(fd.get(), buffer, sizeof buffer)) > 0) text.append(buffer, static_cast<std::size_t>(size));
  return size == 0;
}

bool is_octal(char c) {
  return c >= '0' && c <= '7';
}

// Blanks, line ends and backslashes are written as a backslash with three octal digits.
std::string decode(std::string_view field) {
  std::string path;
  for (std::size_t i = 0; i < field.size(); ++i) {
    const bool escape = field[i] == '\\' && i + 3 < field.size() && std::all_of(&field[i + 1], &field[i + 4], is_octal);
    if (!escape) {
      path += field[i];
      continue;
    }
    path += static_cast<char>((field[i + 1] - '0') << 6 | (field[i + 2] - '0') << 3 | (field[i + 3] - '0'));
    i += 3;
  }
  return path;
}

// The field of a line with this number, counted from 0; empty if there is none.
std::string_view field_of(std::string_view line, int number) {
  for (; number > 0; --number) {
    const std::size_t blank = line.find(' ');
    if (blank == std::string_view::npos) return {};
    line.remove_prefix(blank + 1);
  }
  return line.substr(0, line.find(' '));
}

bool is_below(const std::string& mount_point, std::string_view directory) {
  return mount_point.size() > directory.size() + 1 && mount_point.starts_with(directory) &&
         mount_point[directory.size()] == '/';
}

bool holds(const std::string& mount_point, std::string_view path) {
  return mount_point == "/" || path == mount_point || is_below(std::string(path), mount_point);
}

// The fields between the options of the mount and the dash tell how it shares.
bool receives_mounts(std::string_view line) {
  for (int number = first_shared_field;; ++number) {
    const std::string_view field = field_of(line, number);
    if (field.empty() || field == "-") return false;
    if (field.starts_with("shared:") || field.starts_with("master:")) return true;
  }
}

bool read_mountinfo(std::string& text) {
  if (read_all(mountinfo_path, text)) return true;
  ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to read '%C': %m.\n"), mountinfo_path));
  return false;
}

template <typename Function>
void for_each_line(std::string_view text, const Function& function) {
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    function(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
}

std::ptrdiff_t depth(const std::string& path) {
  return std::count(path.begin(), path.end(), '/');
}

}  // namespace

std::vector<std::string> parse_mounts_below(std::string_view mountinfo, std::string_view path) {
  while (path.ends_with('/')) path.remove_suffix(1);
  std::vector<std::string> mounts;
  for_each_line(mountinfo, [&](std::string_view line) {
    std::string mount_point = decode(field_of(line, mount_point_field));
    if (is_below(mount_point, path)) mounts.push_back(std::move(mount_point));
  });
  std::reverse(mounts.begin(), mounts.end());
  std::stable_sort(mounts.begin(), mounts.end(),
                   [](const std::string& a, const std::string& b) { return depth(a) > depth(b); });
  return mounts;
}

bool mounts_below(const char* path, std::vector<std::string>& mounts) {
  mounts.clear();
  std::string mountinfo;
  if (!read_mountinfo(mountinfo)) return false;
  const std::unique_ptr<char, decltype(&std::free)> real_path(::realpath(path, nullptr), &std::free);
  mounts = parse_mounts_below(mountinfo, real_path ? real_path.get() : path);
  return true;
}

// Of mounts on one point the last one hides the others.
bool parse_mount_of(std::string_view mountinfo, std::string_view path, Mount_Of& mount) {
  Mount_Of found;
  for_each_line(mountinfo, [&](std::string_view line) {
    std::string point = decode(field_of(line, mount_point_field));
    if (point.size() < std::max<std::size_t>(found.point.size(), 1) || !holds(point, path)) return;
    found = {std::move(point), receives_mounts(line)};
  });
  if (found.point.empty()) return errno = ENOENT, false;
  mount = std::move(found);
  return true;
}

bool find_mount_of(const char* path, Mount_Of& mount) {
  std::string mountinfo;
  const std::unique_ptr<char, decltype(&std::free)> real_path(::realpath(path, nullptr), &std::free);
  return real_path && read_mountinfo(mountinfo) && parse_mount_of(mountinfo, real_path.get(), mount);
}
