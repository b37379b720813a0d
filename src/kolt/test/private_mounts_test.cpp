#include "kolt/private_mounts.h"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>

#include "support/temp_dir.h"

namespace {

namespace fs = std::filesystem;
using test_support::read_file;
using test_support::Temp_Dir;

/// Takes a cover off again.
class Uncover {
 public:
  explicit Uncover(const std::string& path) : path_(path) {}
  ~Uncover() { EXPECT_EQ(umount2(path_.c_str(), MNT_DETACH), 0) << path_ << ": " << std::strerror(errno); }

 private:
  const std::string path_;
};

TEST(Private_Mounts, DirectoryIsEmptyAndWritableAndAsItWasBelow) {
  const Temp_Dir dir;
  dir.write("a/old", "1");
  {
    ASSERT_TRUE(kolt::cover_directory(dir / "a")) << std::strerror(errno);
    const Uncover uncover(dir / "a");
    EXPECT_TRUE(fs::is_empty(dir / "a"));
    dir.write("a/new", "2");
  }
  EXPECT_TRUE(fs::exists(dir / "a/old"));
  EXPECT_FALSE(fs::exists(dir / "a/new"));
}

TEST(Private_Mounts, DirectoryThatIsNotThereIsMadeBesideAllThatIs) {
  const Temp_Dir dir, volume;
  volume.write("data", "deep");
  dir.write("top/file", "1");
  dir.write("top/sub/file", "2");
  fs::create_symlink("file", dir / "top/link");
  fs::create_directory(dir / "top/sub/mounted");
  ASSERT_EQ(mount(volume.path().c_str(), (dir / "top/sub/mounted").c_str(), nullptr, MS_BIND, nullptr), 0);
  const Uncover unmount(dir / "top/sub/mounted");
  {
    ASSERT_TRUE(kolt::cover_directory(dir / "top/x/y")) << std::strerror(errno);
    const Uncover uncover(dir / "top");
    EXPECT_TRUE(fs::is_empty(dir / "top/x/y"));
    dir.write("top/x/y/new", "2");
    EXPECT_EQ(read_file(dir / "top/file"), "1");
    EXPECT_EQ(read_file(dir / "top/sub/file"), "2");
    EXPECT_EQ(fs::read_symlink(dir / "top/link"), "file");
    EXPECT_EQ(read_file(dir / "top/sub/mounted/data"), "deep");
  }
  EXPECT_FALSE(fs::exists(dir / "top/x"));
}

TEST(Private_Mounts, LinkOnTheWayIsFollowed) {
  const Temp_Dir dir;
  fs::create_directories(dir / "real/a");
  fs::create_symlink("real", dir / "link");
  ASSERT_TRUE(kolt::cover_directory(dir / "link/a")) << std::strerror(errno);
  const Uncover uncover(dir / "real/a");
  dir.write("link/a/file", "1");
  EXPECT_EQ(read_file(dir / "real/a/file"), "1");
}

TEST(Private_Mounts, WhatIsNoDirectoryIsNotCovered) {
  const Temp_Dir dir;
  dir.write("file", "1");
  EXPECT_FALSE(kolt::cover_directory(dir / "file"));
  EXPECT_EQ(errno, ENOTDIR);
  EXPECT_FALSE(kolt::cover_directory(dir / "file/a"));
  EXPECT_EQ(errno, ENOTDIR);
  EXPECT_EQ(read_file(dir / "file"), "1");
}

TEST(Private_Mounts, RootDirectoryIsNotCovered) {
  EXPECT_FALSE(kolt::cover_directory("/no-directory-of-this-name/a"));
  EXPECT_EQ(errno, ENOENT);
  EXPECT_FALSE(kolt::cover_directory("/"));
  EXPECT_EQ(errno, ENOENT);
}

/// What a child process exits with.
int in_child(const std::function<int()>& act) {
  const pid_t child = fork();
  if (child == 0) _exit(act());
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status));
  return WEXITSTATUS(status);
}

int cover_and_write(const Temp_Dir& dir) {
  if (!kolt::enter_private_mounts() || !kolt::cover_directory(dir / "a")) return errno;
  std::ofstream(dir / "a/new") << "1";
  return read_file(dir / "a/new") == "1" ? 0 : -1;
}

TEST(Private_Mounts, NobodyElseSeesThem) {
  const Temp_Dir dir;
  fs::create_directory(dir / "a");
  EXPECT_EQ(in_child([&] { return cover_and_write(dir); }), 0);
  EXPECT_TRUE(fs::is_empty(dir / "a"));
}

TEST(Private_Mounts, OrdinaryUserHasThemToo) {
  const Temp_Dir dir;
  fs::create_directory(dir / "a");
  fs::permissions(dir.path(), fs::perms(0755));
  constexpr int no_other_user = 255;
  const int code = in_child([&] {
    if (geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0)) return no_other_user;
    prctl(PR_SET_DUMPABLE, 1);  // as after an exec: /proc/self belongs to the user
    return cover_and_write(dir);
  });
  if (code == no_other_user) GTEST_SKIP() << "this user namespace has no second user";
  if (code == EPERM || code == ENOSPC) GTEST_SKIP() << "this machine forbids user namespaces to ordinary users";
  EXPECT_EQ(code, 0) << std::strerror(code);
  EXPECT_TRUE(fs::is_empty(dir / "a"));
}

}  // namespace
