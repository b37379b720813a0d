#include <cerrno>
#include <cstring>
#include <optional>

#include "client_io/file_client_io.h"
#include "client_io/retrying_client_io.h"
#include "client_io/test/posix_faults.h"
#include "support/fake_clock.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace {

namespace fs = std::filesystem;

class File_Faults : public ::testing::Test {
 protected:
  bool store(const std::string& key) {
    const auto writer = client_.create(key);
    return writer && writer->write("bytes", 5) && writer->commit();
  }
  bool is_empty() { return !fs::exists(root_) || fs::is_empty(root_); }

  // Fails each call in turn; whatever fails, one line tells it and nothing stays.
  void expect_clean_failures(posix_faults::Call call, int error, int least) {
    std::optional<test_support::Log_Capture> log;
    const auto attempt = [&] {
      log.emplace();
      return store("a/b/object");
    };
    const auto undo = [&] { EXPECT_TRUE(client_.remove("a/b/object")); };
    const auto check = [&] {
      EXPECT_EQ(errno, error);
      ASSERT_EQ(log->lines().size(), 1u) << log->all();
      EXPECT_TRUE(
          log->has_containing(LM_ERROR, "object \"a/b/object\" in \"" + root_ + "\": " + strerror(error) + ".\n"))
          << log->all();
      EXPECT_TRUE(is_empty());
    };
    EXPECT_GE(posix_faults::fail_each(call, error, attempt, undo, check), least);
  }

  const test_support::Temp_Dir dir_;
  const std::string root_ = dir_ / "pool";
  File_Client_IO client_{root_, Client_IO_Base::Options()};
};

TEST_F(File_Faults, AFailedWriteLeavesNothing) {
  expect_clean_failures(posix_faults::WRITE, ENOSPC, 1);
}
// Of two directories, their parents' and at the end the file's and its directory's.
TEST_F(File_Faults, AFailedSyncLeavesNothing) {
  expect_clean_failures(posix_faults::FSYNC, EIO, 4);
}
TEST_F(File_Faults, AFailureAtCloseLeavesNothing) {
  expect_clean_failures(posix_faults::CLOSE, EDQUOT, 1);
}
TEST_F(File_Faults, AFailedRenameLeavesNothing) {
  expect_clean_failures(posix_faults::RENAME, EIO, 1);
}

TEST_F(File_Faults, AFilesystemWithoutExclusiveRenameLinks) {
  posix_faults::fail(posix_faults::RENAME, 0, EINVAL);
  EXPECT_TRUE(store("object"));
  EXPECT_TRUE(posix_faults::stop());
  EXPECT_EQ(test_support::read_file(root_ + "/object"), "bytes");
  EXPECT_EQ(std::distance(fs::directory_iterator(root_), fs::directory_iterator()), 1);
  test_support::Log_Capture log;
  posix_faults::fail(posix_faults::RENAME, 0, EINVAL);
  EXPECT_FALSE(store("object"));
  EXPECT_EQ(errno, EEXIST);
  posix_faults::stop();
}

TEST_F(File_Faults, ACallThatWasInterruptedIsMadeAgain) {
  posix_faults::fail(posix_faults::WRITE, 0, EINTR);
  EXPECT_TRUE(store("object"));
  EXPECT_TRUE(posix_faults::stop());
}

TEST_F(File_Faults, AfterAFailedWriteTheWriterStaysFailedAndQuiet) {
  const auto writer = client_.create("object");
  ASSERT_TRUE(writer);
  test_support::Log_Capture log;
  posix_faults::fail(posix_faults::WRITE, 0, ENOSPC);
  EXPECT_FALSE(writer->write("bytes", 5));
  posix_faults::stop();
  EXPECT_FALSE(writer->write("bytes", 5));
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_FALSE(writer->commit());
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_EQ(log.lines().size(), 1u);
}

TEST_F(File_Faults, AFailedReadIsToldWithItsReason) {
  ASSERT_TRUE(store("object"));
  const auto reader = client_.open("object");
  test_support::Log_Capture log;
  posix_faults::fail(posix_faults::PREAD, 0, EIO);
  char bytes[5];
  EXPECT_EQ(reader->read(0, bytes, 5), -1);
  EXPECT_EQ(errno, EIO);
  posix_faults::stop();
  EXPECT_TRUE(log.has(LM_ERROR, "Failed to read object \"object\" in \"" + root_ + "\": Input/output error.\n"))
      << log.all();
}

TEST_F(File_Faults, WithoutFlushNothingIsSyncedAtTheCommit) {
  Client_IO_Base::Options options;
  options.flush_after_write = false;
  File_Client_IO client(root_, options);
  ASSERT_TRUE(store("other"));  // the root is there
  posix_faults::count(posix_faults::FSYNC);
  const auto writer = client.create("object");
  EXPECT_TRUE(writer && writer->write("x", 1) && writer->commit());
  EXPECT_EQ(posix_faults::calls(), 0);
  posix_faults::stop();
}

/// Failures that pass, with somebody who tries again.
class File_Outages : public File_Faults {
 protected:
  File_Outages() { options_.resumption_buffer_size = 300'000; }

  bool store() {
    Retrying_Client_IO client(std::make_unique<File_Client_IO>(root_, options_), options_);
    const auto writer = client.create("a/b/object");
    if (!writer) return false;
    for (size_t at = 0; at < bytes_.size(); at += 70'000)
      if (!writer->write(bytes_.data() + at, std::min<size_t>(70'000, bytes_.size() - at))) return false;
    return writer->commit();
  }

  // Each call fails in turn, and nothing shows it but two warnings.
  void expect_ridden_out(posix_faults::Call call, int least) {
    for (int nth = 0;; ++nth) {
      SCOPED_TRACE(nth);
      fs::remove_all(root_);
      test_support::Log_Capture log;
      posix_faults::fail(call, nth, ETIMEDOUT);
      EXPECT_TRUE(store()) << log.all();
      if (!posix_faults::stop()) {
        EXPECT_GE(nth, least);
        return;
      }
      EXPECT_TRUE(test_support::read_file(root_ + "/a/b/object") == bytes_);
      EXPECT_EQ(std::distance(fs::directory_iterator(root_ + "/a/b"), fs::directory_iterator()), 1);
      EXPECT_EQ(log.texts(LM_WARNING).size(), 2u) << log.all();
      EXPECT_EQ(log.lines().size(), 2u) << log.all();
    }
  }

  const test_support::Fake_Clock clock_;
  Client_IO_Base::Options options_;
  const std::string bytes_ = [] {
    std::string made(1'000'000, '\0');
    for (size_t i = 0; i < made.size(); ++i) made[i] = static_cast<char>(i / 1000 + i);
    return made;
  }();
};

TEST_F(File_Outages, AWriteIsMadeAgain) {
  expect_ridden_out(posix_faults::WRITE, 14);
}
TEST_F(File_Outages, AfterAFailedSyncWhatItMayHaveLostIsWrittenAgain) {
  expect_ridden_out(posix_faults::FSYNC, 4);
}
TEST_F(File_Outages, BytesThatCouldNotBeSettledAreWrittenAgain) {
  expect_ridden_out(posix_faults::SETTLE, 3);
}
TEST_F(File_Outages, ARenameIsMadeAgain) {
  expect_ridden_out(posix_faults::RENAME, 1);
}

TEST_F(File_Outages, ARenameThatTookPlaceInSpiteOfItsFailureIsASuccess) {
  test_support::Log_Capture log;
  posix_faults::fail(posix_faults::RENAME_DONE, 0, ETIMEDOUT);
  EXPECT_TRUE(store());
  EXPECT_TRUE(posix_faults::stop());
  EXPECT_TRUE(test_support::read_file(root_ + "/a/b/object") == bytes_);
  EXPECT_EQ(log.all(), "");
}

TEST_F(File_Outages, WhatTheStorageKeepsFailingLeavesNothing) {
  options_.max_seconds_retry = 0;
  for (const auto call : {posix_faults::WRITE, posix_faults::FSYNC, posix_faults::RENAME}) {
    fs::remove_all(root_);
    posix_faults::fail(call, 0, ETIMEDOUT);
    EXPECT_FALSE(store());
    EXPECT_TRUE(posix_faults::stop());
    EXPECT_TRUE(is_empty());
  }
}

}  // namespace
