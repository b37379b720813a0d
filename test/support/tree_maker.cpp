#include "support/tree_maker.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <stdexcept>
#include <vector>

namespace test_support {

namespace {

namespace fs = std::filesystem;

void must(bool done, const std::string& path) {
  if (!done) throw std::runtime_error(path + ": " + std::strerror(errno));
}

/// Bytes of which about half compress away: random ones and a repeated text take turns.
class Content {
 public:
  explicit Content(unsigned seed) : random_(seed), block_(1 << 20) {
    for (std::size_t at = 0; at < block_.size(); ++at)
      block_[at] = (at / 512) % 2 == 0 ? static_cast<char>(random_()) : "volume data "[at % 12];
  }

  void write(const std::string& path, unsigned long long size) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    while (size > 0) {
      const std::size_t from = random_() % (block_.size() / 2);
      const std::size_t piece = static_cast<std::size_t>(std::min<unsigned long long>(size, block_.size() - from));
      out.write(&block_[from], static_cast<std::streamsize>(piece));
      size -= piece;
    }
    must(static_cast<bool>(out.flush()), path);
  }

  std::mt19937& random() { return random_; }

 private:
  std::mt19937 random_;
  std::vector<char> block_;
};

void set_time(const std::string& path, long seconds, long nanoseconds) {
  const timespec times[2] = {{seconds, nanoseconds}, {seconds, nanoseconds}};
  must(utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW) == 0, path);
}

std::string directory_of(const std::string& root, std::size_t file) {
  const std::size_t directory = file / 100;
  std::string path = root + "/d" + std::to_string(directory / 50) + "/e" + std::to_string(directory % 50);
  if (directory % 7 == 0) path += "/deeper";
  return path;
}

void plain_files(const std::string& root, const Tree_Options& options, Content& content) {
  const unsigned long long mean = options.files == 0 ? 0 : options.bytes / options.files;
  for (std::size_t file = 0; file < options.files; ++file) {
    const std::string directory = directory_of(root, file);
    if (file % 100 == 0) fs::create_directories(directory);
    const std::string path = directory + "/file-" + std::to_string(file) + ".dat";
    // Sizes from nothing to twice the mean, so that their sum comes near the total.
    content.write(path, mean == 0 ? 0 : content.random()() % (2 * mean + 1));
    if (options.special && file % 5 == 0) set_time(path, 1'000'000'000 + static_cast<long>(file), 123'456'789);
    if (options.special && file % 11 == 0) must(chmod(path.c_str(), 0640) == 0, path);
  }
}

void links(const std::string& root, Content& content) {
  content.write(root + "/links/first", 5000);
  must(link((root + "/links/first").c_str(), (root + "/links/second").c_str()) == 0, "second");
  must(link((root + "/links/first").c_str(), (root + "/odd/third").c_str()) == 0, "third");
  must(symlink("first", (root + "/links/relative").c_str()) == 0, "relative");
  must(symlink("/nowhere/at all", (root + "/links/dangling").c_str()) == 0, "dangling");
  must(symlink("../links", (root + "/links/to-directory").c_str()) == 0, "to-directory");
  must(symlink(std::string(3000, 'x').c_str(), (root + "/links/long").c_str()) == 0, "long");
  set_time(root + "/links/dangling", 1'234'567'890, 987'654'321);
}

void odd_names(const std::string& root, Content& content) {
  for (const char* name : {"new\nline", "tab\tand space ", "not-utf8-\xff\xfe", "\xc3\xa4\xc3\xb6\xc3\xbc", "-dash",
                           "*[star]?", "quote\"'\\back", "\x01\x02", "\xf0\x9f\x92\xbe", "..hidden", "..."})
    content.write(root + "/odd/" + name, 100);
  content.write(root + "/odd/" + std::string(255, 'n'), 10);
  fs::create_directories(root + "/odd/directory with\nline/empty");
}

void special_files(const std::string& root, Content& content) {
  content.write(root + "/special/empty", 0);
  must(mkfifo((root + "/special/fifo").c_str(), 0622) == 0, "fifo");
  content.write(root + "/special/sticky-and-set", 33);
  must(chmod((root + "/special/sticky-and-set").c_str(), 07755) == 0, "sticky-and-set");
  must(chmod((root + "/special").c_str(), 03775) == 0, "special");
  content.write(root + "/special/no-rights", 40);
  must(chmod((root + "/special/no-rights").c_str(), geteuid() == 0 ? 0 : 0400) == 0, "no-rights");
  content.write(root + "/special/attributes", 20);
  const std::string path = root + "/special/attributes";
  const std::string value("binary\0value", 12);
  if (setxattr(path.c_str(), "user.tessarin.one", value.data(), value.size(), 0) != 0) must(errno == ENOTSUP, path);
  if (setxattr(path.c_str(), "user.empty", "", 0, 0) != 0) must(errno == ENOTSUP, path);
  if (setxattr((root + "/links").c_str(), "user.on.directory", "d", 1, 0) != 0) must(errno == ENOTSUP, "links");
}

/// Devices and foreign owners need rights that an ordinary user, or root in a user namespace, lacks.
void root_only(const std::string& root, Content& content) {
  if (geteuid() != 0) return;
  if (mknod((root + "/special/null").c_str(), S_IFCHR | 0666, makedev(1, 3)) != 0) return;
  must(mknod((root + "/special/loop").c_str(), S_IFBLK | 0660, makedev(7, 200)) == 0, "loop");
  content.write(root + "/special/owned", 50);
  const std::string path = root + "/special/owned";
  must(lchown(path.c_str(), 12345, 54321) == 0, path);
  must(chmod(path.c_str(), 06755) == 0, path);
  must(lchown((root + "/links/dangling").c_str(), 1000, 1001) == 0, "dangling");
  set_time(root + "/links/dangling", 1'234'567'890, 987'654'321);
}

}  // namespace

void make_tree(const std::string& root, const Tree_Options& options) {
  fs::create_directories(root);
  Content content(options.seed);
  plain_files(root, options, content);
  if (!options.special) return;
  for (const char* name : {"/links", "/odd", "/special"}) fs::create_directories(root + name);
  links(root, content);
  odd_names(root, content);
  special_files(root, content);
  root_only(root, content);
  set_time(root + "/odd", 1'100'000'000, 5);
  set_time(root, 1'200'000'000, 7);
}

}  // namespace test_support
