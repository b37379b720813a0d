#include "k8s/api/k8s_utils.h"

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "k8s/api/mount_calls.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace {

namespace fs = std::filesystem;
using k8s::mount_bind;
using k8s::umounts;
using test_support::Log_Capture;
using test_support::Temp_Dir;

/// Writes down all calls, and fails the one whose number it is given with EPERM. The others go to the system.
class Recorded_Mount_Calls : public k8s::Mount_Calls {
 public:
  Recorded_Mount_Calls() { install(this); }
  ~Recorded_Mount_Calls() override { install(nullptr); }

  int mount(const char* src, const char* target, unsigned long flags) override {
    char text[32];
    std::snprintf(text, sizeof text, "0x%lx", flags);
    calls.push_back(std::string("mount ") + src + " " + target + " " + text);
    return fails() ? -1 : Mount_Calls::mount(src, target, flags);
  }
  int seal(const char* target) override {
    calls.push_back(std::string("seal ") + target);
    return fails() ? -1 : Mount_Calls::seal(target);
  }
  int umount(const char* target, int flags) override {
    calls.push_back(std::string("umount ") + target + " " + std::to_string(flags));
    return fails() ? -1 : Mount_Calls::umount(target, flags);
  }

  std::vector<std::string> calls;
  size_t failing_call = 0;  ///< counted from 1; 0: none

 private:
  bool fails() const {
    errno = EPERM;
    return calls.size() == failing_call;
  }
};

/// Whether a file can be made in the directory; if not, errno tells why.
bool can_write(const std::string& directory) {
  const std::string file = directory + "/written";
  const int fd = open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  if (fd < 0) return false;
  close(fd);
  unlink(file.c_str());
  return true;
}

bool is_mount_point(const std::string& path) {
  struct statx info = {};
  return statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, 0, &info) == 0 &&
         (info.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
}

class Bind_Mounts : public ::testing::Test {
 protected:
  Bind_Mounts() {
    source_dir.write("a/file", "content");
    fs::create_directory(data);
  }
  ~Bind_Mounts() override {
    // A lazy unmount takes one of several mounts on top of each other, so it is repeated.
    for (int i = 0; i < 3; ++i)
      for (const auto& entry : fs::directory_iterator(data)) umount2(entry.path().c_str(), MNT_DETACH);
    umount2(sub.c_str(), MNT_DETACH);
  }

  /// A filesystem of its own inside the source.
  void mount_inside_source() {
    fs::create_directory(sub);
    ASSERT_EQ(0, ::mount("tmpfs", sub.c_str(), "tmpfs", 0, nullptr)) << std::strerror(errno);
    std::ofstream(sub + "/inner") << "inner";
  }

  Temp_Dir source_dir;
  Temp_Dir target_dir;
  const std::string source = source_dir / "a";
  const std::string sub = source + "/sub";
  const std::string data = target_dir / "data";
  const std::string target = data + "/vol";
};

TEST_F(Bind_Mounts, TargetShowsTheSourceAndIsReadOnly) {
  ASSERT_TRUE(mount_bind(source, target));
  EXPECT_EQ("content", test_support::read_file(target + "/file"));
  EXPECT_FALSE(can_write(target));
  EXPECT_EQ(EROFS, errno);
}

TEST_F(Bind_Mounts, ExistingTargetDirectoryIsBoundTo) {
  fs::create_directories(target);
  ASSERT_TRUE(mount_bind(source, target));
  EXPECT_TRUE(is_mount_point(target));
}

TEST_F(Bind_Mounts, MissingTargetIsMadeWithItsParents) {
  const std::string deep = data + "/p/q/vol";
  ASSERT_TRUE(mount_bind(source, deep));
  struct stat info = {};
  ASSERT_EQ(0, stat((data + "/p/q").c_str(), &info));
  EXPECT_EQ(0750u, info.st_mode & 07777);
  umount2(deep.c_str(), MNT_DETACH);
}

TEST_F(Bind_Mounts, CallsGoOutInOrderWithTheirFlags) {
  Recorded_Mount_Calls system;
  ASSERT_TRUE(mount_bind(source, target));
  EXPECT_THAT(system.calls, ::testing::ElementsAre("mount " + source + " " + target + " 0x5000",
                                                   "mount " + source + " " + target + " 0x5021", "seal " + target));
}

TEST_F(Bind_Mounts, SourceStaysWritable) {
  ASSERT_TRUE(mount_bind(source, target));
  EXPECT_TRUE(can_write(source));
}

TEST_F(Bind_Mounts, MountInsideTheSourceIsReadOnlyThroughTheBind) {
  mount_inside_source();
  ASSERT_TRUE(mount_bind(source, target));
  EXPECT_EQ("inner", test_support::read_file(target + "/sub/inner"));
  EXPECT_FALSE(can_write(target + "/sub"));
  EXPECT_EQ(EROFS, errno);
}

TEST_F(Bind_Mounts, MountInsideTheSourceStaysWritableThere) {
  mount_inside_source();
  ASSERT_TRUE(mount_bind(source, target));
  EXPECT_TRUE(can_write(sub));
}

TEST_F(Bind_Mounts, DetachingTheBindOfASharedTreeKeepsTheMountsOfItsSource) {
  ASSERT_EQ(0, ::mount(source.c_str(), source.c_str(), nullptr, MS_BIND, nullptr));
  ASSERT_EQ(0, ::mount(nullptr, source.c_str(), nullptr, MS_SHARED, nullptr));
  mount_inside_source();
  ASSERT_TRUE(mount_bind(source, target));
  ASSERT_TRUE(umounts(data));
  EXPECT_FALSE(is_mount_point(target));
  EXPECT_TRUE(is_mount_point(sub));
  umount2(sub.c_str(), MNT_DETACH);
  umount2(source.c_str(), MNT_DETACH);
}

TEST_F(Bind_Mounts, LaterMountInASharedSourceDoesNotAppearInTheBind) {
  ASSERT_EQ(0, ::mount(source.c_str(), source.c_str(), nullptr, MS_BIND, nullptr));
  ASSERT_EQ(0, ::mount(nullptr, source.c_str(), nullptr, MS_SHARED, nullptr));
  ASSERT_TRUE(mount_bind(source, target));
  mount_inside_source();
  EXPECT_FALSE(is_mount_point(target + "/sub"));
  umount2(sub.c_str(), MNT_DETACH);
  umount2(source.c_str(), MNT_DETACH);
}

TEST_F(Bind_Mounts, TargetBelowAFileCannotBeMade) {
  const std::string file = target_dir.write("data/file", "");
  const std::string below = file + "/vol";
  Log_Capture log;
  Recorded_Mount_Calls system;
  EXPECT_FALSE(mount_bind(source, below));
  EXPECT_THAT(log.texts(LM_ERROR), ::testing::ElementsAre("Failed to create directory '" + below + "'.\n"));
  EXPECT_THAT(system.calls, ::testing::IsEmpty());
}

TEST_F(Bind_Mounts, FailedBindIsLoggedAndNothingMoreIsTried) {
  Log_Capture log;
  Recorded_Mount_Calls system;
  system.failing_call = 1;
  EXPECT_FALSE(mount_bind(source, target));
  EXPECT_THAT(log.texts(LM_ERROR),
              ::testing::ElementsAre("Failed to mount data directory '" + source + "' to '" + target + "'.\n"));
  EXPECT_EQ(1u, system.calls.size());
  EXPECT_FALSE(is_mount_point(target));
}

TEST_F(Bind_Mounts, SourceThatIsNotThereCannotBeBound) {
  Log_Capture log;
  EXPECT_FALSE(mount_bind(source + "/none", target));
  EXPECT_THAT(log.texts(LM_ERROR),
              ::testing::ElementsAre("Failed to mount data directory '" + source + "/none' to '" + target + "'.\n"));
}

TEST_F(Bind_Mounts, FailedRemountLeavesTheBindForTheCleanUp) {
  Log_Capture log;
  Recorded_Mount_Calls system;
  system.failing_call = 2;
  EXPECT_FALSE(mount_bind(source, target));
  EXPECT_THAT(log.texts(LM_ERROR),
              ::testing::ElementsAre("Failed to mount data directory '" + source + "' to '" + target + "'.\n"));
  EXPECT_TRUE(is_mount_point(target));
  EXPECT_TRUE(umounts(data));
  EXPECT_FALSE(is_mount_point(target));
}

TEST_F(Bind_Mounts, BindWhoseRemountFailedIsSealedAllTheSame) {
  Log_Capture log;
  Recorded_Mount_Calls system;
  system.failing_call = 2;
  EXPECT_FALSE(mount_bind(source, target));
  EXPECT_FALSE(can_write(target));
  EXPECT_EQ(EROFS, errno);
}

TEST_F(Bind_Mounts, FailureToSealTheTreeFailsTheBind) {
  Log_Capture log;
  Recorded_Mount_Calls system;
  system.failing_call = 3;
  EXPECT_FALSE(mount_bind(source, target));
  const std::vector<std::string> errors = log.texts(LM_ERROR);
  ASSERT_EQ(1u, errors.size());
  EXPECT_THAT(errors[0], ::testing::HasSubstr("'" + target + "'"));
  EXPECT_THAT(errors[0], ::testing::HasSubstr("Operation not permitted"));
}

TEST_F(Bind_Mounts, EveryBindIsDetached) {
  ASSERT_TRUE(mount_bind(source, target));
  ASSERT_TRUE(mount_bind(source, data + "/second"));
  Recorded_Mount_Calls system;
  EXPECT_TRUE(umounts(data));
  EXPECT_THAT(system.calls, ::testing::UnorderedElementsAre("umount " + target + " 2", "umount " + data + "/second 2"));
  EXPECT_FALSE(is_mount_point(target));
  EXPECT_FALSE(is_mount_point(data + "/second"));
}

TEST_F(Bind_Mounts, BindKeptBusyByAnOpenFileIsDetached) {
  ASSERT_TRUE(mount_bind(source, target));
  const int fd = open((target + "/file").c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_GE(fd, 0);
  EXPECT_TRUE(umounts(data));
  EXPECT_FALSE(is_mount_point(target));
  close(fd);
}

TEST_F(Bind_Mounts, FailedUnmountNamesTheParentAndTheWalkGoesOn) {
  ASSERT_TRUE(mount_bind(source, target));
  ASSERT_TRUE(mount_bind(source, data + "/second"));
  Log_Capture log;
  Recorded_Mount_Calls system;
  system.failing_call = 1;
  EXPECT_TRUE(umounts(data));
  EXPECT_THAT(log.texts(LM_WARNING), ::testing::ElementsAre("Failed to umount data directory '" + data + "'.\n"));
  EXPECT_EQ(2u, system.calls.size());
}

TEST_F(Bind_Mounts, DirectoryThatIsNoMountPointIsAFailedUnmount) {
  fs::create_directory(target);
  Log_Capture log;
  EXPECT_TRUE(umounts(data));
  EXPECT_THAT(log.texts(LM_WARNING), ::testing::ElementsAre("Failed to umount data directory '" + data + "'.\n"));
}

TEST_F(Bind_Mounts, FilesAndLinksAmongTheChildrenAreNotUnmounted) {
  target_dir.write("data/file", "");
  fs::create_directory_symlink(source, data + "/link");
  Recorded_Mount_Calls system;
  EXPECT_TRUE(umounts(data));
  EXPECT_THAT(system.calls, ::testing::IsEmpty());
}

TEST_F(Bind_Mounts, MountTwoLevelsBelowIsNotVisited) {
  const std::string deep = target + "/deep";
  ASSERT_TRUE(mount_bind(source, deep));
  Log_Capture log;
  EXPECT_TRUE(umounts(data));
  EXPECT_TRUE(is_mount_point(deep));
  umount2(deep.c_str(), MNT_DETACH);
}

TEST_F(Bind_Mounts, EmptyDirectoryIsUnmountedWithoutACall) {
  Log_Capture log;
  EXPECT_TRUE(umounts(data));
  EXPECT_EQ("", log.all());
}

TEST_F(Bind_Mounts, PathThatIsNotThereIsRefusedSilently) {
  Log_Capture log;
  EXPECT_FALSE(umounts(data + "/none"));
  EXPECT_EQ("", log.all());
}

TEST_F(Bind_Mounts, FileInPlaceOfTheDirectoryIsRefused) {
  EXPECT_FALSE(umounts(source + "/file"));
}

}  // namespace
