// What the bases do on a POSIX filesystem, also through "/proc/self/fd/N/name".
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>

#include "mtf/core/backup_callback.h"
#include "mtf/core/restore_callback.h"
#include "mtf/core/source_lister.h"
#include "mtf/fs/unix/util.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace {

using namespace MTF;
using test_support::Temp_Dir;

class Backup : public IBackup_Callback {
 public:
  char directory_separator() const override { return '/'; }
  bool lstat(const char*, Callback_Stat&) override { return false; }
  ssize_t readlink(const char*, char*, size_t) override { return -1; }
  IFile_Reader_var make_file_reader() override { return IFile_Reader_var(); }
  bool read_dirs(const char*, std::list<Directory_Entry>&) override { return false; }
};

class Restore : public Restore_Callback_Base {
 public:
  char directory_separator() const override { return '/'; }
  bool mkdir_p(const char*) override { return false; }
  Error_Code symlink(const char*, const char*) override { return E_FAILED; }
  Error_Code link(const char*, const char*) override { return E_FAILED; }
  Error_Code set_stat(const char*, const Callback_Stat&) override { return E_FAILED; }
  IFile_Writer_var make_file_writer() override { return IFile_Writer_var(); }
};

class Callback_Bases : public ::testing::Test {
 protected:
  Callback_Bases() : dir_fd_(::open(dir_.path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)) {}
  ~Callback_Bases() override { ::close(dir_fd_); }

  /// The path of @a name anchored at the directory's descriptor.
  std::string anchored(const std::string& name) const {
    return "/proc/self/fd/" + std::to_string(dir_fd_) + "/" + name;
  }

  struct stat stat_of(const std::string& name) const {
    struct stat st = {};
    EXPECT_EQ(::lstat((dir_ / name).c_str(), &st), 0) << name;
    return st;
  }

  void make_link(const std::string& target, const std::string& name) {
    ASSERT_EQ(::symlink(target.c_str(), (dir_ / name).c_str()), 0);
  }

  bool has_user_xattrs() {
    dir_.write("probe", "");
    return ::lsetxattr((dir_ / "probe").c_str(), "user.probe", "1", 1, 0) == 0;
  }

  Temp_Dir dir_;
  int dir_fd_;
  Backup backup_;
  Restore restore_;
};

TEST_F(Callback_Bases, XattrsAreReadAndSetWhole) {
  if (!has_user_xattrs()) GTEST_SKIP() << "no user attributes on this filesystem";
  dir_.write("from", "");
  dir_.write("to", "");
  const Xattrs attrs = {
      {"user.binary", std::string("\0\1\xff", 3)}, {"user.empty", ""}, {"user.long", std::string(3000, 'v')}};
  ASSERT_EQ(restore_.set_xattrs(anchored("from").c_str(), attrs), E_OK);
  Xattrs read = {{"left", "over"}};
  ASSERT_TRUE(backup_.read_xattrs(anchored("from").c_str(), read));
  EXPECT_EQ(read, attrs);
}

TEST_F(Callback_Bases, ManyXattrsAreReadSorted) {
  if (!has_user_xattrs()) GTEST_SKIP() << "no user attributes on this filesystem";
  dir_.write("file", "");
  Xattrs attrs;
  for (int i = 60; i >= 10; --i) attrs.emplace_back("user.attribute." + std::to_string(i), "v");
  ASSERT_EQ(restore_.set_xattrs(anchored("file").c_str(), attrs), E_OK);
  Xattrs read;
  ASSERT_TRUE(backup_.read_xattrs(anchored("file").c_str(), read));
  EXPECT_EQ(read.size(), 51u);
  EXPECT_TRUE(std::is_sorted(read.begin(), read.end()));
}

TEST_F(Callback_Bases, XattrsAreThoseOfALinkNotOfItsTarget) {
  if (!has_user_xattrs()) GTEST_SKIP() << "no user attributes on this filesystem";
  make_link("probe", "link");
  Xattrs read = {{"left", "over"}};
  EXPECT_TRUE(backup_.read_xattrs(anchored("link").c_str(), read));
  EXPECT_TRUE(read.empty());
}

TEST_F(Callback_Bases, AFailedXattrDoesNotKeepTheOthersAway) {
  if (!has_user_xattrs()) GTEST_SKIP() << "no user attributes on this filesystem";
  errno = 0;
  EXPECT_EQ(restore_.set_xattrs(anchored("probe").c_str(), {{"unknown.space", "x"}, {"user.z", "y"}}), E_FAILED);
  EXPECT_EQ(errno, EOPNOTSUPP);
  char value[8];
  EXPECT_EQ(::lgetxattr((dir_ / "probe").c_str(), "user.z", value, sizeof value), 1);
}

TEST_F(Callback_Bases, XattrsOfAMissingFileAreAnError) {
  Xattrs read;
  EXPECT_FALSE(backup_.read_xattrs(anchored("none").c_str(), read));
  EXPECT_EQ(errno, ENOENT);
}

TEST_F(Callback_Bases, AFilesystemWithoutXattrsHasNone) {
  Xattrs read;
  EXPECT_TRUE(backup_.read_xattrs("/proc/self/status", read));
  EXPECT_TRUE(read.empty());
}

TEST_F(Callback_Bases, CheckDirectoryTellsWhatCannotBeRead) {
  EXPECT_TRUE(backup_.check_directory(dir_.path().c_str()));
  dir_.write("file", "");
  EXPECT_FALSE(backup_.check_directory(anchored("file").c_str()));
  EXPECT_EQ(errno, ENOTDIR);
  make_link(".", "link");
  EXPECT_FALSE(backup_.check_directory(anchored("link").c_str()));
  EXPECT_EQ(errno, ENOTDIR);
  EXPECT_FALSE(backup_.check_directory(anchored("none").c_str()));
  EXPECT_EQ(errno, ENOENT);
}

TEST_F(Callback_Bases, FullLstatTellsNanosecondsAndTheTrueError) {
  dir_.write("file", "x");
  const timespec times[2] = {{5, 6}, {7, 8}};
  ASSERT_EQ(::utimensat(AT_FDCWD, (dir_ / "file").c_str(), times, 0), 0);
  ACE_stat st;
  ASSERT_TRUE(backup_.full_lstat(anchored("file").c_str(), st));
  EXPECT_EQ(st.st_mtim.tv_nsec, 8);
  EXPECT_FALSE(backup_.full_lstat(anchored("file/below").c_str(), st));
  EXPECT_EQ(errno, ENOTDIR);
}

TEST_F(Callback_Bases, SetTimesChangesALinkAndNotItsTarget) {
  dir_.write("target", "");
  make_link("target", "link");
  ASSERT_EQ(restore_.set_times(anchored("link").c_str(), {11, 12}, {13, 14}), E_OK);
  EXPECT_EQ(stat_of("link").st_atim.tv_sec, 11);
  EXPECT_EQ(stat_of("link").st_mtim.tv_sec, 13);
  EXPECT_EQ(stat_of("link").st_mtim.tv_nsec, 14);
  EXPECT_NE(stat_of("target").st_mtim.tv_sec, 13);
}

TEST_F(Callback_Bases, SetDirTimeTakesWholeSeconds) {
  ASSERT_EQ(::mkdir((dir_ / "sub").c_str(), 0755), 0);
  ASSERT_EQ(restore_.set_dir_time(anchored("sub").c_str(), 100, 200, 300), E_OK);
  EXPECT_EQ(stat_of("sub").st_atim.tv_sec, 100);
  EXPECT_EQ(stat_of("sub").st_mtim.tv_sec, 200);
  EXPECT_EQ(restore_.set_dir_time(anchored("none").c_str(), 1, 2, 3), E_FAILED);
}

TEST_F(Callback_Bases, SetModeSetsAllTwelveBits) {
  dir_.write("file", "");
  ASSERT_EQ(restore_.set_mode(anchored("file").c_str(), S_IFREG | 06751), E_OK);
  EXPECT_EQ(stat_of("file").st_mode & 07777, 06751u);
}

TEST_F(Callback_Bases, SetModeOfALinkChangesNothing) {
  dir_.write("target", "");
  ASSERT_EQ(::chmod((dir_ / "target").c_str(), 0600), 0);
  make_link("target", "link");
  EXPECT_EQ(restore_.set_mode(anchored("link").c_str(), 0777), E_OK);
  EXPECT_EQ(stat_of("target").st_mode & 07777, 0600u);
  EXPECT_EQ(restore_.set_mode(anchored("none").c_str(), 0777), E_FAILED);
}

TEST_F(Callback_Bases, SetOwnerChangesALinkAndNotItsTarget) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root gives files away";
  dir_.write("target", "");
  make_link("target", "link");
  ASSERT_EQ(restore_.set_owner(anchored("link").c_str(), 1234, 2345), E_OK);
  EXPECT_EQ(stat_of("link").st_uid, 1234u);
  EXPECT_EQ(stat_of("link").st_gid, 2345u);
  EXPECT_EQ(stat_of("target").st_uid, 0u);
}

TEST_F(Callback_Bases, SetOwnerThatFailsIsSilentAndSetFileOwnerIsNot) {
  test_support::Log_Capture log;
  EXPECT_EQ(restore_.set_owner(anchored("none").c_str(), 0, 0), E_FAILED);
  EXPECT_EQ(log.all(), "");
  errno = 0;
  EXPECT_FALSE(MTF_FS::set_file_owner((dir_ / "none").c_str(), 0, 0));
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(log.all(), "128 Failed to change " + (dir_ / "none") + " owner, errno=2, No such file or directory\n");
}

TEST_F(Callback_Bases, UnlinkRemovesALinkAndAcceptsWhatIsGone) {
  dir_.write("target", "");
  make_link("target", "link");
  EXPECT_EQ(restore_.unlink(anchored("link").c_str()), E_OK);
  EXPECT_EQ(restore_.unlink(anchored("link").c_str()), E_OK);
  EXPECT_EQ(stat_of("target").st_nlink, 1u);
  ASSERT_EQ(::mkdir((dir_ / "sub").c_str(), 0755), 0);
  EXPECT_EQ(restore_.unlink(anchored("sub").c_str()), E_FAILED);
}

TEST_F(Callback_Bases, RenameReplaces) {
  dir_.write("from", "new");
  dir_.write("to", "old");
  EXPECT_EQ(restore_.rename(anchored("from").c_str(), anchored("to").c_str()), E_OK);
  EXPECT_EQ(test_support::read_file(dir_ / "to"), "new");
  EXPECT_EQ(restore_.rename(anchored("from").c_str(), anchored("to").c_str()), E_FAILED);
}

TEST_F(Callback_Bases, MknodMakesAFifo) {
  Callback_Stat st;
  st.mode = S_IFIFO | 0600;
  EXPECT_EQ(restore_.mknod(anchored("fifo").c_str(), st), E_OK);
  EXPECT_TRUE(S_ISFIFO(stat_of("fifo").st_mode));
  EXPECT_EQ(restore_.mknod(anchored("fifo").c_str(), st), E_FAILED);
  EXPECT_EQ(errno, EEXIST);
}

TEST_F(Callback_Bases, MknodMakesADevice) {
  Callback_Stat st;
  st.mode = S_IFCHR | 0600;
  st.rdev = makedev(1, 3);
  if (restore_.mknod(anchored("null").c_str(), st) != E_OK) GTEST_SKIP() << "devices are not allowed here";
  EXPECT_EQ(stat_of("null").st_rdev, makedev(1, 3));
}

TEST_F(Callback_Bases, MktempMakesAFreshPrivateFileBesideTheOther) {
  const std::string longest(255, 'n');
  std::string first;
  std::string second;
  ASSERT_EQ(restore_.mktemp((dir_ / longest).c_str(), first), E_OK);
  ASSERT_EQ(restore_.mktemp((dir_ / longest).c_str(), second), E_OK);
  EXPECT_NE(first, second);
  EXPECT_EQ(first.rfind(dir_.path() + "/", 0), 0u);
  struct stat st;
  ASSERT_EQ(::lstat(first.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode, S_IFREG | 0600u);
  EXPECT_EQ(restore_.mktemp((dir_ / "none/file").c_str(), first), E_FAILED);
  EXPECT_EQ(errno, ENOENT);
}

TEST_F(Callback_Bases, TheOtherOperationsOfABackupDoNothing) {
  EXPECT_TRUE(backup_.make_source_lister({"/srv"}).null());
  EXPECT_EQ(backup_.file_count_one_percent(), 1000u);
  EXPECT_EQ(backup_.max_file_count_percent(), 99);
}

}  // namespace
