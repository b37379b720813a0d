#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "kolt/mount_table.h"
#include "kolt/posix_fd.h"
#include "kolt/rm_all.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "support/tree_compare.h"
#include "support/tree_maker.h"

namespace {

namespace fs = std::filesystem;
using test_support::Log_Capture;
using test_support::Temp_Dir;
using testing::ElementsAre;
using testing::IsEmpty;

// A bind that is taken down at the end, whatever holds it.
class Bind {
 public:
  Bind(const std::string& source, const std::string& target) : target_(target) {
    fs::create_directories(target);
    if (mount(source.c_str(), target.c_str(), nullptr, MS_BIND, nullptr) != 0)
      ADD_FAILURE() << "cannot bind " << target << ": " << std::strerror(errno);
  }
  ~Bind() { umount2(target_.c_str(), MNT_DETACH); }

 private:
  const std::string target_;
};

// A source as a volume has it, and a copy of it to compare with later.
class Source {
 public:
  Source() {
    test_support::Tree_Options options;
    options.files = 300;
    options.bytes = 300'000;
    test_support::make_tree(path(), options);
    EXPECT_EQ(std::system(("cp -a " + path() + " " + dir_ / "copy").c_str()), 0);
  }

  std::string path() const { return dir_ / "source"; }
  void expect_untouched() const {
    const test_support::Tree_Report report = test_support::compare_trees(dir_ / "copy", path());
    EXPECT_THAT(report.differences, IsEmpty());
    EXPECT_GT(report.entries, 300u);
  }

 private:
  const Temp_Dir dir_;
};

std::string warning(const std::string& path, unsigned count, const std::string& first) {
  return "Failed to remove '" + path + "': " + std::to_string(count) + " left behind, the first is '" + first +
         "': Invalid cross-device link.\n";
}

TEST(Rm_All_On_Mounts, BusyBindOfTheSameFileSystemIsLeftWithItsSource) {
  const Source source;
  const Temp_Dir dir;
  const std::string data = dir / "data";
  const Bind bind(source.path(), data + "/volume");
  dir.write("data/other/file", "1");
  dir.write("data/file", "1");
  const Posix_Fd busy(open((data + "/volume").c_str(), O_RDONLY | O_DIRECTORY));
  const fs::path before = fs::current_path();
  fs::current_path(data + "/volume");
  ASSERT_NE(umount2((data + "/volume").c_str(), 0), 0);

  Log_Capture log;
  EXPECT_FALSE(rm_all(data.c_str()));
  EXPECT_EQ(errno, EXDEV);
  fs::current_path(before);
  source.expect_untouched();
  EXPECT_FALSE(fs::exists(data + "/other"));
  EXPECT_FALSE(fs::exists(data + "/file"));
  EXPECT_THAT(log.texts(LM_WARNING), ElementsAre(warning(data, 1, data + "/volume")));
}

TEST(Rm_All_On_Mounts, BindBelowABindAndDeepOnesAreLeftToo) {
  const Source source, second;
  const Temp_Dir dir;
  const std::string data = dir / "data";
  const Bind bind(source.path(), data + "/volume");
  const Bind deep(second.path(), data + "/a/b/c/second");
  const Temp_Dir inner;
  inner.write("file", "1");
  const Bind over(inner.path(), data + "/volume");
  dir.write("data/a/b/gone", "1");

  Log_Capture log;
  EXPECT_FALSE(rm_all(data.c_str()));
  EXPECT_THAT(log.texts(LM_WARNING), ElementsAre(testing::AnyOf(warning(data, 2, data + "/volume"),
                                                                warning(data, 2, data + "/a/b/c/second"))));
  second.expect_untouched();
  source.expect_untouched();
  EXPECT_TRUE(fs::exists(inner / "file"));
  EXPECT_FALSE(fs::exists(data + "/a/b/gone"));
}

TEST(Rm_All_On_Mounts, PathThatIsAMountPointIsLeft) {
  const Source source;
  const Temp_Dir dir;
  const Bind bind(source.path(), dir / "data");
  Log_Capture log;
  EXPECT_FALSE(rm_all((dir / "data").c_str()));
  EXPECT_FALSE(rm_all((dir / "data/").c_str()));
  source.expect_untouched();
  EXPECT_THAT(log.texts(LM_WARNING),
              ElementsAre(warning(dir / "data", 1, dir / "data"), warning(dir / "data/", 1, dir / "data")));
}

TEST(Rm_All_On_Mounts, FileThatIsAMountPointIsLeft) {
  const Temp_Dir dir;
  const std::string source = dir.write("source", "content");
  const std::string point = dir.write("data/point", "");
  ASSERT_EQ(mount(source.c_str(), point.c_str(), nullptr, MS_BIND, nullptr), 0);
  Log_Capture log;
  EXPECT_FALSE(rm_all((dir / "data").c_str()));
  EXPECT_EQ(errno, EBUSY);
  EXPECT_EQ(test_support::read_file(source), "content");
  EXPECT_EQ(log.texts(LM_WARNING).size(), 1u);
  ASSERT_EQ(umount2(point.c_str(), 0), 0);
}

TEST(Rm_All_On_Mounts, AllGoesOnceTheBindIsDown) {
  const Source source;
  const Temp_Dir dir;
  { const Bind bind(source.path(), dir / "data/volume"); }
  EXPECT_TRUE(rm_all((dir / "data").c_str()));
  EXPECT_FALSE(fs::exists(dir / "data"));
  source.expect_untouched();
}

TEST(Mounts_Below, ListsWhatIsMountedDeepestFirst) {
  const Temp_Dir dir, source;
  fs::create_directory(source / "inner");
  const Bind one(source.path(), dir / "volume with blank");
  const Bind two(source.path(), dir / "volume with blank/inner");
  const Bind three(source.path(), dir / "zero\nline");
  std::vector<std::string> mounts;
  ASSERT_TRUE(mounts_below(dir.path().c_str(), mounts));
  EXPECT_THAT(mounts, ElementsAre(dir / "volume with blank/inner", dir / "zero\nline", dir / "volume with blank"));
}

TEST(Mounts_Below, ResolvesThePath) {
  const Temp_Dir dir, source;
  const Bind bind(source.path(), dir / "real/volume");
  ASSERT_EQ(symlink("real", (dir / "link").c_str()), 0);
  std::vector<std::string> mounts;
  ASSERT_TRUE(mounts_below((dir / "link/").c_str(), mounts));
  EXPECT_THAT(mounts, ElementsAre(dir / "real/volume"));
}

}  // namespace
