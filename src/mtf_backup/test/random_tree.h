#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

namespace mover_test {

/**
 * Changes a tree at random, by all that a filesystem offers for it. The same seed makes the same changes.
 *
 * Names are few, so that they meet: files come where directories were, and the other way round.
 */
class Random_Tree {
 public:
  Random_Tree(std::string root, uint64_t seed) : root_(std::move(root)), random_(seed) {}

  /// One change, or none where the tree does not allow the one that was drawn.
  void change() {
    static constexpr void (Random_Tree::*changes[])() = {
        &Random_Tree::create,         &Random_Tree::create,         &Random_Tree::create,
        &Random_Tree::make_directory, &Random_Tree::overwrite,      &Random_Tree::rewrite,
        &Random_Tree::truncate,       &Random_Tree::write_far,      &Random_Tree::rename,
        &Random_Tree::rename,         &Random_Tree::link,           &Random_Tree::link,
        &Random_Tree::unlink,         &Random_Tree::unlink,         &Random_Tree::remove_directory,
        &Random_Tree::symlink,        &Random_Tree::chmod,          &Random_Tree::chown,
        &Random_Tree::set_attribute,  &Random_Tree::drop_attribute, &Random_Tree::touch,
        &Random_Tree::make_fifo};
    (this->*changes[below(std::size(changes))])();
  }

  uint64_t below(uint64_t n) { return random_() % n; }

 private:
  typedef std::filesystem::path Path;

  std::vector<Path> all(mode_t type) {
    std::vector<Path> found;
    if (type == S_IFDIR || type == 0) found.push_back(root_);
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root_)) {
      struct stat st;
      if (::lstat(entry.path().c_str(), &st) == 0 && (type == 0 || (st.st_mode & S_IFMT) == type))
        found.push_back(entry.path());
    }
    std::sort(found.begin(), found.end());
    return found;
  }
  /// One of a type; empty where there is none.
  Path any(mode_t type) {
    const std::vector<Path> found = all(type);
    return found.empty() ? Path() : found[below(found.size())];
  }
  /// A path for a new entry, which may be taken.
  Path place() {
    static const char* const names[] = {"a", "b", "c", "aa", "a.b", "z", "-", "A", "\xff", "name with blanks"};
    Path directory = any(S_IFDIR);
    const auto depth = std::distance(directory.begin(), directory.end()) - std::distance(root_.begin(), root_.end());
    return (depth > 2 ? root_ : directory) / names[below(std::size(names))];
  }
  /// Like place(), where nothing is.
  Path free_place() {
    const Path path = place();
    struct stat st;
    return ::lstat(path.c_str(), &st) == 0 ? Path() : path;
  }

  std::string bytes(size_t n) {
    std::string made(n, '\0');
    const bool packs = below(2) != 0;
    for (char& byte : made) byte = static_cast<char>(packs ? 'a' + random_() % 2 : random_());
    return made;
  }
  void write_at(const Path& path, int flags, off_t at, size_t n) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NOFOLLOW | flags, 0644);
    if (fd < 0) return;
    const std::string content = bytes(n);
    if (::pwrite(fd, content.data(), content.size(), at) < 0) std::abort();
    ::close(fd);
  }

  void create() {
    static constexpr size_t sizes[] = {0, 1, 300, 4096, 10'000, 70'000};
    const Path path = free_place();
    if (!path.empty()) write_at(path, O_CREAT | O_EXCL, 0, sizes[below(std::size(sizes))]);
  }
  void make_directory() { ::mkdir(place().c_str(), 0755); }
  void overwrite() {
    const Path path = any(S_IFREG);
    if (!path.empty()) write_at(path, 0, static_cast<off_t>(below(5000)), 1 + below(500));
  }
  /// Other content of the same size and time.
  void rewrite() {
    const Path path = any(S_IFREG);
    struct stat st;
    if (path.empty() || ::lstat(path.c_str(), &st) != 0 || st.st_size > 100'000) return;
    write_at(path, 0, 0, static_cast<size_t>(st.st_size));
    const timespec times[2] = {st.st_atim, st.st_mtim};
    ::utimensat(AT_FDCWD, path.c_str(), times, 0);
  }
  void truncate() {
    const Path path = any(S_IFREG);
    if (!path.empty() && ::truncate(path.c_str(), static_cast<off_t>(below(8000))) != 0) std::abort();
  }
  /// Leaves a hole before it.
  void write_far() {
    const Path path = any(S_IFREG);
    if (!path.empty()) write_at(path, 0, static_cast<off_t>(50'000 + below(1'000'000)), 1 + below(5000));
  }
  void rename() {
    const Path from = any(0);
    if (from != root_) ::rename(from.c_str(), place().c_str());
  }
  void link() {
    const Path from = any(S_IFREG);
    if (!from.empty()) (void)!::link(from.c_str(), place().c_str());
  }
  void unlink() {
    const Path path = any(0);
    (void)!::unlink(path.c_str());
  }
  void remove_directory() {
    const Path path = any(S_IFDIR);
    if (path != root_ && below(3) == 0) std::filesystem::remove_all(path);
  }
  void symlink() { (void)!::symlink(below(2) != 0 ? "a" : "some/where/else", place().c_str()); }
  void chmod() {
    const Path path = any(below(3) != 0 ? S_IFREG : S_IFDIR);
    if (!path.empty()) ::chmod(path.c_str(), static_cast<mode_t>(0700 | below(07777)));
  }
  void chown() {
    if (::geteuid() != 0) return;
    (void)!::lchown(any(0).c_str(), static_cast<uid_t>(below(3)), static_cast<gid_t>(below(3)));
  }
  void set_attribute() {
    const Path path = any(below(3) != 0 ? S_IFREG : S_IFDIR);
    const std::string value = bytes(1 + below(50));
    if (!path.empty()) ::setxattr(path.c_str(), below(2) != 0 ? "user.one" : "user.two", value.data(), value.size(), 0);
  }
  void drop_attribute() {
    const Path path = any(below(3) != 0 ? S_IFREG : S_IFDIR);
    if (!path.empty()) ::removexattr(path.c_str(), "user.one");
  }
  void touch() {
    const timespec times[2] = {{0, UTIME_OMIT}, {static_cast<time_t>(below(2'000'000'000)), 7}};
    ::utimensat(AT_FDCWD, any(0).c_str(), times, AT_SYMLINK_NOFOLLOW);
  }
  void make_fifo() {
    if (below(3) == 0) ::mkfifo(place().c_str(), 0600);
  }

  const Path root_;
  std::mt19937_64 random_;
};

}  // namespace mover_test
