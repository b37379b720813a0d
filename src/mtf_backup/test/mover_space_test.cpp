// A pool, and a target, on a filesystem that is full at some random point, in the sandbox.
#include <sys/mount.h>
#include <sys/statvfs.h>

#include "mtf_backup/test/file_pool.h"

using namespace mover_test;
using test_support::Log_Capture;

namespace {

namespace fs = std::filesystem;

class Full_Filesystem : public File_Pool_Fixture {
 protected:
  void SetUp() override {
    for (int i = 0; i < 40; ++i) write("d" + std::to_string(i % 5) + "/f" + std::to_string(i), noise(20'000, i));
    write("large", noise(1u << 20));
  }
  void TearDown() override {
    for (const std::string& path : mounted_) EXPECT_EQ(0, umount(path.c_str()));
  }

  void mount_small(const std::string& path) {
    fs::create_directories(path);
    ASSERT_EQ(0, mount("tmpfs", path.c_str(), "tmpfs", 0, "size=6m"));
    mounted_.push_back(path);
  }
  static size_t free_bytes(const std::string& path) {
    struct statvfs st;
    return statvfs(path.c_str(), &st) == 0 ? st.f_bavail * st.f_frsize : 0;
  }
  /// Fills the filesystem but for so many bytes.
  void fill(const std::string& path, size_t left) {
    std::ofstream(path + "/filler") << std::string(free_bytes(path) - left, 'f');
  }

  std::vector<std::string> mounted_;
  std::mt19937 random_{std::random_device()()};
};

TEST_F(Full_Filesystem, PoolThatIsFullInMidSetKeepsItsOlderSets) {
  ASSERT_NO_FATAL_FAILURE(mount_small(pool_dir_));
  ASSERT_TRUE(back_up({.channels = 2}));
  const auto before = pool_files();
  for (int round = 0; round < 30; ++round) {
    const size_t left = random_() % 1'900'000;
    SCOPED_TRACE(std::to_string(left) + " bytes left");
    fill(pool_dir_, left);
    Log_Capture log;
    EXPECT_FALSE(back_up({.channels = 2, .seq = 1}));
    EXPECT_THAT((std::vector<MTF::Error_Code>{MTF::E_OPEN_MEDIA, MTF::E_WRITE_TO_STORAGE, MTF::E_ADD_TO_CATALOG}),
                ::testing::Contains(code_));
    EXPECT_TRUE(log.has_containing(LM_ERROR, "No space left on device")) << log.all();
    fs::remove(pool_dir_ + "/filler");
    ASSERT_TRUE(before == pool_files());
  }
  EXPECT_TRUE(restore());
  EXPECT_EQ("", differences());
  EXPECT_TRUE(back_up({.channels = 2, .seq = 1}));
}

TEST_F(Full_Filesystem, TargetThatIsFullHoldsWholeFilesOnly) {
  ASSERT_TRUE(back_up({.channels = 2}));
  ASSERT_NO_FATAL_FAILURE(mount_small(target_));
  for (int round = 0; round < 15; ++round) {
    const size_t left = random_() % 1'800'000;
    SCOPED_TRACE(std::to_string(left) + " bytes left");
    fill(target_, left);
    Log_Capture log;
    EXPECT_FALSE(restore());
    EXPECT_EQ(MTF::E_FAILED, code_) << log.all();
    EXPECT_TRUE(log.has_containing(LM_ERROR, "No space left on device")) << log.all();
    fs::remove(target_ + "/filler");
    for (const auto& entry : fs::recursive_directory_iterator(target_)) {
      if (!entry.is_regular_file()) continue;
      const std::string name = entry.path().string().substr(target_.size());
      ASSERT_TRUE(fs::exists(source_ + name)) << name << " is left over";
      ASSERT_TRUE(test_support::read_file(source_ + name) == test_support::read_file(entry.path().string())) << name;
    }
    clear_target();
  }
  EXPECT_TRUE(restore());
  EXPECT_EQ("", differences());
}

TEST_F(Full_Filesystem, OneThatIsMountedInTheTargetFailsByItself) {
  ASSERT_EQ(0, chmod((source_ + "/d1").c_str(), 0750));
  ASSERT_TRUE(back_up());
  for (const bool read_only : {false, true}) {
    SCOPED_TRACE(read_only);
    clear_target();
    const std::string inner = target_ + "/d0";
    ASSERT_NO_FATAL_FAILURE(mount_small(inner));
    if (read_only)
      ASSERT_EQ(0, mount(nullptr, inner.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, "size=6m"));
    else
      fill(inner, 0);
    Log_Capture log;
    EXPECT_FALSE(restore());
    EXPECT_EQ(MTF::E_END_WITH_SKIPPED_FILES, code_) << log.all();
    EXPECT_TRUE(log.has_containing(LM_ERROR, strerror(read_only ? EROFS : ENOSPC))) << log.all();
    for (const auto& entry : fs::recursive_directory_iterator(source_)) {
      const std::string name = entry.path().string().substr(source_.size());
      struct stat was;
      struct stat is;
      if (name.starts_with("/d0")) continue;
      ASSERT_EQ(0, lstat((source_ + name).c_str(), &was));
      ASSERT_EQ(0, lstat((target_ + name).c_str(), &is)) << name;
      EXPECT_EQ(was.st_mode, is.st_mode) << name;
    }
    ASSERT_EQ(0, umount(inner.c_str()));
    mounted_.pop_back();
  }
}

}  // namespace
