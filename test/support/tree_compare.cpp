#include "support/tree_compare.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <map>
#include <set>
#include <utility>

namespace test_support {

namespace {

constexpr std::size_t max_differences = 1000;

/// A directory held open by its descriptor, so that paths of any length are reached.
class Dir {
 public:
  explicit Dir(int fd) : fd_(fd) {}
  ~Dir() {
    if (fd_ >= 0) close(fd_);
  }
  Dir(const Dir&) = delete;
  Dir& operator=(const Dir&) = delete;

  int fd() const { return fd_; }
  std::string anchored(const std::string& name) const { return "/proc/self/fd/" + std::to_string(fd_) + "/" + name; }

  bool names(std::set<std::string>& found) const {
    const int copy = openat(fd_, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    DIR* stream = copy < 0 ? nullptr : fdopendir(copy);
    if (stream == nullptr) return false;
    while (const dirent* entry = readdir(stream))
      if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0) found.insert(entry->d_name);
    closedir(stream);
    return true;
  }

 private:
  const int fd_;
};

using Attributes = std::map<std::string, std::string>;

bool read_attributes(const std::string& path, Attributes& found) {
  std::string names(65536, '\0');
  const ssize_t length = llistxattr(path.c_str(), names.data(), names.size());
  if (length < 0) return errno == ENOTSUP;
  for (ssize_t at = 0; at < length; at += static_cast<ssize_t>(std::strlen(&names[at])) + 1) {
    std::string value(65536, '\0');
    const ssize_t size = lgetxattr(path.c_str(), &names[at], value.data(), value.size());
    if (size < 0) return false;
    value.resize(static_cast<std::size_t>(size));
    found[&names[at]] = value;
  }
  return true;
}

class Comparison {
 public:
  Tree_Report run(const std::string& left, const std::string& right) {
    Dir left_above(open(left.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    Dir right_above(open(right.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (left_above.fd() < 0 || right_above.fd() < 0) {
      differ(left_above.fd() < 0 ? left : right, std::string("cannot be opened: ") + std::strerror(errno));
      return report_;
    }
    entry(left_above, right_above, ".", ".");
    return report_;
  }

 private:
  void differ(const std::string& path, const std::string& what) {
    if (report_.differences.size() < max_differences) report_.differences.push_back(path + ": " + what);
  }

  void entry(const Dir& left, const Dir& right, const std::string& name, const std::string& path) {
    struct stat a, b;
    if (fstatat(left.fd(), name.c_str(), &a, AT_SYMLINK_NOFOLLOW) != 0 ||
        fstatat(right.fd(), name.c_str(), &b, AT_SYMLINK_NOFOLLOW) != 0)
      return differ(path, std::string("cannot be examined: ") + std::strerror(errno));
    ++report_.entries;
    if ((a.st_mode & S_IFMT) != (b.st_mode & S_IFMT)) return differ(path, "type");
    status(a, b, path);
    attributes(left.anchored(name), right.anchored(name), path);
    hard_links(a, b, path);
    if (S_ISREG(a.st_mode)) content(left, right, name, path);
    if (S_ISLNK(a.st_mode)) link_target(left, right, name, path);
    if (S_ISDIR(a.st_mode)) children(left, right, name, path);
  }

  void status(const struct stat& a, const struct stat& b, const std::string& path) {
    if ((a.st_mode & 07777) != (b.st_mode & 07777)) differ(path, "mode");
    if (a.st_uid != b.st_uid || a.st_gid != b.st_gid) differ(path, "owner");
    if ((S_ISBLK(a.st_mode) || S_ISCHR(a.st_mode)) && a.st_rdev != b.st_rdev) differ(path, "device number");
    if (a.st_mtim.tv_sec != b.st_mtim.tv_sec || a.st_mtim.tv_nsec != b.st_mtim.tv_nsec) differ(path, "time");
    if (S_ISREG(a.st_mode) && a.st_size != b.st_size) differ(path, "size");
    if (S_ISREG(a.st_mode) && lost_holes(a, b)) differ(path, "holes");
  }

  /// Whether the right file takes markedly more room than the left one, which has holes. What a filesystem needs to
  /// keep account of the pieces counts too, so a little more is no difference.
  static bool lost_holes(const struct stat& a, const struct stat& b) {
    return a.st_blocks * 512 < a.st_size && b.st_blocks > a.st_blocks + a.st_blocks / 8 + 128;
  }

  void attributes(const std::string& left, const std::string& right, const std::string& path) {
    Attributes a, b;
    if (!read_attributes(left, a) || !read_attributes(right, b)) return differ(path, "extended attributes unreadable");
    if (a != b) differ(path, "extended attributes");
  }

  /// Each inode stands for the first path under which it was met; both trees must have met it under the same one.
  void hard_links(const struct stat& a, const struct stat& b, const std::string& path) {
    if (S_ISDIR(a.st_mode) || (a.st_nlink == 1 && b.st_nlink == 1)) return;
    const std::string& first_left = left_inodes_.try_emplace({a.st_dev, a.st_ino}, path).first->second;
    const std::string& first_right = right_inodes_.try_emplace({b.st_dev, b.st_ino}, path).first->second;
    if (first_left != first_right) differ(path, "hard link");
  }

  void content(const Dir& left, const Dir& right, const std::string& name, const std::string& path) {
    Dir a(openat(left.fd(), name.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    Dir b(openat(right.fd(), name.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    if (a.fd() < 0 || b.fd() < 0) return differ(path, std::string("cannot be opened: ") + std::strerror(errno));
    // Stretches that are holes on both sides are passed over, so that a file of a terabyte is compared in no time.
    for (off_t at = 0; (at = std::min(next_data(a.fd(), at), next_data(b.fd(), at))) != no_more_data;) {
      const ssize_t got_left = fill(a.fd(), at, left_bytes_);
      const ssize_t got_right = fill(b.fd(), at, right_bytes_);
      if (got_left < 0 || got_right < 0) return differ(path, "cannot be read");
      if (got_left != got_right || std::memcmp(left_bytes_.data(), right_bytes_.data(), got_left) != 0)
        return differ(path, "content");
      report_.bytes += static_cast<unsigned long long>(got_left);
      at += got_left;
    }
  }

  static constexpr off_t no_more_data = std::numeric_limits<off_t>::max();

  static off_t next_data(int fd, off_t from) {
    struct stat st;
    if (fstat(fd, &st) != 0 || from >= st.st_size) return no_more_data;
    const off_t data = lseek(fd, from, SEEK_DATA);
    if (data >= 0) return data;
    return errno == ENXIO ? no_more_data : from;
  }

  static ssize_t fill(int fd, off_t at, std::vector<char>& bytes) {
    std::size_t filled = 0;
    while (filled < bytes.size()) {
      const ssize_t got = pread(fd, bytes.data() + filled, bytes.size() - filled, at + static_cast<off_t>(filled));
      if (got < 0) return -1;
      if (got == 0) break;
      filled += static_cast<std::size_t>(got);
    }
    return static_cast<ssize_t>(filled);
  }

  void link_target(const Dir& left, const Dir& right, const std::string& name, const std::string& path) {
    char a[4096], b[4096];
    const ssize_t length_a = readlinkat(left.fd(), name.c_str(), a, sizeof a);
    const ssize_t length_b = readlinkat(right.fd(), name.c_str(), b, sizeof b);
    if (length_a < 0 || length_a != length_b || std::memcmp(a, b, static_cast<std::size_t>(length_a)) != 0)
      differ(path, "link target");
  }

  void children(const Dir& left, const Dir& right, const std::string& name, const std::string& path) {
    Dir a(openat(left.fd(), name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    Dir b(openat(right.fd(), name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    std::set<std::string> names_left, names_right;
    if (a.fd() < 0 || b.fd() < 0 || !a.names(names_left) || !b.names(names_right))
      return differ(path, std::string("cannot be listed: ") + std::strerror(errno));
    for (const std::string& child : names_left)
      if (names_right.count(child) == 0) differ(path + "/" + child, "only on the left");
    for (const std::string& child : names_right) {
      if (names_left.count(child) == 0)
        differ(path + "/" + child, "only on the right");
      else
        entry(a, b, child, path + "/" + child);
    }
  }

  using Inode = std::pair<dev_t, ino_t>;

  Tree_Report report_;
  std::map<Inode, std::string> left_inodes_;
  std::map<Inode, std::string> right_inodes_;
  std::vector<char> left_bytes_ = std::vector<char>(1 << 20);
  std::vector<char> right_bytes_ = std::vector<char>(1 << 20);
};

}  // namespace

Tree_Report compare_trees(const std::string& left, const std::string& right) {
  return Comparison().run(left, right);
}

}  // namespace test_support
