#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include "mtf_backup/test/mover_fixture.h"

using namespace mover_test;
using test_support::Log_Capture;

namespace {

/// A source that changes, or cannot be read, while it is backed up.
class Changing_Source : public Mover_Fixture {
 protected:
  /// Fails @a operation on the entry of this name.
  static Hook failing(const std::string& operation, const std::string& name, int error) {
    return [=](const char* what, const std::string& path) {
      if (operation != what || name_of(path) != name) return false;
      errno = error;
      return true;
    };
  }

  static std::string lacks(const std::string& path, const std::string& what) {
    return "Restored " + path + ", but not as it was: " + what + "\n";
  }
};

TEST_F(Changing_Source, FileThatCannotBeOpenedIsSkippedAndTheRestIsSaved) {
  write("bad", "secret");
  write("good", "text");
  Log_Capture log;
  EXPECT_FALSE(back_up({.hook = failing("open", "bad", EACCES)}));
  EXPECT_EQ(MTF::E_END_WITH_SKIPPED_FILES, code_);
  EXPECT_TRUE(log.has(LM_ERROR, "Failed to back up " + source_ + "/bad: Permission denied\n")) << log.all();
  EXPECT_EQ(unsigned(MTF_BACKUP::CAT_SKIPPED), entry("bad").flags);
  EXPECT_EQ("Permission denied", entry("bad").reason);
  EXPECT_EQ(1u, sets().at(0).summary.skipped_count);
  EXPECT_EQ(10u, size_);
  EXPECT_EQ(4u, set_size_);
  ASSERT_TRUE(restore());
  EXPECT_EQ("text", test_support::read_file(target_ + "/good"));
  EXPECT_FALSE(std::filesystem::exists(target_ + "/bad"));
}

TEST_F(Changing_Source, SkippedFileIsToldAgainAtTheRestore) {
  write("bad", "secret");
  write("good", "text");
  {
    Log_Capture log;
    EXPECT_FALSE(back_up({.hook = failing("open", "bad", EACCES)}));
  }
  Log_Capture log;
  ASSERT_TRUE(restore());
  EXPECT_TRUE(log.has(LM_WARNING, source_ + "/bad is not in the set: Permission denied\n")) << log.all();
  EXPECT_EQ(1u, missing_count_);
  EXPECT_EQ(10u, size_);
  EXPECT_EQ(4u, restored_size_);
}

TEST_F(Changing_Source, FileThatFailsInTheMiddleIsSkipped) {
  write("bad", noise(3 << 20));
  write("good", "text");
  auto reads = std::make_shared<std::atomic<int>>(0);
  Log_Capture log;
  EXPECT_FALSE(back_up({.hook = [=](const char* what, const std::string& path) {
    errno = EIO;
    return std::string(what) == "read" && name_of(path) == "bad" && ++*reads > 2;
  }}));
  EXPECT_EQ(MTF::E_END_WITH_SKIPPED_FILES, code_);
  EXPECT_TRUE(log.has_containing(LM_ERROR, "Failed to back up " + source_ + "/bad: reading stopped at byte "))
      << log.all();
  EXPECT_TRUE(entry("bad").flags & MTF_BACKUP::CAT_SKIPPED);
  EXPECT_EQ("Input/output error", entry("bad").reason);
  ASSERT_TRUE(restore());
  EXPECT_FALSE(std::filesystem::exists(target_ + "/bad"));
}

TEST_F(Changing_Source, FileThatVanishedIsLeftOutWithAWarning) {
  write("a", "text");
  write("gone", "text");
  Log_Capture log;
  EXPECT_TRUE(back_up({.hook = once("open", "a", [this] { unlink((source_ + "/gone").c_str()); })})) << log.all();
  EXPECT_TRUE(log.has(LM_WARNING, source_ + "/gone vanished and is left out.\n")) << log.all();
  EXPECT_EQ(1u, sets().at(0).summary.file_count);
  EXPECT_EQ(4u, size_);
  EXPECT_EQ(4u, handler_->reports().back().total);
}

TEST_F(Changing_Source, FileThatBecameAFifoIsNotWaitedFor) {
  write("a", "text");
  write("b", "text");
  Log_Capture log;
  EXPECT_TRUE(back_up({.hook = once("open", "a", [this] {
                         unlink((source_ + "/b").c_str());
                         mkfifo((source_ + "/b").c_str(), 0600);
                       })}));
  EXPECT_TRUE(log.has(LM_WARNING, source_ + "/b became another type of entry and is left out.\n")) << log.all();
}

TEST_F(Changing_Source, FileThatBecameALinkIsNotFollowed) {
  write("a", "text");
  write("b", "text");
  const std::string outside = dir_.write("outside", "not to be read");
  Log_Capture log;
  EXPECT_TRUE(back_up({.hook = once("open", "a", [&] {
                         unlink((source_ + "/b").c_str());
                         ASSERT_EQ(0, symlink(outside.c_str(), (source_ + "/b").c_str()));
                       })}));
  EXPECT_TRUE(log.has(LM_WARNING, source_ + "/b became another type of entry and is left out.\n")) << log.all();
}

TEST_F(Changing_Source, FileThatGrowsIsCutAndFlagged) {
  const std::string path = write("a", "text");
  Log_Capture log;
  EXPECT_TRUE(back_up({.hook = once("read", "a", [&] { std::ofstream(path, std::ios::app) << " and more"; })}));
  EXPECT_TRUE(log.has(LM_WARNING, "File " + path + " changed while it was read.\n")) << log.all();
  EXPECT_EQ(unsigned(MTF_BACKUP::CAT_CHANGED), entry("a").flags);
  ASSERT_TRUE(restore());
  EXPECT_EQ("text", test_support::read_file(target_ + "/a"));
}

TEST_F(Changing_Source, FileThatShrinksIsPaddedWithZerosAndFlagged) {
  const std::string path = write("a", "some text");
  Log_Capture log;
  EXPECT_TRUE(back_up({.hook = once("read", "a", [&] { ASSERT_EQ(0, truncate(path.c_str(), 4)); })}));
  EXPECT_TRUE(log.has(LM_WARNING, "File " + path + " became shorter while it was read.\n")) << log.all();
  EXPECT_EQ(unsigned(MTF_BACKUP::CAT_CHANGED | MTF_BACKUP::CAT_CORRUPT), entry("a").flags);
  EXPECT_EQ(1u, sets().at(0).summary.corrupt_count);
  log.clear();
  EXPECT_TRUE(restore());
  EXPECT_EQ(1u, missing_count_);
  EXPECT_TRUE(log.has(LM_ERROR, lacks(target_ + "/a",
                                      "some of its data is not in the set (became shorter while it was "
                                      "read)")))
      << log.all();
  EXPECT_EQ(1u, log.lines().size()) << log.all();
  EXPECT_EQ(std::string("some\0\0\0\0\0", 9), test_support::read_file(target_ + "/a"));
}

TEST_F(Changing_Source, ShrunkFileIsToldUnderAnyNameThatItIsRestoredBy) {
  const std::string path = write("a", "some text");
  std::filesystem::create_hard_link(path, source_ + "/b");
  Log_Capture log;
  EXPECT_TRUE(back_up({.hook = once("read", "a", [&] { ASSERT_EQ(0, truncate(path.c_str(), 4)); })}));
  log.clear();
  EXPECT_TRUE(restore({.select = {source_ + "/b"}}));
  EXPECT_EQ(1u, missing_count_);
  EXPECT_TRUE(log.has(LM_ERROR, lacks(target_ + "/b",
                                      "some of its data is not in the set (became shorter while it was "
                                      "read)")))
      << log.all();
}

TEST_F(Changing_Source, RewriteOfTheSameSizeWithItsTimePutBackIsFlagged) {
  const std::string path = write("a", "text");
  struct stat st;
  ASSERT_EQ(0, stat(path.c_str(), &st));
  Log_Capture log;
  EXPECT_TRUE(back_up({.hook = once("read", "a", [&] {
                         std::ofstream(path) << "TEXT";
                         const timespec times[2] = {st.st_atim, st.st_mtim};
                         utimensat(AT_FDCWD, path.c_str(), times, 0);
                       })}));
  EXPECT_TRUE(log.has(LM_WARNING, "File " + path + " changed while it was read.\n")) << log.all();
}

TEST_F(Changing_Source, DirectoryThatCannotBeListedIsSkipped) {
  write("bad/a", "text");
  write("good/b", "text");
  struct stat bad;
  ASSERT_EQ(0, stat((source_ + "/bad").c_str(), &bad));
  Log_Capture log;
  EXPECT_FALSE(back_up({.hook = [&](const char* what, const std::string& path) {
    struct stat st;
    if (std::string(what) != "check_directory" || stat(path.c_str(), &st) != 0 || st.st_ino != bad.st_ino) return false;
    errno = EACCES;
    return true;
  }}));
  EXPECT_EQ(MTF::E_END_WITH_SKIPPED_FILES, code_);
  EXPECT_TRUE(log.has(LM_ERROR, "Failed to list directory " + source_ + "/bad: Permission denied\n")) << log.all();
  EXPECT_TRUE(entry("bad").flags & MTF_BACKUP::CAT_SKIPPED);
  log.clear();
  ASSERT_TRUE(restore());
  EXPECT_TRUE(log.has(LM_WARNING, source_ + "/bad is not in the set: Permission denied\n")) << log.all();
  EXPECT_EQ(1u, log.lines().size()) << log.all();
  EXPECT_EQ(1u, missing_count_);
  EXPECT_TRUE(std::filesystem::is_directory(target_ + "/bad"));
  EXPECT_TRUE(std::filesystem::exists(target_ + "/good/b"));
}

TEST_F(Changing_Source, ListingThatFailsForAWhileIsTakenAgain) {
  write("a", "text");
  auto calls = std::make_shared<std::atomic<int>>(0);
  EXPECT_TRUE(back_up({.hook = [=](const char* what, const std::string&) {
    errno = ENOENT;
    return std::string(what) == "read_dirs" && ++*calls <= 2;
  }}));
  EXPECT_EQ(1u, sets().at(0).summary.file_count);
}

TEST_F(Changing_Source, ListingThatFailsForGoodIsTakenEntryByEntry) {
  write("a", "text");
  EXPECT_TRUE(back_up({.hook = [](const char* what, const std::string&) {
    errno = ENOENT;
    return std::string(what) == "read_dirs";
  }}));
  EXPECT_EQ(1u, sets().at(0).summary.file_count);
}

TEST_F(Changing_Source, DirectoryThatVanishedIsLeftOut) {
  write("a", "text");
  write("gone/b", "text");
  Log_Capture log;
  EXPECT_TRUE(back_up({.hook = once("read_dirs", "", [this] { std::filesystem::remove_all(source_ + "/gone"); })}));
  EXPECT_EQ(1u, sets().at(0).summary.dir_count);
}

TEST_F(Changing_Source, DirectoryExchangedForALinkIsNotFollowed) {
  write("a", "text");
  write("d/b", "inside");
  dir_.write("outside/b", "not to be read");
  Log_Capture log;
  EXPECT_TRUE(back_up({.hook = once("open", "a", [this] {
                         ASSERT_EQ(0, rename((source_ + "/d").c_str(), (source_ + "/was").c_str()));
                         ASSERT_EQ(0, symlink((dir_ / "outside").c_str(), (source_ + "/d").c_str()));
                       })}));
  EXPECT_TRUE(std::filesystem::is_symlink(source_ + "/d"));
  std::string all;
  for (const auto& [key, bytes] : pool_->objects) all += bytes;
  EXPECT_EQ(std::string::npos, all.find("not to be read"));
}

TEST_F(Changing_Source, FurtherNameOfAFileThatCouldNotBeReadIsSkippedToo) {
  write("a", "shared");
  std::filesystem::create_hard_link(source_ + "/a", source_ + "/b");
  Log_Capture log;
  EXPECT_FALSE(back_up({.hook = failing("open", "a", EACCES)}));
  EXPECT_TRUE(
      log.has(LM_ERROR, "Failed to back up " + source_ + "/b: " + source_ + "/a, no data under its other name\n"))
      << log.all();
  EXPECT_TRUE(entry("b").flags & MTF_BACKUP::CAT_SKIPPED);
  EXPECT_EQ(2u, sets().at(0).summary.skipped_count);
}

TEST_F(Changing_Source, NamesInLogLinesAreEscaped) {
  write("new\nline", "text");
  Log_Capture log;
  EXPECT_FALSE(back_up({.hook = failing("open", "new\nline", EACCES)}));
  EXPECT_TRUE(log.has(LM_ERROR, "Failed to back up " + source_ + "/new\\x0Aline: Permission denied\n") ||
              log.has(LM_ERROR, "Failed to back up " + source_ + "/new\\x0aline: Permission denied\n"))
      << log.all();
}

TEST_F(Changing_Source, UnreadableExtendedAttributesAreToldAndTheFileIsSaved) {
  write("a", "text");
  Log_Capture log;
  EXPECT_FALSE(back_up({.hook = failing("read_xattrs", "a", EIO)}));
  EXPECT_EQ(MTF::E_END_WITH_SKIPPED_FILES, code_);
  EXPECT_EQ(1u, sets().at(0).summary.file_count);
  EXPECT_EQ(0u, sets().at(0).summary.skipped_count);
  EXPECT_TRUE(log.has(LM_ERROR, "Failed to read the extended attributes of " + source_ + "/a: Input/output error\n"))
      << log.all();
}

TEST_F(Changing_Source, UnreadableExtendedAttributesAreToldAgainAtTheRestore) {
  write("a", "text");
  write("d/b", "text");
  Log_Capture log;
  EXPECT_FALSE(back_up({.hook = [](const char* what, const std::string& path) {
    errno = EIO;
    return std::string(what) == "read_xattrs" && name_of(path) != "b";
  }}));
  log.clear();
  EXPECT_TRUE(restore({.select = {source_ + "/a", source_ + "/d"}}));
  EXPECT_EQ(2u, missing_count_);
  for (const char* name : {"/a", "/d"})
    EXPECT_TRUE(log.has(LM_ERROR, lacks(target_ + name,
                                        "its extended attributes are not in the set (its extended "
                                        "attributes could not be read)")))
        << log.all();
  EXPECT_EQ(2u, log.lines().size()) << log.all();
  EXPECT_EQ("text", test_support::read_file(target_ + "/a"));
}

TEST_F(Changing_Source, ExtendedAttributesThatNoSetHasRoomForAreToldAndTheFileIsSaved) {
  struct Callback : Posix_Backup_Callback {
    using Posix_Backup_Callback::Posix_Backup_Callback;
    bool read_xattrs(const char* path, MTF::Xattrs& attrs) override {
      if (name_of(path) == "a") attrs = {{"user.large", std::string(MTF::entry_xattrs_max, 'v')}};
      return true;
    }
  };
  struct Factory : MTF::IBackup_Callback_Factory {
    MTF::IBackup_Callback_var make() override { return held<MTF::IBackup_Callback>(new Callback(hook)); }
    const Hook hook;
  };
  write("a", "text");
  Log_Capture log;
  EXPECT_FALSE(back_up({.callbacks = new Factory}));
  EXPECT_EQ(MTF::E_END_WITH_SKIPPED_FILES, code_);
  EXPECT_TRUE(log.has(LM_ERROR, "Failed to read the extended attributes of " + source_ + "/a: they are too large\n"))
      << log.all();
  EXPECT_EQ(unsigned(MTF_BACKUP::CAT_BARE), entry("a").flags);
  EXPECT_EQ("its extended attributes are too large", entry("a").reason);
  EXPECT_TRUE(restore());
  EXPECT_EQ(1u, missing_count_);
  EXPECT_EQ("text", test_support::read_file(target_ + "/a"));
}

// The first name is listed before, the further one after the file has grown.
TEST_F(Changing_Source, FurtherNameOfAFileThatGrewIsRestoredAloneAsWithTheFirst) {
  const std::string path = write("a/f", "0123456789");
  for (const off_t hole : {0, 1 << 20}) {
    ASSERT_TRUE(truncate(path.c_str(), 10) == 0 && truncate(path.c_str(), 10 + hole) == 0);
    std::filesystem::create_directories(source_ + "/b");
    std::filesystem::remove(source_ + "/b/g");
    std::filesystem::create_hard_link(path, source_ + "/b/g");
    pool_->objects.clear();
    std::filesystem::remove_all(target_ + "/b");
    auto listed = std::make_shared<std::atomic<int>>(0);
    Log_Capture log;
    ASSERT_TRUE(back_up({.hook = [=](const char* what, const std::string&) {
      if (std::string(what) == "read_dirs" && ++*listed == 2) std::ofstream(path, std::ios::app) << "more bytes";
      return false;
    }}));
    ASSERT_NE(entry("a/f").stat.size, entry("b/g").stat.size);
    log.clear();
    EXPECT_TRUE(restore({.select = {source_ + "/b"}}));
    EXPECT_EQ("", log.all());
    EXPECT_TRUE(test_support::read_file(target_ + "/b/g") == "0123456789" + std::string(hole, '\0')) << hole;
  }
}

TEST_F(Changing_Source, AllThatIsWrongWithAFileIsTold) {
  const std::string path = write("a", "text");
  const Hook changes = once("read", "a", [&] { std::ofstream(path, std::ios::app) << " and more"; });
  Log_Capture log;
  EXPECT_FALSE(back_up({.hook = [=](const char* what, const std::string& entry) {
    errno = EIO;
    return std::string(what) == "read_xattrs" ? name_of(entry) == "a" : changes(what, entry);
  }}));
  EXPECT_TRUE(log.has(LM_WARNING, "File " + path + " changed while it was read.\n")) << log.all();
  EXPECT_EQ(unsigned(MTF_BACKUP::CAT_CHANGED | MTF_BACKUP::CAT_BARE), entry("a").flags);
  EXPECT_EQ("its extended attributes could not be read; changed while it was read", entry("a").reason);
}

/// Lists everything twice, as a directory does in which files are replaced while it is read.
class Listed_Twice : public MTF::IBackup_Callback_Factory {
 public:
  MTF::IBackup_Callback_var make() override { return held<MTF::IBackup_Callback>(new Callback(hook_)); }

 private:
  struct Callback : Posix_Backup_Callback {
    using Posix_Backup_Callback::Posix_Backup_Callback;
    bool read_dirs(const char* path, std::list<Directory_Entry>& entries) override {
      if (!Posix_Backup_Callback::read_dirs(path, entries)) return false;
      const std::list<Directory_Entry> once = entries;
      entries.insert(entries.end(), once.begin(), once.end());
      return true;
    }
  };
  const Hook hook_;
};

TEST_F(Changing_Source, NamesThatAreListedTwiceAreSavedOnce) {
  write("a", "text");
  write("d/e/b", "inside");
  write("first", "with two names");
  std::filesystem::create_hard_link(source_ + "/first", source_ + "/second");
  Log_Capture log;
  ASSERT_TRUE(back_up({.callbacks = new Listed_Twice})) << log.all();
  EXPECT_EQ(4u, sets().at(0).summary.file_count);
  EXPECT_EQ(3u, sets().at(0).summary.dir_count);
  ASSERT_TRUE(restore()) << log.all();
  EXPECT_EQ("", differences());
  EXPECT_EQ("", log.all());
}

TEST_F(Changing_Source, RunWithoutDescriptorsFailsAsAWhole) {
  write("a", "text");
  write("b", "text");
  Log_Capture log;
  EXPECT_FALSE(back_up({.hook = failing("open", "a", EMFILE)}));
  EXPECT_EQ(MTF::E_GET_SOURCE_DATA, code_);
  EXPECT_TRUE(sets().empty());
}

}  // namespace
