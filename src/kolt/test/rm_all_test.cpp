#include "kolt/rm_all.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "kolt/test/as_nobody.h"
#include "kolt/test/deep_tree.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace {

namespace fs = std::filesystem;
using test_support::Log_Capture;
using test_support::Temp_Dir;
using testing::ElementsAre;

TEST(Rm_All, RemovesTheDirectoryWithAllItHolds) {
  const Temp_Dir dir;
  dir.write("tree/a", "1");
  dir.write("tree/sub/b", "2");
  dir.write("tree/sub/.hidden/c", "3");
  ASSERT_EQ(mkfifo((dir / "tree/fifo").c_str(), 0644), 0);
  Log_Capture log;
  EXPECT_TRUE(rm_all((dir / "tree").c_str()));
  EXPECT_FALSE(fs::exists(dir / "tree"));
  EXPECT_TRUE(fs::exists(dir.path()));
  EXPECT_EQ(log.all(), "");
}

TEST(Rm_All, SeparatorsAtTheEndDoNotMatter) {
  const Temp_Dir dir;
  dir.write("tree/a", "1");
  EXPECT_TRUE(rm_all((dir / "tree//").c_str()));
  EXPECT_FALSE(fs::exists(dir / "tree"));
}

TEST(Rm_All, RemovesASingleFile) {
  const Temp_Dir dir;
  EXPECT_TRUE(rm_all(dir.write("file", "1").c_str()));
  EXPECT_FALSE(fs::exists(dir / "file"));
}

TEST(Rm_All, WhatDoesNotExistIsRemoved) {
  const Temp_Dir dir;
  Log_Capture log;
  EXPECT_TRUE(rm_all((dir / "none").c_str()));
  EXPECT_TRUE(rm_all((dir / "none/below").c_str()));
  EXPECT_EQ(log.all(), "");
}

TEST(Rm_All, LinkGoesAndItsTargetStays) {
  const Temp_Dir dir;
  dir.write("target/file", "1");
  ASSERT_EQ(mkdir((dir / "tree").c_str(), 0755), 0);
  ASSERT_EQ(symlink((dir / "target").c_str(), (dir / "tree/link").c_str()), 0);
  EXPECT_TRUE(rm_all((dir / "tree").c_str()));
  EXPECT_FALSE(fs::exists(dir / "tree"));
  EXPECT_TRUE(fs::exists(dir / "target/file"));
}

TEST(Rm_All, PathThatIsALinkIsRemovedItself) {
  const Temp_Dir dir;
  dir.write("target/file", "1");
  ASSERT_EQ(symlink("target", (dir / "link").c_str()), 0);
  EXPECT_TRUE(rm_all((dir / "link").c_str()));
  EXPECT_FALSE(fs::is_symlink(dir / "link"));
  EXPECT_TRUE(fs::exists(dir / "target/file"));
}

TEST(Rm_All, RelativePathsWork) {
  const Temp_Dir dir;
  dir.write("tree/a", "1");
  const fs::path before = fs::current_path();
  fs::current_path(dir.path());
  EXPECT_TRUE(rm_all("tree"));
  fs::current_path(before);
  EXPECT_FALSE(fs::exists(dir / "tree"));
}

TEST(Rm_All, RefusesPathsWithoutAName) {
  for (const char* path : {"", "/", ".", "..", "/tmp/..", "///"}) {
    Log_Capture log;
    errno = 0;
    EXPECT_FALSE(rm_all(path)) << path;
    EXPECT_EQ(errno, EINVAL);
    EXPECT_THAT(log.texts(LM_WARNING),
                ElementsAre("Failed to remove '" + std::string(path) + "': 1 left behind, the first is '" + path +
                            "': Invalid argument.\n"));
  }
  Log_Capture log;
  EXPECT_FALSE(rm_all(nullptr));
}

TEST(Rm_All, LeavesWhatItMayNotRemoveWithOneWarning) {
  const Temp_Dir dir;
  dir.write("tree/shut/a", "1");
  dir.write("tree/shut/b", "1");
  dir.write("tree/open/c", "1");
  for (const char* name : {"", "tree", "tree/open"}) ASSERT_EQ(chmod((dir / name).c_str(), 0777), 0);
  ASSERT_EQ(chmod((dir / "tree/shut").c_str(), 0555), 0);
  Log_Capture log;
  {
    const As_Nobody nobody;
    EXPECT_FALSE(rm_all((dir / "tree").c_str()));
    EXPECT_EQ(errno, EACCES);
  }
  EXPECT_TRUE(fs::exists(dir / "tree/shut/a"));
  EXPECT_TRUE(fs::exists(dir / "tree/shut/b"));
  EXPECT_FALSE(fs::exists(dir / "tree/open"));
  const std::string begin =
      "Failed to remove '" + dir.path() + "/tree': 2 left behind, the first is '" + dir.path() + "/tree/shut/";
  EXPECT_THAT(log.texts(LM_WARNING),
              ElementsAre(testing::AnyOf(begin + "a': Permission denied.\n", begin + "b': Permission denied.\n")));
  EXPECT_EQ(log.lines().size(), 1u);
  ASSERT_EQ(chmod((dir / "tree/shut").c_str(), 0755), 0);
}

TEST(Rm_All, NamesCannotForgeALogLine) {
  const Temp_Dir dir;
  dir.write("tree/x\ny/a", "1");
  for (const char* name : {"", "tree"}) ASSERT_EQ(chmod((dir / name).c_str(), 0777), 0);
  ASSERT_EQ(chmod((dir / "tree/x\ny").c_str(), 0), 0);
  Log_Capture log;
  {
    const As_Nobody nobody;
    EXPECT_FALSE(rm_all((dir / "tree").c_str()));
  }
  EXPECT_TRUE(log.has_containing(LM_WARNING, "/tree/x\\x0Ay': Permission denied.\n"));
  ASSERT_EQ(chmod((dir / "tree/x\ny").c_str(), 0755), 0);
}

TEST(Rm_All, PathsLongerThanTheSystemTakesAreReached) {
  const Temp_Dir dir;
  make_deep_tree(dir.path(), std::string(255, 'n'), 40);
  EXPECT_TRUE(rm_all((dir.path() + "/" + std::string(255, 'n')).c_str()));
  EXPECT_TRUE(fs::is_empty(dir.path()));
}

}  // namespace
