#include "kolt/first_match.h"

#include <glob.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <filesystem>
#include <thread>
#include <vector>

#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace {

class First_Match : public testing::Test {
 protected:
  void make_directories(const std::string& path, int count) {
    for (int i = 0; i < count; ++i) std::filesystem::create_directories(path + "/d" + std::to_string(i));
  }

  /// What the system's own search finds first.
  static std::optional<std::string> of_the_system(const std::string& pattern) {
    glob_t globber = {};
    std::optional<std::string> found;
    if (glob(pattern.c_str(), 0, nullptr, &globber) == 0) found = globber.gl_pathv[0];
    globfree(&globber);
    return found;
  }

  test_support::Log_Capture log_;
  test_support::Temp_Dir dir_;
};

TEST_F(First_Match, IsThatOfTheSystemForPatternsOfAllKinds) {
  for (const char* path : {"b-c/x", "b/x", "b/y", ".hidden/x", "a*b/x", "[/x", "pods/p2/volumes/csi/pvc-1/f",
                           "pods/p1/volumes/nfs/pvc-2/f", "empty"})
    std::filesystem::create_directories(dir_ / path);
  dir_.write("file", "");
  std::filesystem::create_symlink(dir_ / "b", dir_ / "link");
  std::filesystem::create_symlink("nowhere", dir_ / "dangling");
  for (const char* pattern : {"*",
                              "*/x",
                              "b*/x",
                              "?/x",
                              "[ab]/?",
                              "[!b]*/x",
                              ".*",
                              ".*/x",
                              "a\\*b/x",
                              "\\[/x",
                              "[/x",
                              "*/",
                              "file/",
                              "file/*",
                              "link",
                              "link/*",
                              "l*/x",
                              "dangling",
                              "d*",
                              "empty/*",
                              "b/../*/x",
                              "*/../b/*",
                              "b//x",
                              "pods/*/volumes/*/pvc-1",
                              "pods/*/volumes/*/pvc-2/f",
                              "pods/*/volumes/*/pvc-3",
                              "b/x",
                              "nothing",
                              "b/*/..",
                              "",
                              "~",
                              "{b,c}"}) {
    const std::string whole = dir_ / pattern;
    EXPECT_EQ(of_the_system(whole), first_match(whole)) << pattern;
  }
  EXPECT_EQ(of_the_system(""), first_match(""));
  EXPECT_EQ(of_the_system("/"), first_match("/"));
  EXPECT_EQ(std::nullopt, first_match(dir_ / "nothing*"));
  EXPECT_EQ(dir_ / "b-c/x", first_match(dir_ / "b*/x")) << "paths are sorted as a whole";
  EXPECT_EQ("", log_.all());
}

TEST_F(First_Match, GoesThroughAllOfAWideDirectory) {
  for (int i = 0; i < 3000; ++i) dir_.write("f" + std::to_string(i), "");
  dir_.write("a", "");
  EXPECT_EQ(dir_ / "a", first_match(dir_ / "*"));
}

// Each step over ".." multiplies the paths by the number of directories: 100^12 of them.
TEST_F(First_Match, PatternThatMultipliesItsPathsEndsWithOneWarning) {
  make_directories(dir_.path(), 100);
  std::string pattern = dir_.path();
  for (int i = 0; i < 12; ++i) pattern += "/*/..";
  EXPECT_EQ(std::nullopt, first_match(pattern + "/*"));
  EXPECT_TRUE(log_.has_containing(LM_WARNING, "is given up: it leads to too many paths.")) << log_.all();
}

TEST_F(First_Match, SanePatternWithAStepUpIsServed) {
  make_directories(dir_.path(), 20);
  EXPECT_EQ(dir_ / "d0/../d0/../d0", first_match(dir_ / "*/../*/../*"));
}

TEST_F(First_Match, PatternOfAThousandStepsIsServed) {
  std::string deep = dir_.path(), pattern = dir_.path();
  for (int i = 0; i < 1000; ++i) {
    deep += "/d";
    pattern += "/*";
  }
  ASSERT_TRUE(std::filesystem::create_directories(deep));
  EXPECT_EQ(deep, first_match(pattern));
}

TEST_F(First_Match, PatternLongerThanAPathIsRefusedAtOnce) {
  std::string pattern;
  for (int i = 0; i < 2'000'000; ++i) pattern += "/*";
  EXPECT_EQ(std::nullopt, first_match(pattern));
  EXPECT_TRUE(log_.has_containing(LM_WARNING, "is given up: it is longer than a path may be.")) << log_.all();
}

TEST_F(First_Match, TimeThatIsOverEndsTheSearch) {
  Match_Limits limits;
  limits.time = std::chrono::milliseconds(0);
  EXPECT_EQ(std::nullopt, first_match(dir_ / "*", limits));
  EXPECT_TRUE(log_.has_containing(LM_WARNING, "too many paths"));
}

TEST_F(First_Match, LimitLeavesNoHalfAnswer) {
  for (int i = 0; i < 100; ++i) dir_.write("f" + std::to_string(i), "");
  Match_Limits limits;
  limits.bytes = 50 * (64 + dir_.path().size());
  EXPECT_EQ(std::nullopt, first_match(dir_ / "*", limits));
}

TEST_F(First_Match, ThreadsHaveTheirOwnLimits) {
  make_directories(dir_.path(), 50);
  std::vector<std::thread> threads;
  std::atomic<int> found{0};
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      Match_Limits small;
      small.bytes = 100;
      for (int j = 0; j < 20; ++j) {
        if (!first_match(dir_ / "*", small)) ++found;
        if (first_match(dir_ / "*/..")) ++found;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(4 * 20 * 2, found);
}

}  // namespace
