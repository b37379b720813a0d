#include "kolt/dir_size.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "kolt/rm_all.h"
#include "kolt/test/as_nobody.h"
#include "kolt/test/deep_tree.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace {

using test_support::Log_Capture;
using test_support::Temp_Dir;

TEST(Dir_Size, AddsUpAllFilesBelow) {
  const Temp_Dir dir;
  dir.write("a", "123");
  dir.write("sub/b", "12345");
  dir.write("sub/sub/c", "1234567");
  dir.write("other/d", "");
  EXPECT_EQ(dir_size(dir.path().c_str()), 15);
}

TEST(Dir_Size, OfAnEmptyDirectoryIsZeroAndLogsNothing) {
  const Temp_Dir dir;
  Log_Capture log;
  EXPECT_EQ(dir_size(dir.path().c_str()), 0);
  EXPECT_EQ(log.all(), "");
}

TEST(Dir_Size, OfAMissingDirectoryIsZeroAndLogsNothing) {
  const Temp_Dir dir;
  Log_Capture log;
  EXPECT_EQ(dir_size((dir / "none").c_str()), 0);
  EXPECT_EQ(dir_size(nullptr), 0);
  EXPECT_EQ(log.all(), "");
}

TEST(Dir_Size, OfAFileIsZero) {
  const Temp_Dir dir;
  EXPECT_EQ(dir_size(dir.write("file", "123").c_str()), 0);
}

TEST(Dir_Size, DirectoriesThemselvesDoNotCount) {
  const Temp_Dir dir;
  ASSERT_EQ(mkdir((dir / "sub").c_str(), 0755), 0);
  EXPECT_EQ(dir_size(dir.path().c_str()), 0);
}

TEST(Dir_Size, LinkCountsByItsOwnSize) {
  const Temp_Dir dir, other;
  other.write("big", std::string(1000, 'b'));
  ASSERT_EQ(symlink(other.path().c_str(), (dir / "link").c_str()), 0);
  EXPECT_EQ(dir_size(dir.path().c_str()), static_cast<ACE_OFF_T>(other.path().size()));
}

TEST(Dir_Size, PathItselfMayBeALink) {
  const Temp_Dir dir;
  dir.write("real/file", "123");
  ASSERT_EQ(symlink("real", (dir / "link").c_str()), 0);
  EXPECT_EQ(dir_size((dir / "link").c_str()), 3);
}

TEST(Dir_Size, HardLinkCountsEachTime) {
  const Temp_Dir dir;
  ASSERT_EQ(link(dir.write("a", "123").c_str(), (dir / "b").c_str()), 0);
  EXPECT_EQ(dir_size(dir.path().c_str()), 6);
}

TEST(Dir_Size, HolesCount) {
  const Temp_Dir dir;
  ASSERT_EQ(truncate(dir.write("sparse", "").c_str(), 1LL << 40), 0);
  EXPECT_EQ(dir_size(dir.path().c_str()), 1LL << 40);
}

TEST(Dir_Size, SpecialFilesAddNothing) {
  const Temp_Dir dir;
  ASSERT_EQ(mkfifo((dir / "fifo").c_str(), 0644), 0);
  EXPECT_EQ(dir_size(dir.path().c_str()), 0);
}

TEST(Dir_Size, DirectoryThatCannotBeOpenedAddsNothing) {
  const Temp_Dir dir;
  dir.write("open/file", "123");
  dir.write("shut/file", "12345");
  ASSERT_EQ(chmod(dir.path().c_str(), 0755), 0);
  ASSERT_EQ(chmod((dir / "shut").c_str(), 0), 0);
  Log_Capture log;
  {
    const As_Nobody nobody;
    EXPECT_EQ(dir_size(dir.path().c_str()), 3);
  }
  EXPECT_EQ(log.all(), "");
  ASSERT_EQ(chmod((dir / "shut").c_str(), 0755), 0);
}

TEST(Dir_Size, SiblingsAreFoundOnTheWayBackFromTheDepth) {
  const Temp_Dir dir;
  make_deep_tree(dir.path(), "d", 80);
  std::string path = dir.path();
  for (int i = 0; i < 60; ++i) {
    path += "/d";
    for (const char* name : {"/a", "/z"}) {  // whatever the order is, one of them often comes after "d"
      ASSERT_EQ(mkdir((path + name).c_str(), 0755), 0);
      ASSERT_EQ(symlink("7 bytes", (path + name + "/link").c_str()), 0);
    }
  }
  EXPECT_EQ(dir_size(dir.path().c_str()), 80 * 5 + 120 * 7);
}

TEST(Dir_Size, PathsLongerThanTheSystemTakesAreReached) {
  const Temp_Dir dir;
  make_deep_tree(dir.path(), std::string(255, 'n'), 40);
  EXPECT_EQ(dir_size(dir.path().c_str()), 200);
  EXPECT_TRUE(rm_all(dir.path().c_str()));
}

TEST(Is_Directory, TellsDirectoriesFromAllElse) {
  const Temp_Dir dir;
  const std::string file = dir.write("file", "");
  ASSERT_EQ(symlink(dir.path().c_str(), (dir / "link").c_str()), 0);
  EXPECT_TRUE(is_directory(dir.path().c_str()));
  EXPECT_TRUE(is_directory((dir / "link").c_str()));
  EXPECT_FALSE(is_directory(file.c_str()));
  EXPECT_FALSE(is_directory((dir / "none").c_str()));
  EXPECT_FALSE(is_directory((file + "/x").c_str()));
  EXPECT_FALSE(is_directory(""));
  EXPECT_FALSE(is_directory(nullptr));
}

}  // namespace
