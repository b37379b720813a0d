#include "k8s/job/k8s_restore_callback.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "no_memory.h"
#include "ordinary_user.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace {

using test_support::Log_Capture;
using test_support::read_file;
using test_support::Temp_Dir;

struct stat stat_of(const std::string& path) {
  struct stat st = {};
  EXPECT_EQ(::lstat(path.c_str(), &st), 0) << path;
  return st;
}

std::string link_of(const std::string& path) {
  char buf[256];
  const ssize_t n = ::readlink(path.c_str(), buf, sizeof buf);
  return n < 0 ? std::string() : std::string(buf, static_cast<size_t>(n));
}

TEST(K8sFileWriter, WritesAFileWithTheModeOfAFreshOne) {
  Temp_Dir dir;
  const mode_t mask = ::umask(022);
  K8S_File_Writer_CB writer;
  EXPECT_FALSE(writer.is_open());
  ASSERT_EQ(writer.open((dir / "file").c_str(), 12345), MTF::E_OK);
  ::umask(mask);
  EXPECT_TRUE(writer.is_open());
  EXPECT_EQ(writer.write("abc", 3), MTF::E_OK);
  EXPECT_EQ(writer.write("def", 3), MTF::E_OK);
  EXPECT_EQ(writer.close(), MTF::E_OK);
  EXPECT_TRUE(writer.is_open());
  EXPECT_EQ(read_file(dir / "file"), "abcdef");
  EXPECT_EQ(stat_of(dir / "file").st_mode & 07777, 0640u);
}

TEST(K8sFileWriter, EmptiesAnExistingFile) {
  Temp_Dir dir;
  const std::string path = dir.write("file", "old content");
  K8S_File_Writer_CB writer;
  ASSERT_EQ(writer.open(path.c_str(), 0), MTF::E_OK);
  EXPECT_EQ(writer.close(), MTF::E_OK);
  EXPECT_EQ(read_file(path), "");
}

TEST(K8sFileWriter, OpenThatFailsLeavesItClosed) {
  Temp_Dir dir;
  K8S_File_Writer_CB writer;
  EXPECT_EQ(writer.open((dir / "none/file").c_str(), 0), MTF::E_FAILED);
  EXPECT_FALSE(writer.is_open());
}

TEST(K8sFileWriter, DoesNotWriteThroughALink) {
  Temp_Dir dir;
  const std::string canary = dir.write("canary", "safe");
  ASSERT_EQ(::symlink("canary", (dir / "link").c_str()), 0);
  K8S_File_Writer_CB writer;
  EXPECT_EQ(writer.open((dir / "link").c_str(), 0), MTF::E_FAILED);
  EXPECT_EQ(read_file(canary), "safe");
}

TEST(K8sFileWriter, WriteToAFullDeviceFailsAndCloseKeepsSilent) {
  K8S_File_Writer_CB writer;
  ASSERT_EQ(writer.open("/dev/full", 0), MTF::E_OK);
  const std::string large(200000, 'x');
  EXPECT_EQ(writer.write(large.data(), large.size()), MTF::E_FAILED);
  EXPECT_EQ(writer.close(), MTF::E_OK);
}

TEST(K8sFileWriter, FlushTellsWhatCloseWouldKeepSilent) {
  K8S_File_Writer_CB writer;
  ASSERT_EQ(writer.open("/dev/full", 0), MTF::E_OK);
  EXPECT_EQ(writer.write("x", 1), MTF::E_OK);
  EXPECT_EQ(writer.flush(), MTF::E_FAILED);
  EXPECT_EQ(errno, ENOSPC);
}

TEST(K8sFileWriter, FlushBringsTheDataToTheFile) {
  Temp_Dir dir;
  K8S_File_Writer_CB writer;
  ASSERT_EQ(writer.open((dir / "file").c_str(), 0), MTF::E_OK);
  EXPECT_EQ(writer.write("held back", 9), MTF::E_OK);
  EXPECT_EQ(writer.flush(), MTF::E_OK);
  EXPECT_EQ(read_file(dir / "file"), "held back");
}

TEST(K8sFileWriter, SkipsForwardOverAHole) {
  Temp_Dir dir;
  K8S_File_Writer_CB writer;
  ASSERT_EQ(writer.open((dir / "file").c_str(), 0), MTF::E_OK);
  EXPECT_EQ(writer.write("a", 1), MTF::E_OK);
  EXPECT_EQ(writer.skip_to(3), MTF::E_OK);
  EXPECT_EQ(writer.write("b", 1), MTF::E_OK);
  EXPECT_EQ(writer.skip_to(6), MTF::E_OK);
  EXPECT_EQ(writer.flush(), MTF::E_OK);
  EXPECT_EQ(read_file(dir / "file"), std::string("a\0\0b\0\0", 6));
  EXPECT_EQ(writer.skip_to(5), MTF::E_FAILED);
}

TEST(K8sFileWriter, GoesForwardOnly) {
  K8S_File_Writer_CB writer;
  EXPECT_EQ(writer.seek(0), MTF::E_FAILED);
  EXPECT_EQ(errno, ENOTSUP);
  EXPECT_EQ(writer.truncate(0), MTF::E_FAILED);
}

TEST(K8sRestoreCallback, SeparatesDirectoriesBySlash) {
  EXPECT_EQ(K8S_Restore_Callback().directory_separator(), '/');
}

TEST(K8sRestoreCallback, MkdirPMakesAllAndAcceptsWhatIsThere) {
  Temp_Dir dir;
  K8S_Restore_Callback callback;
  EXPECT_TRUE(callback.mkdir_p((dir / "a/b/c").c_str()));
  EXPECT_TRUE(S_ISDIR(stat_of(dir / "a/b/c").st_mode));
  EXPECT_TRUE(callback.mkdir_p((dir / "a/b/c").c_str()));
}

TEST(K8sRestoreCallback, MkdirPBelowAFileFails) {
  Temp_Dir dir;
  dir.write("file", "");
  K8S_Restore_Callback callback;
  EXPECT_FALSE(callback.mkdir_p((dir / "file").c_str()));
  EXPECT_FALSE(callback.mkdir_p((dir / "file/below").c_str()));
}

TEST(K8sRestoreCallback, SymlinkOntoAnExistingPathIsASuccessAndLeavesIt) {
  Temp_Dir dir;
  K8S_Restore_Callback callback;
  EXPECT_EQ(callback.symlink("first", (dir / "link").c_str()), MTF::E_OK);
  EXPECT_EQ(callback.symlink("second", (dir / "link").c_str()), MTF::E_OK);
  EXPECT_EQ(link_of(dir / "link"), "first");
}

TEST(K8sRestoreCallback, SymlinkInAMissingDirectoryFails) {
  Temp_Dir dir;
  EXPECT_EQ(K8S_Restore_Callback().symlink("target", (dir / "none/link").c_str()), MTF::E_FAILED);
}

TEST(K8sRestoreCallback, LinkMakesASecondName) {
  Temp_Dir dir;
  const std::string first = dir.write("first", "x");
  K8S_Restore_Callback callback;
  EXPECT_EQ(callback.link(first.c_str(), (dir / "second").c_str()), MTF::E_OK);
  EXPECT_EQ(stat_of(first).st_nlink, 2u);
}

TEST(K8sRestoreCallback, LinkOntoAnExistingPathIsAFailure) {
  Temp_Dir dir;
  const std::string first = dir.write("first", "x");
  const std::string second = dir.write("second", "y");
  EXPECT_EQ(K8S_Restore_Callback().link(first.c_str(), second.c_str()), MTF::E_FAILED);
  EXPECT_EQ(read_file(second), "y");
}

TEST(K8sRestoreCallback, SetStatSetsModeAndOwnerButNoTimes) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root gives files away";
  Temp_Dir dir;
  const std::string path = dir.write("file", "x");
  MTF::Callback_Stat st;
  st.mode = S_IFREG | 0751;
  st.uid = 1234;
  st.gid = 2345;
  st.mtime = 1;
  EXPECT_EQ(K8S_Restore_Callback().set_stat(path.c_str(), st), MTF::E_OK);
  EXPECT_EQ(stat_of(path).st_mode, S_IFREG | 0751u);
  EXPECT_EQ(stat_of(path).st_uid, 1234u);
  EXPECT_EQ(stat_of(path).st_gid, 2345u);
  EXPECT_NE(stat_of(path).st_mtime, 1);
}

TEST(K8sRestoreCallback, SetStatWithMode0LeavesTheModeAndSetsTheOwner) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root gives files away";
  Temp_Dir dir;
  const std::string path = dir.write("file", "x");
  ASSERT_EQ(::chmod(path.c_str(), 0612), 0);
  MTF::Callback_Stat st;
  st.uid = 1234;
  st.gid = 2345;
  EXPECT_EQ(K8S_Restore_Callback().set_stat(path.c_str(), st), MTF::E_OK);
  EXPECT_EQ(stat_of(path).st_mode & 07777, 0612u);
  EXPECT_EQ(stat_of(path).st_uid, 1234u);
}

TEST(K8sRestoreCallback, SetStatOfALinkChangesTheTargetsModeAndTheLinksOwner) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root gives files away";
  Temp_Dir dir;
  const std::string target = dir.write("target", "x");
  ASSERT_EQ(::symlink("target", (dir / "link").c_str()), 0);
  MTF::Callback_Stat st;
  st.mode = 0705;
  st.uid = 1234;
  st.gid = 2345;
  EXPECT_EQ(K8S_Restore_Callback().set_stat((dir / "link").c_str(), st), MTF::E_OK);
  EXPECT_EQ(stat_of(target).st_mode & 07777, 0705u);
  EXPECT_EQ(stat_of(target).st_uid, 0u);
  EXPECT_EQ(stat_of(dir / "link").st_uid, 1234u);
}

TEST(K8sRestoreCallback, SetStatByAnOrdinaryUserLogsTheOwnerAndIsOk) {
  Temp_Dir dir;
  const std::string path = dir.write("file", "x");
  ASSERT_EQ(::chmod(dir.path().c_str(), 0755), 0);
  MTF::Callback_Stat st;
  st.mode = 0600;
  st.uid = 0;
  st.gid = 0;
  Log_Capture log;
  {
    Ordinary_User user;
    EXPECT_EQ(K8S_Restore_Callback().set_stat(path.c_str(), st), MTF::E_OK);
  }
  EXPECT_EQ(log.all(), "128 Failed to change " + path + " owner, errno=1, Operation not permitted\n");
}

TEST(K8sRestoreCallback, SetStatOfAMissingFileIsOk) {
  Temp_Dir dir;
  MTF::Callback_Stat st;
  st.mode = 0600;
  Log_Capture log;
  EXPECT_EQ(K8S_Restore_Callback().set_stat((dir / "none").c_str(), st), MTF::E_OK);
  EXPECT_TRUE(log.has(LM_ERROR, "Failed to change " + (dir / "none") + " owner, errno=2, No such file or directory\n"));
}

TEST(K8sRestoreCallback, FactoriesMakeObjects) {
  K8S_Restore_Callback_Factory factory;
  MTF::IRestore_Callback_var callback = factory.make();
  ASSERT_FALSE(callback.null());
  EXPECT_FALSE(callback->make_file_writer().null());
}

TEST(K8sRestoreCallback, MakeWithoutMemoryGivesNothingAndSaysWhy) {
  K8S_Restore_Callback_Factory factory;
  errno = 0;
  No_Memory none;
  EXPECT_TRUE(factory.make().null());
  EXPECT_EQ(errno, ENOMEM);
}

TEST(K8sRestoreCallback, MakeFileWriterWithoutMemoryGivesNothingAndSaysWhy) {
  K8S_Restore_Callback callback;
  errno = 0;
  No_Memory none;
  EXPECT_TRUE(callback.make_file_writer().null());
  EXPECT_EQ(errno, ENOMEM);
}

}  // namespace
