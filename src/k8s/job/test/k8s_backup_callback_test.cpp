#include "k8s/job/k8s_backup_callback.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <set>

#include "no_memory.h"
#include "ordinary_user.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace {

using test_support::Log_Capture;
using test_support::Temp_Dir;

std::set<std::string> names(const std::list<Directory_Entry>& entries) {
  std::set<std::string> found;
  for (const Directory_Entry& entry : entries) found.insert(entry.name);
  return found;
}

TEST(K8sFileReader, SecondReadOfASmallFileIsAFailureWithErrno0) {
  Temp_Dir dir;
  const std::string path = dir.write("ten", "0123456789");
  K8S_File_Reader_CB reader;
  ASSERT_EQ(reader.open(path.c_str()), MTF::E_OK);
  MTF::Buffer buf(4096);
  EXPECT_EQ(reader.read(buf), MTF::E_OK);
  EXPECT_EQ(buf.used_size(), 10u);
  EXPECT_EQ(std::string(buf.addr(), buf.used_size()), "0123456789");
  errno = EIO;
  EXPECT_EQ(reader.read(buf), MTF::E_FAILED);
  EXPECT_EQ(errno, 0);
}

TEST(K8sFileReader, ReadOfAnEmptyFileIsAFailure) {
  Temp_Dir dir;
  K8S_File_Reader_CB reader;
  ASSERT_EQ(reader.open(dir.write("empty", "").c_str()), MTF::E_OK);
  MTF::Buffer buf(4096);
  EXPECT_EQ(reader.read(buf), MTF::E_FAILED);
}

TEST(K8sFileReader, OneReadFillsABufferLargerThanTheStreamBuffer) {
  Temp_Dir dir;
  const std::string content(400000, 'x');
  K8S_File_Reader_CB reader;
  ASSERT_EQ(reader.open(dir.write("large", content).c_str()), MTF::E_OK);
  MTF::Buffer buf(300000);
  ASSERT_EQ(reader.read(buf), MTF::E_OK);
  EXPECT_EQ(buf.used_size(), 300000u);
  ASSERT_EQ(reader.read(buf), MTF::E_OK);
  EXPECT_EQ(buf.used_size(), 100000u);
}

TEST(K8sFileReader, IsOpenOnlyAfterASuccessfulOpen) {
  Temp_Dir dir;
  K8S_File_Reader_CB reader;
  EXPECT_FALSE(reader.is_open());
  EXPECT_EQ(reader.open((dir / "none").c_str()), MTF::E_FAILED);
  EXPECT_FALSE(reader.is_open());
  EXPECT_EQ(reader.open(dir.write("one", "1").c_str()), MTF::E_OK);
  EXPECT_TRUE(reader.is_open());
  EXPECT_EQ(reader.open((dir / "none").c_str()), MTF::E_FAILED);
  EXPECT_FALSE(reader.is_open());
}

TEST(K8sFileReader, CloseLeavesItOpen) {
  Temp_Dir dir;
  K8S_File_Reader_CB reader;
  ASSERT_EQ(reader.open(dir.write("one", "1").c_str()), MTF::E_OK);
  EXPECT_EQ(reader.close(), MTF::E_OK);
  EXPECT_TRUE(reader.is_open());
  MTF::Buffer buf(16);
  EXPECT_EQ(reader.read(buf), MTF::E_OK);
}

TEST(K8sFileReader, CloseOfOneNeverOpenedIsOk) {
  K8S_File_Reader_CB reader;
  EXPECT_EQ(reader.close(), MTF::E_OK);
  EXPECT_FALSE(reader.is_open());
}

TEST(K8sFileReader, DoesNotWaitForTheWriterOfAFifo) {
  Temp_Dir dir;
  const std::string path = dir / "fifo";
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  K8S_File_Reader_CB reader;
  EXPECT_EQ(reader.open(path.c_str()), MTF::E_FAILED);
}

TEST(K8sFileReader, GoesToTheNextData) {
  Temp_Dir dir;
  K8S_File_Reader_CB reader;
  ASSERT_EQ(reader.open(dir.write("ten", "0123456789").c_str()), MTF::E_OK);
  ACE_UINT64 begin = 0;
  ACE_UINT64 end = 0;
  ASSERT_TRUE(reader.next_data(0, begin, end));
  EXPECT_EQ(begin, 0u);
  EXPECT_EQ(end, 10u);
  ASSERT_TRUE(reader.next_data(end, begin, end));
  EXPECT_EQ(begin, end);
}

TEST(K8sBackupCallback, SeparatesDirectoriesBySlash) {
  EXPECT_EQ(K8S_Backup_Callback().directory_separator(), '/');
}

TEST(K8sBackupCallback, LstatCopiesAllFieldsAndLeavesNamesAlone) {
  Temp_Dir dir;
  const std::string path = dir.write("file", "hello");
  ASSERT_EQ(::chmod(path.c_str(), 0604), 0);
  const timespec times[2] = {{1000, 999999999}, {2000, 5}};
  ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
  struct stat expected;
  ASSERT_EQ(::lstat(path.c_str(), &expected), 0);

  K8S_Backup_Callback callback;
  MTF::Callback_Stat st;
  st.owner = "o";
  st.group = "g";
  ASSERT_TRUE(callback.lstat(path.c_str(), st));
  EXPECT_EQ(st.gid, expected.st_gid);
  EXPECT_EQ(st.uid, expected.st_uid);
  EXPECT_EQ(st.mode, S_IFREG | 0604u);
  EXPECT_EQ(st.dev, expected.st_dev);
  EXPECT_EQ(st.ino, expected.st_ino);
  EXPECT_EQ(st.nlink, 1u);
  EXPECT_EQ(st.rdev, 0u);
  EXPECT_EQ(st.size, 5u);
  EXPECT_EQ(st.blksize, static_cast<ACE_UINT64>(expected.st_blksize));
  EXPECT_EQ(st.blocks, static_cast<ACE_UINT64>(expected.st_blocks));
  EXPECT_EQ(st.atime, 1000u);
  EXPECT_EQ(st.mtime, 2000u);
  EXPECT_EQ(st.ctime, static_cast<ACE_UINT64>(expected.st_ctime));
  EXPECT_EQ(st.owner, "o");
  EXPECT_EQ(st.group, "g");
}

TEST(K8sBackupCallback, LstatTellsADevice) {
  K8S_Backup_Callback callback;
  MTF::Callback_Stat st;
  ASSERT_TRUE(callback.lstat("/dev/null", st));
  EXPECT_EQ(st.rdev, makedev(1, 3));
}

TEST(K8sBackupCallback, LstatDoesNotFollowALink) {
  Temp_Dir dir;
  ASSERT_EQ(::symlink("nowhere", (dir / "link").c_str()), 0);
  K8S_Backup_Callback callback;
  MTF::Callback_Stat st;
  ASSERT_TRUE(callback.lstat((dir / "link").c_str(), st));
  EXPECT_EQ(st.mode & S_IFMT, static_cast<ACE_UINT64>(S_IFLNK));
}

TEST(K8sBackupCallback, LstatOfAForbiddenPathSaysNoSuchEntry) {
  Temp_Dir dir;  // mode 0700
  const std::string path = dir.write("locked/file", "x");
  ASSERT_EQ(::chmod((dir / "locked").c_str(), 0), 0);
  K8S_Backup_Callback callback;
  MTF::Callback_Stat st;
  {
    Ordinary_User user;
    struct stat raw;
    ASSERT_EQ(::lstat(path.c_str(), &raw), -1);
    ASSERT_EQ(errno, EACCES);
    errno = 0;
    EXPECT_FALSE(callback.lstat(path.c_str(), st));
    EXPECT_EQ(errno, ENOENT);
  }
  ::chmod((dir / "locked").c_str(), 0700);
}

TEST(K8sBackupCallback, ReadlinkGivesTheTargetWithoutNul) {
  Temp_Dir dir;
  ASSERT_EQ(::symlink("some/target", (dir / "link").c_str()), 0);
  char buf[64];
  K8S_Backup_Callback callback;
  EXPECT_EQ(callback.readlink((dir / "link").c_str(), buf, sizeof buf), 11);
  EXPECT_EQ(std::string(buf, 11), "some/target");
  EXPECT_EQ(callback.readlink((dir / "link").c_str(), buf, 4), 4);
  EXPECT_EQ(callback.readlink(dir.path().c_str(), buf, sizeof buf), -1);
  EXPECT_EQ(errno, EINVAL);
}

TEST(K8sBackupCallback, ReadDirsAppendsAllEntriesWithTheirOwnStat) {
  Temp_Dir dir;
  dir.write("file", "12345");
  dir.write("sub/inner", "x");
  ASSERT_EQ(::symlink("sub", (dir / "link").c_str()), 0);
  dir.write("with\nline end", "");
  dir.write("\xff\xfe", "");
  std::list<Directory_Entry> entries(1);
  entries.front().name = "kept";
  K8S_Backup_Callback callback;
  ASSERT_TRUE(callback.read_dirs(dir.path().c_str(), entries));
  EXPECT_EQ(entries.front().name, "kept");
  EXPECT_EQ(names(entries), (std::set<std::string>{"kept", "file", "sub", "link", "with\nline end", "\xff\xfe"}));
  for (const Directory_Entry& entry : entries) {
    if (entry.name == "file") {
      EXPECT_EQ(entry.stat.st_size, 5);
    }
    if (entry.name == "link") {
      EXPECT_TRUE(S_ISLNK(entry.stat.st_mode));
    }
    if (entry.name == "sub") {
      EXPECT_TRUE(S_ISDIR(entry.stat.st_mode));
    }
    EXPECT_EQ(entry.reparse_types, 0u);
  }
}

TEST(K8sBackupCallback, ADirectoryThatCannotBeOpenedLooksEmpty) {
  Temp_Dir dir;
  std::list<Directory_Entry> entries;
  K8S_Backup_Callback callback;
  EXPECT_TRUE(callback.read_dirs((dir / "none").c_str(), entries));
  EXPECT_TRUE(entries.empty());
  errno = 0;
  EXPECT_FALSE(callback.check_directory((dir / "none").c_str()));
  EXPECT_EQ(errno, ENOENT);
}

/// A path of "/proc/self/fd/N" whose entries can be listed, but whose full paths are too long to be looked at, stands
/// for an entry that has gone between the two.
TEST(K8sBackupCallback, AnEntryThatHasGoneFailsTheWholeDirectory) {
  Temp_Dir dir;
  dir.write(std::string(200, 'n'), "");
  std::string path = dir.path();
  while (path.size() < 4000) path += "/.";
  std::list<Directory_Entry> entries;
  K8S_Backup_Callback callback;
  errno = 0;
  EXPECT_FALSE(callback.read_dirs(path.c_str(), entries));
  EXPECT_EQ(errno, ENOENT);
}

TEST(K8sBackupCallback, LogsNothing) {
  Log_Capture log;
  Temp_Dir dir;
  K8S_Backup_Callback callback;
  MTF::Callback_Stat st;
  std::list<Directory_Entry> entries;
  callback.lstat((dir / "none").c_str(), st);
  callback.read_dirs((dir / "none").c_str(), entries);
  K8S_File_Reader_CB().open((dir / "none").c_str());
  EXPECT_EQ(log.all(), "");
}

TEST(K8sBackupCallback, FactoriesMakeObjects) {
  K8S_Backup_Callback_Factory factory;
  MTF::IBackup_Callback_var callback = factory.make();
  ASSERT_FALSE(callback.null());
  EXPECT_FALSE(callback->make_file_reader().null());
}

TEST(K8sBackupCallback, MakeWithoutMemoryGivesNothingAndSaysWhy) {
  K8S_Backup_Callback_Factory factory;
  errno = 0;
  No_Memory none;
  EXPECT_TRUE(factory.make().null());
  EXPECT_EQ(errno, ENOMEM);
}

TEST(K8sBackupCallback, MakeFileReaderWithoutMemoryGivesNothingAndSaysWhy) {
  K8S_Backup_Callback callback;
  errno = 0;
  No_Memory none;
  EXPECT_TRUE(callback.make_file_reader().null());
  EXPECT_EQ(errno, ENOMEM);
}

}  // namespace
