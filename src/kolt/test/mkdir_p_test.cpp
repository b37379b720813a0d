#include "kolt/mkdir_p.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "kolt/dir_size.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace {

using test_support::Log_Capture;
using test_support::Temp_Dir;
using testing::ElementsAre;

mode_t mode_of(const std::string& path) {
  struct stat status = {};
  EXPECT_EQ(stat(path.c_str(), &status), 0);
  return status.st_mode & 07777;
}

TEST(Mkdir_P, MakesTheDirectoryWithItsParents) {
  const Temp_Dir dir;
  const mode_t mask = umask(0);
  EXPECT_TRUE(mkdir_p((dir / "a/b//c/").c_str(), 0750, nullptr));
  umask(mask);
  for (const char* name : {"a", "a/b", "a/b/c"}) EXPECT_EQ(mode_of(dir / name), 0750u) << name;
}

TEST(Mkdir_P, UmaskApplies) {
  const Temp_Dir dir;
  const mode_t mask = umask(027);
  EXPECT_TRUE(mkdir_p((dir / "a").c_str(), 0777));
  umask(mask);
  EXPECT_EQ(mode_of(dir / "a"), 0750u);
}

TEST(Mkdir_P, ExistingDirectoriesStayAsTheyAre) {
  const Temp_Dir dir;
  ASSERT_EQ(mkdir((dir / "a").c_str(), 0700), 0);
  ASSERT_EQ(symlink("a", (dir / "link").c_str()), 0);
  EXPECT_TRUE(mkdir_p((dir / "a").c_str(), 0755));
  EXPECT_TRUE(mkdir_p((dir / "link/b").c_str(), 0755));
  EXPECT_EQ(mode_of(dir / "a"), 0700u);
  EXPECT_TRUE(is_directory((dir / "a/b").c_str()));
  EXPECT_TRUE(mkdir_p("/", 0755));
}

TEST(Mkdir_P, RelativePathsWork) {
  const Temp_Dir dir;
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(dir.path());
  EXPECT_TRUE(mkdir_p("x/y", 0755));
  std::filesystem::current_path(before);
  EXPECT_TRUE(is_directory((dir / "x/y").c_str()));
}

TEST(Mkdir_P, FileInTheWayFailsWithoutALogLine) {
  const Temp_Dir dir;
  dir.write("file", "");
  Log_Capture log;
  EXPECT_FALSE(mkdir_p((dir / "file").c_str(), 0755));
  EXPECT_EQ(errno, EEXIST);
  EXPECT_FALSE(mkdir_p((dir / "file/below").c_str(), 0755));
  EXPECT_EQ(errno, EEXIST);
  EXPECT_EQ(log.all(), "");
}

TEST(Mkdir_P, NoPathFails) {
  EXPECT_FALSE(mkdir_p("", 0755));
  EXPECT_EQ(errno, ENOENT);
  EXPECT_FALSE(mkdir_p(nullptr, 0755));
}

TEST(Mkdir_P, TellsTheCallbackOfWhatItMade) {
  const Temp_Dir dir;
  ASSERT_EQ(mkdir((dir / "a").c_str(), 0755), 0);
  std::vector<std::string> made;
  EXPECT_TRUE(mkdir_p((dir / "a/b/c").c_str(), 0755, [&](const char* path) {
    made.push_back(path);
    return true;
  }));
  EXPECT_THAT(made, ElementsAre(dir / "a/b", dir / "a/b/c"));
}

TEST(Mkdir_P, CallbackStopsIt) {
  const Temp_Dir dir;
  EXPECT_FALSE(mkdir_p((dir / "a/b").c_str(), 0755, [](const char*) { return false; }));
  EXPECT_EQ(errno, ECANCELED);
  EXPECT_TRUE(is_directory((dir / "a").c_str()));
  EXPECT_FALSE(is_directory((dir / "a/b").c_str()));
}

}  // namespace
