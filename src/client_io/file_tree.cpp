#include "client_io/file_tree.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <memory>

namespace client_io {

namespace {

constexpr int directory_flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
constexpr mode_t directory_mode = 0700;

// Opens one component. A directory that is made here is made durable by syncing its parent at once: later steps need not
// know which ones are new.
Posix_Fd step(int parent, const std::string& name, bool make, int follow) {
  Posix_Fd fd(openat(parent, name.c_str(), directory_flags | follow));
  if (fd || errno != ENOENT || !make) return fd;
  if (mkdirat(parent, name.c_str(), directory_mode) != 0) {
    if (errno != EEXIST) return Posix_Fd();
  } else if (fsync(parent) != 0) {
    return Posix_Fd();
  }
  return Posix_Fd(openat(parent, name.c_str(), directory_flags | follow));
}

Posix_Fd walk(Posix_Fd fd, std::string_view path, bool make, int follow) {
  while (fd && !path.empty()) {
    const size_t slash = path.find('/');
    const std::string name(path.substr(0, slash));
    path.remove_prefix(slash == path.npos ? path.size() : slash + 1);
    if (!name.empty()) fd = step(fd.get(), name, make, follow);
  }
  return fd;
}

bool stat_name(int dir, const char* name, Tree_Name& found) {
  struct stat st;
  if (fstatat(dir, name, &st, AT_SYMLINK_NOFOLLOW) != 0) return false;
  found.name = name;
  if (S_ISDIR(st.st_mode)) found.name += '/';
  found.size = static_cast<uint64_t>(st.st_size);
  return S_ISDIR(st.st_mode) || S_ISREG(st.st_mode);
}

}  // namespace

std::string_view directory_part(std::string_view key) {
  const size_t slash = key.rfind('/');
  return slash == key.npos ? std::string_view() : key.substr(0, slash);
}

std::string_view last_part(std::string_view key) { return key.substr(key.rfind('/') + 1); }

Posix_Fd open_root(const std::string& root, bool make) {
  Posix_Fd whole(::open(root.c_str(), directory_flags));
  if (whole || errno != ENOENT || !make) return whole;
  return walk(Posix_Fd(::open("/", directory_flags)), root, make, 0);
}

Posix_Fd open_directory(int root, std::string_view dir, bool make) {
  return walk(Posix_Fd(fcntl(root, F_DUPFD_CLOEXEC, 0)), dir, make, O_NOFOLLOW);
}

void prune_directories(int root, std::string_view dir) {
  for (; !dir.empty(); dir = directory_part(dir)) {
    const Posix_Fd parent = open_directory(root, directory_part(dir), false);
    if (!parent || unlinkat(parent.get(), std::string(last_part(dir)).c_str(), AT_REMOVEDIR) != 0) return;
  }
}

bool read_names(int root, std::string_view dir, std::vector<Tree_Name>& names) {
  names.clear();
  Posix_Fd fd = open_directory(root, dir, false);
  if (!fd) return errno == ENOENT;
  const std::unique_ptr<DIR, int (*)(DIR*)> stream(fdopendir(fd.get()), closedir);
  if (!stream) return false;
  fd.release();
  for (;;) {
    errno = 0;
    const dirent* entry = readdir(stream.get());
    if (entry == nullptr) break;
    const std::string_view name = entry->d_name;
    Tree_Name found;
    if (name != "." && name != ".." && stat_name(dirfd(stream.get()), entry->d_name, found))
      names.push_back(std::move(found));
  }
  if (errno != 0) return false;
  std::sort(names.begin(), names.end(), [](const Tree_Name& a, const Tree_Name& b) { return a.name < b.name; });
  return true;
}

}  // namespace client_io
