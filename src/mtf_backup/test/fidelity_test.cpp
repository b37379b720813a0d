#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "mtf_backup/test/mover_fixture.h"
#include "support/attributes.h"

using namespace mover_test;
using test_support::access_list;
using test_support::capability;
using test_support::Log_Capture;

namespace {

constexpr uid_t nobody = 65534;

/// While it lives, the process has the rights of an ordinary user. For tests that run as root.
class As_Nobody {
 public:
  As_Nobody() { EXPECT_EQ(0, seteuid(nobody)); }
  ~As_Nobody() { EXPECT_EQ(0, seteuid(0)); }
};

bool set_attribute(const std::string& path, const char* name, const std::string& value) {
  return lsetxattr(path.c_str(), name, value.data(), value.size(), 0) == 0;
}

bool has_attribute(const std::string& path, const char* name) {
  return lgetxattr(path.c_str(), name, nullptr, 0) >= 0;
}

/// What comes back equal.
class Fidelity : public Mover_Fixture {
 protected:
  void expect_round_trip(size_t channels = 2) {
    Log_Capture log;
    ASSERT_TRUE(back_up({.channels = channels})) << log.all();
    ASSERT_TRUE(restore({.threads = 3})) << log.all();
    EXPECT_EQ("", differences());
    EXPECT_EQ("", log.all());
  }
};

TEST_F(Fidelity, HardLinksInManyDirectoriesOnManyChannels) {
  write("first", noise(5000));
  for (int i = 0; i < 40; ++i) {
    const std::string dir = "d" + std::to_string(i);
    write(dir + "/large", noise(1 << 20, i + 1));
    std::filesystem::create_hard_link(source_ + "/first", source_ + "/" + dir + "/again");
    std::filesystem::create_hard_link(source_ + "/" + dir + "/large", source_ + "/" + dir + "/other");
  }
  expect_round_trip(4);
  struct stat st;
  ASSERT_EQ(0, stat((target_ + "/first").c_str(), &st));
  EXPECT_EQ(41u, st.st_nlink);
}

TEST_F(Fidelity, HardLinksOverTwoSourcesBelowOneTarget) {
  write("a", "shared");
  dir_.write("more/b", "own");
  std::filesystem::create_hard_link(source_ + "/a", dir_ / "more/c");
  ASSERT_TRUE(back_up({.channels = 3, .sources = {source_, dir_ / "more"}}));
  ASSERT_TRUE(restore({.select = {dir_.path()}, .rules = {{dir_.path(), target_}}}));
  EXPECT_TRUE(std::filesystem::equivalent(target_ + "/source/a", target_ + "/more/c"));
  EXPECT_EQ("shared", test_support::read_file(target_ + "/more/c"));
}

TEST_F(Fidelity, HardLinksOfLinksAndFifos) {
  ASSERT_EQ(0, symlink("nowhere", (source_ + "/link").c_str()));
  ASSERT_EQ(0, linkat(AT_FDCWD, (source_ + "/link").c_str(), AT_FDCWD, (source_ + "/link2").c_str(), 0));
  ASSERT_EQ(0, mkfifo((source_ + "/fifo").c_str(), 0640));
  ASSERT_EQ(0, link((source_ + "/fifo").c_str(), (source_ + "/fifo2").c_str()));
  expect_round_trip();
}

TEST_F(Fidelity, NamesOfAllBytes) {
  for (int byte = 1; byte < 256; ++byte)
    if (byte != '/' && byte != '.') write(std::string(1, static_cast<char>(byte)), "text");
  write("\xff\xfe\xfd/\x80\x81", "not UTF-8");
  write(".tessarin-a1B2c3", "looks like one of ours");
  expect_round_trip();
}

TEST_F(Fidelity, SocketsAreMadeAgain) {
  ASSERT_EQ(0, mknod((source_ + "/socket").c_str(), S_IFSOCK | 0660, 0));
  expect_round_trip();
}

TEST_F(Fidelity, TimesBeforeTheEpochAndAfter2038) {
  const timespec old[2] = {{-86400, 500'000'001}, {-86400, 500'000'001}};
  const timespec late[2] = {{4'000'000'000, 999'999'999}, {4'000'000'000, 999'999'999}};
  ASSERT_EQ(0, utimensat(AT_FDCWD, write("old", "text").c_str(), old, 0));
  ASSERT_EQ(0, utimensat(AT_FDCWD, write("late", "text").c_str(), late, 0));
  ASSERT_EQ(0, symlink("nowhere", (source_ + "/link").c_str()));
  ASSERT_EQ(0, utimensat(AT_FDCWD, (source_ + "/link").c_str(), old, AT_SYMLINK_NOFOLLOW));
  expect_round_trip();
}

TEST_F(Fidelity, AccessListsOfFilesAndDirectories) {
  std::filesystem::create_directory(source_ + "/d");
  write("d/a", "text");
  if (!set_attribute(source_ + "/d/a", "system.posix_acl_access", access_list))
    GTEST_SKIP() << "no access lists on this filesystem";
  ASSERT_TRUE(set_attribute(source_ + "/d", "system.posix_acl_access", access_list));
  ASSERT_TRUE(set_attribute(source_ + "/d", "system.posix_acl_default", access_list));
  write("d/inherits", "text");
  expect_round_trip();
  EXPECT_TRUE(has_attribute(target_ + "/d/inherits", "system.posix_acl_access"));
}

TEST_F(Fidelity, SpecialBitsBesideAnAccessList) {
  const std::string path = write("a", "text");
  std::filesystem::create_directory(source_ + "/d");
  for (const std::string& entry : {path, source_ + "/d"}) {
    if (!set_attribute(entry, "system.posix_acl_access", access_list))
      GTEST_SKIP() << "no access lists on this filesystem";
    ASSERT_EQ(0, chmod(entry.c_str(), 07760));
  }
  set_attribute(path, "user.one", "1");
  expect_round_trip();
}

TEST_F(Fidelity, AccessListsThatTheTargetWouldBequeathAreTakenAway) {
  write("a", "text");
  std::filesystem::create_directory(source_ + "/d");
  ASSERT_EQ(0, symlink("nowhere", (source_ + "/link").c_str()));
  if (!set_attribute(target_, "system.posix_acl_default", access_list))
    GTEST_SKIP() << "no access lists on this filesystem";
  expect_round_trip();
}

TEST_F(Fidelity, CapabilitiesOfFilesWithAnotherOwner) {
  const std::string path = write("a", "program");
  if (lchown(path.c_str(), 12345, 54321) != 0) GTEST_SKIP() << "needs the right to give files away";
  ASSERT_EQ(0, chmod(path.c_str(), 06755));
  if (!set_attribute(path, "security.capability", capability)) GTEST_SKIP() << "no capabilities on this filesystem";
  expect_round_trip();
  EXPECT_TRUE(has_attribute(target_ + "/a", "security.capability"));
}

TEST_F(Fidelity, ReadingLeavesTheAccessTimeAlone) {
  const std::string path = write("a", "text");
  const timespec times[2] = {{1'000'000'000, 5}, {1'100'000'000, 0}};
  ASSERT_EQ(0, utimensat(AT_FDCWD, path.c_str(), times, 0));
  ASSERT_TRUE(back_up());
  struct stat st;
  ASSERT_EQ(0, stat(path.c_str(), &st));
  EXPECT_EQ(1'000'000'000, st.st_atim.tv_sec);
  ASSERT_TRUE(restore());
  ASSERT_EQ(0, stat((target_ + "/a").c_str(), &st));
  EXPECT_EQ(1'000'000'000, st.st_atim.tv_sec);
  EXPECT_EQ(5, st.st_atim.tv_nsec);
}

/// What does not come back equal is told.
class Told : public Mover_Fixture {
 protected:
  using Mover_Fixture::Mover_Fixture;

  /// Makes @a operation say yes and do nothing, or fail with an errno.
  static Hook broken(const std::string& operation, int error) {
    return [=](const char* what, const std::string&) {
      errno = error;
      return operation == what;
    };
  }

  static std::string line(const std::string& path, const std::string& what) {
    return "Restored " + path + ", but not as it was: " + what + "\n";
  }

  /// A set of one file "a", whose directory is as new as the restore: only the file can differ.
  void back_up_file(mode_t mode = 0640) {
    ASSERT_EQ(0, chmod(write("a", "text").c_str(), mode));
    ASSERT_TRUE(back_up());
  }
  Restore_Args with(const Hook& hook) const { return {.hook = hook, .select = {source_ + "/a"}}; }
};

TEST_F(Told, ModeThatWasNotSet) {
  back_up_file();
  Log_Capture log;
  EXPECT_TRUE(restore(with(broken("set_mode", 0))));
  EXPECT_TRUE(log.has(LM_ERROR, line(target_ + "/a", "mode 0600 instead of 0640"))) << log.all();
  EXPECT_EQ(1u, log.texts(LM_ERROR).size()) << log.all();
}

TEST_F(Told, ModeThatWasRefused) {
  back_up_file();
  Log_Capture log;
  EXPECT_TRUE(restore(with(broken("set_mode", EPERM))));
  EXPECT_TRUE(log.has(LM_ERROR, line(target_ + "/a", "mode 0600 instead of 0640 (Operation not permitted)")))
      << log.all();
}

TEST_F(Told, TimeThatWasNotSet) {
  back_up_file();
  Log_Capture log;
  EXPECT_TRUE(restore(with(broken("set_times", 0))));
  EXPECT_TRUE(log.has(LM_ERROR, line(target_ + "/a", "another modification time"))) << log.all();
}

TEST_F(Told, AttributesThatWereRefusedAreALoss) {
  const std::string path = write("a", "text");
  if (!set_attribute(path, "user.one", "1") || !set_attribute(path, "user.t\nwo", "2"))
    GTEST_SKIP() << "no extended attributes on this filesystem";
  ASSERT_TRUE(back_up());
  Log_Capture log;
  EXPECT_FALSE(restore(with(broken("set_xattrs", ENOTSUP))));
  EXPECT_EQ(MTF::E_END_WITH_SKIPPED_FILES, code_);
  EXPECT_TRUE(
      log.has_containing(LM_ERROR, "/a, but not as it was: without the extended attributes user.one user.t\\x0"))
      << log.all();
  EXPECT_TRUE(log.has_containing(LM_ERROR, "(Operation not supported)")) << log.all();
  EXPECT_EQ(1u, log.texts(LM_ERROR).size());
  EXPECT_EQ("text", test_support::read_file(target_ + "/a"));
}

TEST_F(Told, AttributesThatWereNotSetAreALoss) {
  if (!set_attribute(write("a", "text"), "user.one", "1")) GTEST_SKIP() << "no extended attributes on this filesystem";
  ASSERT_TRUE(back_up());
  Log_Capture log;
  EXPECT_FALSE(restore(with(broken("set_xattrs", 0))));
  EXPECT_EQ(MTF::E_END_WITH_SKIPPED_FILES, code_);
  EXPECT_TRUE(log.has(LM_ERROR, line(target_ + "/a", "without the extended attributes user.one"))) << log.all();
}

TEST_F(Told, GroupHasNoRightsBeforeItsAccessList) {
  if (!set_attribute(write("a", "text"), "system.posix_acl_access", access_list))
    GTEST_SKIP() << "no access lists on this filesystem";
  ASSERT_TRUE(back_up());
  std::atomic<unsigned> mode{0};
  Log_Capture log;
  EXPECT_FALSE(restore(with([&](const char* what, const std::string& path) {
    if (std::string(what) != "set_xattrs") return false;
    struct stat st;
    mode = stat(path.c_str(), &st) == 0 ? st.st_mode & 07777 : 07777;
    errno = ENOTSUP;
    return true;
  })));
  EXPECT_EQ(0600u, mode) << "the mask, 060, would be the group's";
  EXPECT_EQ(MTF::E_END_WITH_SKIPPED_FILES, code_);
  EXPECT_TRUE(log.has(LM_ERROR, line(target_ + "/a",
                                     "mode 0600 instead of 0660, without the extended attributes "
                                     "system.posix_acl_access (Operation not supported)")))
      << log.all();
}

TEST_F(Told, LinkThatIsNotTheOneOfTheSetIsNotPutInPlace) {
  ASSERT_EQ(0, symlink("nowhere", (source_ + "/a").c_str()));
  ASSERT_TRUE(back_up());
  dir_.write("target/a", "old");
  Log_Capture log;
  EXPECT_FALSE(restore(with([](const char* what, const std::string& path) {
    if (std::string(what) != "symlink") return false;
    EXPECT_EQ(0, ::symlink("elsewhere", path.c_str()));
    errno = 0;
    return true;
  })));
  EXPECT_TRUE(log.has(LM_ERROR, "Failed to restore " + target_ + "/a: Input/output error\n")) << log.all();
  EXPECT_EQ("old", test_support::read_file(target_ + "/a"));
}

TEST_F(Told, ManyDifferencesInOneLine) {
  back_up_file();
  Log_Capture log;
  EXPECT_TRUE(restore(with([](const char* what, const std::string&) {
    errno = 0;
    return std::string(what) == "set_mode" || std::string(what) == "set_times";
  })));
  EXPECT_TRUE(log.has(LM_ERROR, line(target_ + "/a", "mode 0600 instead of 0640, another modification time")))
      << log.all();
  EXPECT_EQ(1u, log.texts(LM_ERROR).size()) << log.all();
}

TEST_F(Told, DirectoriesToo) {
  std::filesystem::create_directory(source_ + "/d");
  ASSERT_EQ(0, chmod((source_ + "/d").c_str(), 0751));
  ASSERT_TRUE(back_up());
  Log_Capture log;
  EXPECT_TRUE(restore({.hook = broken("set_times", 0), .select = {source_ + "/d"}}));
  EXPECT_TRUE(log.has(LM_ERROR, line(target_ + "/d", "another modification time"))) << log.all();
}

TEST_F(Told, OneLinePerEntryUpToAThousandAndThenTheirNumber) {
  for (int i = 0; i < 1005; ++i) write("f" + std::to_string(i), "text");
  ASSERT_TRUE(back_up());
  Log_Capture log;
  EXPECT_TRUE(restore({.threads = 4, .hook = broken("set_times", 0)}));
  EXPECT_EQ(1001u, log.texts(LM_ERROR).size());
  EXPECT_TRUE(log.has(LM_ERROR, "Restored 6 more entries, but not as they were.\n")) << log.texts(LM_ERROR).back();
}

TEST_F(Told, ALossIsNotHiddenByAThousandDifferencesBeforeIt) {
  for (int i = 0; i < 1005; ++i) write("f" + std::to_string(i), "text");
  write("last", "text");
  Log_Capture log;
  EXPECT_FALSE(back_up({.hook = [](const char* what, const std::string& path) {
    errno = EIO;
    return std::string(what) == "read_xattrs" && name_of(path) == "last";
  }}));
  log.clear();
  EXPECT_TRUE(restore({.threads = 1, .hook = broken("set_times", 0)}));
  EXPECT_EQ(1u, missing_count_);
  EXPECT_TRUE(
      log.has_containing(LM_ERROR, "Restored " + target_ + "/last, but not as it was: its extended attributes "))
      << log.texts(LM_ERROR).back();
  EXPECT_TRUE(log.has(LM_ERROR, "Restored 7 more entries, but not as they were.\n")) << log.texts(LM_ERROR).back();
}

/// Restores by somebody who may not give files away. The place for temporary files may be root's alone.
class Ordinary_Restore : public Told {
 protected:
  Ordinary_Restore() : Told("/tmp") {}

  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "needs root, to be nobody for a while";
    for (const std::string& path : {dir_.path(), target_}) ASSERT_EQ(0, lchown(path.c_str(), nobody, 0));
    const As_Nobody as_nobody;
    if (eaccess(target_.c_str(), W_OK) != 0) GTEST_SKIP() << "needs a /tmp that everybody can reach";
  }
};

TEST_F(Ordinary_Restore, OwnFilesHaveNoDifference) {
  for (const std::string& path : {write("a", "text"), write("d/b", "text"), source_ + "/d", source_})
    ASSERT_EQ(0, lchown(path.c_str(), nobody, 0));
  set_attribute(source_ + "/a", "user.one", "1");
  ASSERT_EQ(0, chmod((source_ + "/a").c_str(), 0400));
  ASSERT_EQ(0, chmod((source_ + "/d/b").c_str(), 04711));
  Log_Capture log;
  ASSERT_TRUE(back_up());
  {
    const As_Nobody as_nobody;
    EXPECT_TRUE(restore());
  }
  EXPECT_EQ("", log.all());
  EXPECT_EQ("", differences());
}

TEST_F(Ordinary_Restore, FilesOfOthersAreRestoredAndTold) {
  const std::string path = write("a", "text");
  ASSERT_EQ(0, lchown(path.c_str(), 12345, 0));
  ASSERT_EQ(0, chmod(path.c_str(), 04755));
  ASSERT_TRUE(back_up());
  Log_Capture log;
  {
    const As_Nobody as_nobody;
    EXPECT_TRUE(restore(with(Hook())));
  }
  EXPECT_TRUE(log.has(LM_ERROR, line(target_ + "/a",
                                     "owner 65534:0 instead of 12345:0 (Operation not permitted), mode "
                                     "0755 instead of 4755")))
      << log.all();
  EXPECT_EQ(1u, log.texts(LM_ERROR).size()) << log.all();
  EXPECT_EQ("text", test_support::read_file(target_ + "/a"));
}

TEST_F(Ordinary_Restore, CapabilitiesAreALoss) {
  const std::string path = write("a", "text");
  ASSERT_EQ(0, lchown(path.c_str(), nobody, 0));
  if (!set_attribute(path, "security.capability", capability)) GTEST_SKIP() << "no capabilities on this filesystem";
  ASSERT_TRUE(back_up());
  Log_Capture log;
  {
    const As_Nobody as_nobody;
    EXPECT_FALSE(restore(with(Hook())));
  }
  EXPECT_EQ(MTF::E_END_WITH_SKIPPED_FILES, code_);
  EXPECT_TRUE(log.has(LM_ERROR, line(target_ + "/a",
                                     "without the extended attributes security.capability (Operation not "
                                     "permitted)")))
      << log.all();
}

TEST_F(Ordinary_Restore, DevicesCannotBeMadeAndTheRestIs) {
  if (mknod((source_ + "/device").c_str(), S_IFCHR | 0600, makedev(1, 3)) != 0)
    GTEST_SKIP() << "no right to make devices";
  ASSERT_EQ(0, lchown(write("a", "text").c_str(), nobody, 0));
  ASSERT_TRUE(back_up());
  dir_.write("target/device", "old");
  Log_Capture log;
  {
    const As_Nobody as_nobody;
    EXPECT_FALSE(restore({.select = {source_ + "/a", source_ + "/device"}}));
  }
  EXPECT_EQ("old", test_support::read_file(target_ + "/device"));
  EXPECT_EQ(MTF::E_END_WITH_SKIPPED_FILES, code_);
  EXPECT_TRUE(log.has(LM_ERROR, "Failed to restore " + target_ + "/device: Operation not permitted\n")) << log.all();
  EXPECT_EQ("text", test_support::read_file(target_ + "/a"));
}

}  // namespace
