#include "client_io/file_tree.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <memory>

namespace client_io {

namespace {

constexpr int directory_flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
constexpr mode_t directory_mode = 0700;

// Opens one component. Makes it where it is missing and @a made is there to be told.
Posix_Fd step(int parent, const std::string& name, int follow, bool* made) {
  Posix_Fd fd(openat(parent, name.c_str(), directory_flags | follow));
  if (fd || errno != ENOENT || made == nullptr) return fd;
  if (mkdirat(parent, name.c_str(), directory_mode) != 0 && errno != EEXIST) return Posix_Fd();
  *made = true;
  return Posix_Fd(openat(parent, name.c_str(), directory_flags | follow));
}

typedef std::function<bool(int)> Visitor;

// Calls @a visit, if any, for each directory that is left behind on the way.
Posix_Fd walk(Posix_Fd fd, std::string_view path, int follow, bool* made, const Visitor& visit = {}) {
  while (fd && !path.empty()) {
    const size_t slash = path.find('/');
    const std::string name(path.substr(0, slash));
    path.remove_prefix(slash == path.npos ? path.size() : slash + 1);
    if (name.empty()) continue;
    if (visit && !visit(fd.get())) return Posix_Fd();
    fd = step(fd.get(), name, follow, made);
  }
  return fd;
}

bool sync_directory(int fd) {
  return fsync(fd) == 0;
}

Posix_Fd duplicate(int fd) {
  return Posix_Fd(fcntl(fd, F_DUPFD_CLOEXEC, 0));
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

std::string_view last_part(std::string_view key) {
  return key.substr(key.rfind('/') + 1);
}

Tree_Lock::Tree_Lock(int root, int how) : root_(root) {
  while (flock(root_, how) != 0 && errno == EINTR) {
  }
}

Tree_Lock::~Tree_Lock() {
  const int error = errno;
  flock(root_, LOCK_UN);
  errno = error;
}

Posix_Fd open_root(const std::string& root, bool make) {
  Posix_Fd whole(::open(root.c_str(), directory_flags));
  if (whole || errno != ENOENT || !make) return whole;
  bool made = false;
  Posix_Fd fd = walk(Posix_Fd(::open("/", directory_flags)), root, 0, &made);
  if (fd && made && !walk(Posix_Fd(::open("/", directory_flags)), root, 0, nullptr, sync_directory)) return Posix_Fd();
  return fd;
}

Posix_Fd open_directory(int root, std::string_view dir) {
  return walk(duplicate(root), dir, O_NOFOLLOW, nullptr);
}

Posix_Fd make_directory(int root, std::string_view dir, bool& made) {
  return walk(duplicate(root), dir, O_NOFOLLOW, &made);
}

bool sync_directories(int root, std::string_view dir) {
  return static_cast<bool>(walk(duplicate(root), dir, O_NOFOLLOW, nullptr, sync_directory));
}

void prune_directories(int root, std::string_view dir) {
  const Tree_Lock alone(root, LOCK_EX);
  for (; !dir.empty(); dir = directory_part(dir)) {
    const Posix_Fd parent = open_directory(root, directory_part(dir));
    if (!parent || unlinkat(parent.get(), std::string(last_part(dir)).c_str(), AT_REMOVEDIR) != 0) return;
  }
}

bool read_names(int root, std::string_view dir, std::vector<Tree_Name>& names) {
  names.clear();
  Posix_Fd fd = open_directory(root, dir);
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
