// Every call by which a pool in a directory, or a target, is written fails in turn, under the whole data mover.
#include "client_io/test/posix_faults.h"

#include <optional>

#include "mtf_backup/test/file_pool.h"

using namespace mover_test;
using test_support::Log_Capture;

namespace {

namespace fs = std::filesystem;

class Mover_Faults : public File_Pool_Fixture {
 protected:
  void SetUp() override {
    for (int i = 0; i < 8; ++i) write("d" + std::to_string(i % 3) + "/f" + std::to_string(i), noise(3000, i));
    write("large", noise((2u << 20) + 77));
  }

  /// A failure of every single call, until one run makes fewer.
  void fail_backups(posix_faults::Call call, int error, int least) {
    ASSERT_TRUE(back_up({.channels = 2}));
    const auto before = pool_files();
    const auto attempt = [&] {
      log_.emplace();
      return back_up({.compression = COMPR_ZSTD, .channels = 2, .seq = 1});
    };
    const auto undo = [&] {
      ASSERT_EQ(2u, sets().size());
      ASSERT_TRUE(MTF_BACKUP::Set_Store(make_channels(nullptr)->storage()).remove({"volume", 2, 1}));
    };
    const auto check = [&] {
      EXPECT_THAT((std::vector<MTF::Error_Code>{MTF::E_OPEN_MEDIA, MTF::E_WRITE_TO_STORAGE, MTF::E_ADD_TO_CATALOG}),
                  ::testing::Contains(code_));
      EXPECT_TRUE(log_->has_containing(LM_ERROR, strerror(error))) << log_->all();
      EXPECT_FALSE(log_->has_containing(LM_ERROR, "Failed to back up")) << "taken for a read error";
      ASSERT_TRUE(before == pool_files());
    };
    EXPECT_GE(posix_faults::fail_each(call, error, attempt, undo, check), least);
    EXPECT_EQ(2u, sets().size());
    for (const unsigned seq : {1u, 2u}) {
      clear_target();
      EXPECT_TRUE(restore({.seq = seq}));
      EXPECT_EQ("", differences());
    }
  }

  /// The same for what a restore writes.
  void fail_restores(posix_faults::Call call, int error, int least) {
    ASSERT_TRUE(back_up({.channels = 2}));
    const auto attempt = [&] {
      clear_target();
      log_.emplace();
      return restore();
    };
    const auto undo = [&] { EXPECT_EQ("", differences()) << log_->all(); };
    const auto check = [&] {
      EXPECT_NE(MTF::E_CORRUPT, code_) << log_->all();
      EXPECT_FALSE(log_->texts(LM_ERROR).empty());
      for (const auto& entry : fs::recursive_directory_iterator(target_)) {
        if (!entry.is_regular_file()) continue;
        const std::string name = entry.path().string().substr(target_.size());
        ASSERT_TRUE(fs::exists(source_ + name)) << name << " is left over";
        ASSERT_TRUE(test_support::read_file(source_ + name) == test_support::read_file(entry.path().string())) << name;
      }
    };
    EXPECT_GE(posix_faults::fail_each(call, error, attempt, undo, check), least);
    EXPECT_EQ("", differences());
  }

  std::optional<Log_Capture> log_;  // of the last attempt
};

TEST_F(Mover_Faults, EveryWriteThatFindsNoSpaceEndsTheBackup) {
  fail_backups(posix_faults::WRITE, ENOSPC, 6);
}
TEST_F(Mover_Faults, EveryWriteOverTheQuotaEndsTheBackup) {
  fail_backups(posix_faults::WRITE, EDQUOT, 6);
}
TEST_F(Mover_Faults, EveryFailedSyncEndsTheBackup) {
  fail_backups(posix_faults::FSYNC, EIO, 6);
}
// Threads close in any order, so that one object may be hit twice and another not at all.
TEST_F(Mover_Faults, EveryObjectThatFailsAtCloseEndsTheBackup) {
  fail_backups(posix_faults::CLOSE, EIO, 4);
}
TEST_F(Mover_Faults, EveryFailedRenameEndsTheBackup) {
  fail_backups(posix_faults::RENAME, EIO, 6);
}

// A set that was called good and lacks half a directory would be the worst of all.
TEST_F(Mover_Faults, NoFailedReadOfADirectoryIsTakenForItsEnd) {
  int good = 0;
  bool struck = true;
  for (int nth = 0; struck; ++nth) {
    SCOPED_TRACE(nth);
    fs::remove_all(pool_dir_);
    clear_target();
    Log_Capture log;
    posix_faults::fail(posix_faults::READDIR, nth, EIO);
    const bool ok = back_up();
    struck = posix_faults::stop();
    EXPECT_TRUE(ok || log.has_containing(LM_ERROR, strerror(EIO))) << log.all();
    if (!ok) continue;
    ASSERT_TRUE(restore());
    ASSERT_EQ("", differences());
    ++good;
    ASSERT_LT(nth, 1000);
  }
  EXPECT_GE(good, 10);
}
TEST_F(Mover_Faults, EntryWhoseStatusCannotBeReadCostsOnlyItself) {
  write("d1/bad", "text");
  write("d1/other", "text");
  Log_Capture log;
  posix_faults::fail_status_of("bad", EIO);
  EXPECT_FALSE(back_up());
  posix_faults::fail_status_of(nullptr, 0);
  EXPECT_EQ(MTF::E_END_WITH_SKIPPED_FILES, code_);
  EXPECT_TRUE(log.has(LM_ERROR, "Failed to back up " + source_ + "/d1/bad: Input/output error\n")) << log.all();
  EXPECT_EQ(1u, log.texts(LM_ERROR).size()) << log.all();
  EXPECT_EQ(unsigned(MTF_BACKUP::CAT_SKIPPED), entry("d1/bad").flags);
  EXPECT_EQ("Input/output error", entry("d1/bad").reason);
  ASSERT_TRUE(restore()) << log.all();
  EXPECT_EQ("./d1/bad: only on the left\n", differences());
}
TEST_F(Mover_Faults, FailedReadsOfThePoolAreNoDamage) {
  fail_restores(posix_faults::PREAD, EIO, 4);
}
TEST_F(Mover_Faults, FailedWritesOfTheTargetLeaveNoHalfFile) {
  fail_restores(posix_faults::WRITE, EIO, 9);
}
TEST_F(Mover_Faults, FullTargetLeavesNoHalfFile) {
  fail_restores(posix_faults::WRITE, ENOSPC, 9);
}
TEST_F(Mover_Faults, TargetThatDoesNotReachItsDiskFailsTheRestore) {
  ASSERT_TRUE(back_up());
  Log_Capture log;
  posix_faults::fail(posix_faults::SYNCFS, 0, EIO);
  EXPECT_FALSE(restore());
  EXPECT_TRUE(posix_faults::stop());
  EXPECT_EQ(MTF::E_FAILED, code_);
  EXPECT_TRUE(log.has(LM_ERROR, "Failed to write all to disk below " + target_ + ": Input/output error\n"))
      << log.all();
}

}  // namespace
