#include "mtf_backup/run/anchored_dir.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <thread>

#include "support/temp_dir.h"

namespace {

using MTF_BACKUP::Anchored_Dir;

class AnchoredDir : public testing::Test {
 protected:
  AnchoredDir() {
    for (const char* dir : {"a", "b"}) {
      std::filesystem::create_directory(dir_.path() + "/" + dir);
      std::ofstream(dir_.path() + "/" + dir + "/name") << dir;
    }
    root_ = Posix_Fd(::open(dir_.path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  }

  static std::string content(const std::string& path) {
    std::ifstream in(path);
    return {std::istreambuf_iterator<char>(in), {}};
  }

  // Threads that enter directories are never the caller's.
  template <typename Body>
  static void on_a_thread(Body body) {
    std::thread(body).join();
  }

  test_support::Temp_Dir dir_;
  Posix_Fd root_;
};

TEST_F(AnchoredDir, PathsLeadThroughTheDescriptor) {
  Anchored_Dir dir;
  ASSERT_TRUE(dir.open(root_.get(), "a"));
  EXPECT_EQ("a", content(dir.path("name")));
  std::filesystem::rename(dir_.path() + "/a", dir_.path() + "/moved");
  EXPECT_EQ("a", content(dir.path("name")));
}

TEST_F(AnchoredDir, ADirectoryThatWasEnteredHasShortPathsUntilTheNextOneIs) {
  on_a_thread([&] {
    Anchored_Dir first;
    Anchored_Dir second;
    ASSERT_TRUE(first.open(root_.get(), "a") && second.open(root_.get(), "b"));
    first.enter();
    EXPECT_STREQ("./name", first.path("name"));
    EXPECT_STREQ("./.", first.path(""));
    EXPECT_EQ("a", content(first.path("name")));
    EXPECT_EQ("b", content(second.path("name")));
    second.enter();
    EXPECT_STREQ("./name", second.path("name"));
    EXPECT_EQ("b", content(second.path("name")));
    EXPECT_EQ("a", content(first.path("name")));
  });
}

TEST_F(AnchoredDir, OneThatIsOpenedAnewOrMovedHasNotBeenEntered) {
  on_a_thread([&] {
    Anchored_Dir dir;
    ASSERT_TRUE(dir.open(root_.get(), "a"));
    dir.enter();
    ASSERT_TRUE(dir.open(root_.get(), "b"));
    EXPECT_EQ("b", content(dir.path("name")));
    dir.enter();
    Anchored_Dir other;
    other = std::move(dir);
    EXPECT_FALSE(dir);
    ASSERT_TRUE(dir.open(root_.get(), "a"));
    EXPECT_EQ("b", content(other.path("name")));
    EXPECT_EQ("a", content(dir.path("name")));
  });
}

TEST_F(AnchoredDir, OtherThreadsKeepTheirWorkingDirectory) {
  const std::string here = std::filesystem::current_path();
  Anchored_Dir dir;
  ASSERT_TRUE(dir.open(root_.get(), "a"));
  on_a_thread([&] {
    dir.enter();
    EXPECT_EQ(dir_.path() + "/a", std::filesystem::current_path());
    EXPECT_EQ("a", content(dir.path("name")));
    dir.close();
  });
  EXPECT_EQ(here, std::filesystem::current_path());
}

TEST_F(AnchoredDir, LinksAreNotPassed) {
  std::filesystem::create_directory_symlink("a", dir_.path() + "/link");
  Anchored_Dir dir;
  EXPECT_FALSE(dir.open(root_.get(), "link"));
}

}  // namespace
