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

std::ptrdiff_t depth(const std::string& path) {
  return std::count(path.begin(), path.end(), '/');
}

}  // namespace

std::vector<std::string> parse_mounts_below(std::string_view mountinfo, std::string_view path) {
  while (path.ends_with('/')) path.remove_suffix(1);
  std::vector<std::string> mounts;
  while (!mountinfo.empty()) {
    const std::size_t end = std::min(mountinfo.find('\n'), mountinfo.size());
    std::string mount_point = decode(field_of(mountinfo.substr(0, end), mount_point_field));
    if (is_below(mount_point, path)) mounts.push_back(std::move(mount_point));
    mountinfo.remove_prefix(std::min(end + 1, mountinfo.size()));
  }
  std::reverse(mounts.begin(), mounts.end());
  std::stable_sort(mounts.begin(), mounts.end(),
                   [](const std::string& a, const std::string& b) { return depth(a) > depth(b); });
  return mounts;
}

bool mounts_below(const char* path, std::vector<std::string>& mounts) {
  mounts.clear();
  std::string mountinfo;
  if (!read_all(mountinfo_path, mountinfo)) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to read '%C': %m.\n"), mountinfo_path));
    return false;
  }
  const std::unique_ptr<char, decltype(&std::free)> real_path(::realpath(path, nullptr), &std::free);
  mounts = parse_mounts_below(mountinfo, real_path ? real_path.get() : path);
  return true;
}
