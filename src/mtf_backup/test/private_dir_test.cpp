#include "mtf_backup/restore/private_dir.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <thread>

#include "kolt/directory_iterator.h"
#include "support/attributes.h"
#include "support/temp_dir.h"

namespace {

namespace fs = std::filesystem;
using MTF_BACKUP::Anchored_Dir;
using MTF_BACKUP::Private_Dir;

class PrivateDir : public testing::Test {
 protected:
  void SetUp() override {
    target_.attach(Posix_Fd(::open(dir_.path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)));
    ASSERT_TRUE(target_);
  }

  /// A private directory that a dead run has left.
  std::string leftover(const std::string& digits, mode_t mode = 0700) const {
    const std::string name = ".tessarin-" + digits;
    dir_.write(name + "/.tessarin-a1B2c3", "half");
    EXPECT_EQ(0, ::chmod((dir_ / name).c_str(), mode));
    return dir_ / name;
  }
  size_t count() const {
    return static_cast<size_t>(std::distance(fs::directory_iterator(dir_.path()), fs::directory_iterator()));
  }

  const test_support::Temp_Dir dir_;
  Anchored_Dir target_;
};

TEST_F(PrivateDir, IsEmptyAndOpenToNobodyElseWhateverTheParentBequeaths) {
  ASSERT_EQ(0, ::chmod(dir_.path().c_str(), 02777));
  ::setxattr(dir_.path().c_str(), "system.posix_acl_default", test_support::access_list.data(),
             test_support::access_list.size(), 0);
  Private_Dir place;
  ASSERT_TRUE(place.make(target_.fd()));
  EXPECT_EQ(1u, count());
  struct stat st;
  ASSERT_EQ(0, ::fstat(place.dir().fd(), &st));
  EXPECT_EQ(S_IFDIR | 0700u, st.st_mode);
  EXPECT_EQ(::geteuid(), st.st_uid);
  EXPECT_GT(0, ::getxattr(place.dir().path(""), "system.posix_acl_default", nullptr, 0));
  place.remove();
  EXPECT_EQ(0u, count());
}

TEST_F(PrivateDir, GoesWithWhatWasLeftInIt) {
  {
    Private_Dir place;
    ASSERT_TRUE(place.make(target_.fd()));
    ASSERT_EQ(0, ::symlink("nowhere", place.dir().path(Private_Dir::entry)));
    ASSERT_EQ(0, ::mknod(place.dir().path(".tessarin-a1B2c3"), S_IFREG | 0600, 0));
  }
  EXPECT_EQ(0u, count());
}

TEST_F(PrivateDir, SweepTakesWhatDeadRunsLeft) {
  leftover("0123456789abcdef");
  leftover("fedcba9876543210");
  Private_Dir::sweep(target_);
  EXPECT_EQ(0u, count());
}

TEST_F(PrivateDir, SweepLeavesWhatIsInUse) {
  Private_Dir place;
  ASSERT_TRUE(place.make(target_.fd()));
  ASSERT_EQ(0, ::mknod(place.dir().path(".tessarin-a1B2c3"), S_IFREG | 0600, 0));
  Private_Dir::sweep(target_);
  struct stat st;
  EXPECT_EQ(0, ::stat(place.dir().path(".tessarin-a1B2c3"), &st));
}

TEST_F(PrivateDir, SweepLeavesWhatIsTheUsers) {
  dir_.write(".tessarin-config", "the user's");
  dir_.write(".tessarin-a1B2c3", "the user's");
  dir_.write(".tessarin-0000000000000000", "a file");
  dir_.write("elsewhere/.tessarin-a1B2c3", "the user's");
  ASSERT_EQ(0, ::symlink("elsewhere", (dir_ / ".tessarin-1111111111111111").c_str()));
  const std::string open = leftover("2222222222222222", 0755);
  const std::string name = leftover("backup-of-mine--");
  const std::string mixed = leftover("3333333333333333");
  dir_.write(".tessarin-3333333333333333/mine", "the user's");
  Private_Dir::sweep(target_);
  for (const char* file : {".tessarin-config", ".tessarin-a1B2c3", ".tessarin-0000000000000000",
                           "elsewhere/.tessarin-a1B2c3", ".tessarin-1111111111111111"})
    EXPECT_TRUE(fs::exists(dir_ / file)) << file;
  for (const std::string& dir : {open, name}) EXPECT_TRUE(fs::exists(dir + "/.tessarin-a1B2c3")) << dir;
  EXPECT_TRUE(fs::exists(mixed + "/mine"));
}

TEST_F(PrivateDir, SweepLeavesThoseOfOthers) {
  const std::string path = leftover("0123456789abcdef");
  if (::lchown(path.c_str(), 12345, 12345) != 0) GTEST_SKIP() << "needs the right to give files away";
  Private_Dir::sweep(target_);
  EXPECT_TRUE(fs::exists(path + "/.tessarin-a1B2c3"));
}

TEST_F(PrivateDir, OneOfSomebodyElseInItsPlaceIsNotTaken) {
  const std::string other = dir_ / "other";
  fs::create_directory(other);
  if (::lchown(other.c_str(), 12345, 12345) != 0) GTEST_SKIP() << "needs the right to give files away";
  std::atomic<bool> stop{false};
  std::thread attacker([&] {
    while (!stop)
      for (const Directory_Entry& found : iterate_directory(dir_.path().c_str()))
        if (found.name.starts_with(".tessarin-"))
          ::renameat2(AT_FDCWD, other.c_str(), AT_FDCWD, (dir_ / found.name).c_str(), RENAME_EXCHANGE);
  });
  for (int i = 0; i < 3000; ++i) {
    Private_Dir place;
    if (!place.make(target_.fd())) continue;
    struct stat st;
    ASSERT_EQ(0, ::fstat(place.dir().fd(), &st));
    EXPECT_EQ(::geteuid(), st.st_uid);
  }
  stop = true;
  attacker.join();
}

TEST_F(PrivateDir, ManyAreMadeWhileOthersSweep) {
  std::atomic<bool> stop{false};
  std::thread sweeper([&] {
    Anchored_Dir target;
    EXPECT_TRUE(target.open(target_.fd(), ""));
    while (!stop) Private_Dir::sweep(target);
  });
  for (int i = 0; i < 3000; ++i) {
    Private_Dir place;
    ASSERT_TRUE(place.make(target_.fd()));
    ASSERT_EQ(0, ::mknod(place.dir().path(Private_Dir::entry), S_IFREG | 0600, 0)) << i;
  }
  stop = true;
  sweeper.join();
  EXPECT_EQ(0u, count());
}

}  // namespace
