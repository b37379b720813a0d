#include <sys/xattr.h>

#include "mtf_backup/test/mover_fixture.h"
#include "support/tree_maker.h"
#include "task/task_context.h"

using namespace mover_test;
using test_support::Fault_Plan;
using test_support::Log_Capture;

namespace {

/// Storage that fails, and cancels.
class Failing_Run : public Mover_Fixture {
 protected:
  void small_tree() {
    for (int i = 0; i < 20; ++i) write("d" + std::to_string(i % 4) + "/f" + std::to_string(i), noise(1000, i));
    write("large", noise(5 << 20));
  }

  /// A backup with the @a nth operation failing, for every n, until one passes.
  /// @param wanted  codes that it may end with.
  void fail_all(int kinds, const std::vector<MTF::Error_Code>& wanted) {
    small_tree();
    ASSERT_TRUE(back_up({.channels = 2}));
    const auto before = pool_->objects;
    for (int nth = 0;; ++nth) {
      SCOPED_TRACE(nth);
      Fault_Plan plan(kinds, nth, ENOSPC);
      Log_Capture log;
      const bool ok = back_up({.compression = COMPR_ZSTD, .channels = 2, .seq = 1, .plan = &plan});
      if (!plan.struck()) {
        EXPECT_TRUE(ok) << log.all();
        EXPECT_GE(nth, 6);  // two media with their indexes, the catalog, the record
        break;
      }
      EXPECT_FALSE(ok);
      EXPECT_THAT(wanted, ::testing::Contains(code_));
      EXPECT_TRUE(log.has_containing(LM_ERROR, "")) << "nothing told";
      EXPECT_EQ(before, pool_->objects);
      EXPECT_EQ(0u, size_ + set_size_ + storage_size_);
      ASSERT_LT(nth, 10000);
    }
    EXPECT_EQ(2u, sets().size());
  }
};

TEST_F(Failing_Run, EveryFailedCreateEndsTheBackupAndLeavesNothing) {
  fail_all(Fault_Plan::CREATE, {MTF::E_OPEN_MEDIA, MTF::E_WRITE_TO_STORAGE});
}

TEST_F(Failing_Run, EveryFailedWriteEndsTheBackupAndLeavesNothing) {
  fail_all(Fault_Plan::WRITE, {MTF::E_OPEN_MEDIA, MTF::E_WRITE_TO_STORAGE, MTF::E_ADD_TO_CATALOG});
}

TEST_F(Failing_Run, EveryFailedCommitEndsTheBackupAndLeavesNothing) {
  fail_all(Fault_Plan::COMMIT, {MTF::E_WRITE_TO_STORAGE, MTF::E_ADD_TO_CATALOG});
}

TEST_F(Failing_Run, FailedListEndsTheBackupBeforeItBegins) {
  write("a", "text");
  Fault_Plan plan(Fault_Plan::LIST, 0);
  Log_Capture log;
  EXPECT_FALSE(back_up({.plan = &plan}));
  EXPECT_EQ(MTF::E_OPEN_MEDIA, code_);
}

TEST_F(Failing_Run, FullStorageIsNoReadError) {
  write("a", noise(3 << 20));
  Fault_Plan plan(Fault_Plan::WRITE, 2, ENOSPC, true);
  Log_Capture log;
  EXPECT_FALSE(back_up({.plan = &plan}));
  EXPECT_EQ(MTF::E_WRITE_TO_STORAGE, code_);
  EXPECT_FALSE(log.has_containing(LM_ERROR, "Failed to back up")) << log.all();
}

TEST_F(Failing_Run, EveryFailedReadIsToldAndNothingWrongIsRestored) {
  small_tree();
  ASSERT_TRUE(back_up({.compression = COMPR_ZSTD, .channels = 2}));
  for (int nth = 0;; ++nth) {
    SCOPED_TRACE(nth);
    std::filesystem::remove_all(target_);
    Fault_Plan plan(Fault_Plan::OPEN | Fault_Plan::READ, nth, EIO);
    Log_Capture log;
    const bool ok = restore({.plan = &plan});
    if (!plan.struck()) {
      EXPECT_TRUE(ok) << log.all();
      EXPECT_GT(nth, 5);
      break;
    }
    // A frame that is fetched ahead in vain is fetched again.
    EXPECT_TRUE(ok || !log.texts(LM_ERROR).empty());
    EXPECT_EQ("", ok ? differences() : "");
    if (!std::filesystem::exists(target_)) continue;
    for (const auto& file : std::filesystem::recursive_directory_iterator(target_)) {
      if (!file.is_regular_file()) continue;
      const std::string name = file.path().string().substr(target_.size());
      EXPECT_EQ(test_support::read_file(source_ + name), test_support::read_file(file.path())) << name;
    }
  }
  EXPECT_EQ("", differences());
}

TEST_F(Failing_Run, CancelAtManyMomentsLeavesNoSet) {
  small_tree();
  for (int moment = 0; moment < 25; ++moment) {
    SCOPED_TRACE(moment);
    auto seen = std::make_shared<std::atomic<int>>(0);
    prepare = [=](Test_Handler& handler) { handler.cancel_when = [=] { return *seen > moment; }; };
    Task_Context context;
    Task_Context::Attach attach(&context);
    const auto begin = std::chrono::steady_clock::now();
    const bool ok = back_up({.channels = 2, .hook = [=](const char*, const std::string&) {
                               ++*seen;
                               return false;
                             }});
    EXPECT_FALSE(ok);
    EXPECT_EQ(MTF::E_FAILED, code_);
    EXPECT_TRUE(context.canceled());
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
    EXPECT_TRUE(pool_->objects.empty());
  }
}

TEST_F(Failing_Run, CancelIsSeenWhileALargeFileIsRead) {
  ASSERT_EQ(0, truncate(write("large", "").c_str(), off_t(1) << 40));
  prepare = [](Test_Handler& handler) {
    const auto begin = std::chrono::steady_clock::now();
    handler.cancel_when = [=] { return std::chrono::steady_clock::now() - begin > std::chrono::milliseconds(300); };
  };
  Log_Capture log;
  EXPECT_FALSE(back_up({.compression = COMPR_ZSTD, .hook = without_holes}));
  EXPECT_TRUE(sets().empty());
  EXPECT_TRUE(log.texts(LM_ERROR).empty()) << log.all();
}

TEST_F(Failing_Run, CancelWithoutATaskIsAFailureToo) {
  write("a", "text");
  prepare = [](Test_Handler& handler) { handler.cancel = true; };
  EXPECT_FALSE(back_up());
  EXPECT_EQ(MTF::E_FAILED, code_);
  EXPECT_TRUE(sets().empty());
}

/// Knows when the commit record was written, and lets the cancel come before its writer does.
class Late_Cancel : public test_support::Memory_Client_IO {
 public:
  Late_Cancel(const std::shared_ptr<test_support::Memory_Pool>& pool, std::atomic<int>& looks)
      : Memory_Client_IO(pool), looks_(looks) {}

  std::unique_ptr<Writer> create(const std::string& key) override {
    std::unique_ptr<Writer> next = Memory_Client_IO::create(key);
    return key.ends_with("/commit") ? std::make_unique<Commit_Writer>(std::move(next), looks_) : std::move(next);
  }

 private:
  struct Commit_Writer : Writer {
    Commit_Writer(std::unique_ptr<Writer> writer, std::atomic<int>& count) : next(std::move(writer)), looks(count) {}
    bool write(const void* data, size_t n) override { return next->write(data, n); }
    bool commit() override {
      if (!next->commit()) return false;
      looks = 1;
      while (looks < 2) std::this_thread::yield();
      return true;
    }
    uint64_t size() const override { return next->size(); }
    const std::unique_ptr<Writer> next;
    std::atomic<int>& looks;
  };
  std::atomic<int>& looks_;
};

TEST_F(Failing_Run, CancelThatComesTooLateForTheCommitRecordChangesNothing) {
  write("a", "text");
  std::atomic<int> looks{0};
  wrap = [&](std::unique_ptr<Client_IO_Base>) { return std::make_shared<Late_Cancel>(pool_, looks); };
  prepare = [&](Test_Handler& handler) { handler.cancel_when = [&] { return looks > 0 && ++looks > 1; }; };
  Task_Context context;
  Task_Context::Attach attach(&context);
  EXPECT_TRUE(back_up());
  EXPECT_GE(looks, 2);
  EXPECT_EQ(MTF::E_OK, code_);
  EXPECT_FALSE(context.canceled());
  EXPECT_EQ(4u, size_);
  EXPECT_EQ(1u, sets().size());
}

TEST_F(Failing_Run, CancelledRestoreStopsAndTellsTheTask) {
  small_tree();
  ASSERT_TRUE(back_up());
  prepare = [](Test_Handler& handler) { handler.cancel = true; };
  Task_Context context;
  Task_Context::Attach attach(&context);
  EXPECT_FALSE(restore());
  EXPECT_EQ(MTF::E_FAILED, code_);
  EXPECT_TRUE(context.canceled());
}

TEST_F(Failing_Run, CancelInTheLastPassOfARestoreHasNoLine) {
  for (const char* name : {"", "/d"}) {
    std::filesystem::create_directories(source_ + name);
    if (setxattr((source_ + name).c_str(), "user.x", "1", 1, 0) != 0) GTEST_SKIP() << "no attributes here";
  }
  for (int i = 0; i < 40; ++i) write("d/f" + std::to_string(i), noise(1 << 20, i));
  std::filesystem::create_directory(source_ + "/d/last");
  ASSERT_TRUE(back_up());
  std::atomic<bool> cancel{false};
  prepare = [&](Test_Handler& handler) { handler.cancel_when = [&] { return cancel.load(); }; };
  Log_Capture log;
  EXPECT_FALSE(restore({.hook = [&](const char* what, const std::string& path) {
    if (std::string(what) == "set_times" && path.ends_with("/.") && !cancel.exchange(true))
      std::this_thread::sleep_for(std::chrono::milliseconds(500));
    return false;
  }}));
  EXPECT_TRUE(cancel);
  EXPECT_EQ(MTF::E_FAILED, code_);
  EXPECT_EQ("", log.all());
}

/// Storage that gives the first MiB of a medium only, until it is cancelled.
class Stuck : public test_support::Memory_Client_IO {
 public:
  using Memory_Client_IO::Memory_Client_IO;

  std::unique_ptr<Reader> open(const std::string& key) override {
    auto next = Memory_Client_IO::open(key);
    if (!next || !key.ends_with(".mtf")) return next;
    return std::make_unique<Stuck_Reader>(std::move(next), canceled_);
  }
  void cancel() override {
    canceled_ = true;
    Memory_Client_IO::cancel();
  }

 private:
  struct Stuck_Reader : Reader {
    Stuck_Reader(std::unique_ptr<Reader> reader, const std::atomic<bool>& stop)
        : next(std::move(reader)), canceled(stop) {}
    ssize_t read(uint64_t offset, void* to, size_t n) override {
      const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
      while (offset >= 1 << 20 && !canceled && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
      errno = ECANCELED;
      return canceled ? -1 : next->read(offset, to, n);
    }
    uint64_t size() const override { return next->size(); }
    const std::unique_ptr<Reader> next;
    const std::atomic<bool>& canceled;
  };
  std::atomic<bool> canceled_{false};
};

TEST_F(Failing_Run, EndOfARestoreDoesNotWaitForWhatNobodyWants) {
  write("a", "small");
  for (int i = 0; i < 12; ++i) write("b" + std::to_string(i), noise(1 << 20, i));
  ASSERT_TRUE(back_up());
  wrap = [this](std::unique_ptr<Client_IO_Base>) { return std::make_shared<Stuck>(pool_); };
  Log_Capture log;
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_TRUE(restore({.threads = 1, .select = {source_ + "/a"}})) << log.all();
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(15));  // of the 30 that a read may take
  EXPECT_EQ("", log.all());
}

TEST_F(Failing_Run, ErrorsOfAllThreadsAreKeptWithTheTask) {
  write("bad", "text");
  Task_Context context;
  {
    Task_Context::Attach attach(&context);
    EXPECT_FALSE(back_up({.hook = [](const char* what, const std::string&) {
      errno = EACCES;
      return std::string(what) == "open";
    }}));
  }
  ASSERT_EQ(1u, context.errors().size());
  EXPECT_EQ("Failed to back up " + source_ + "/bad: Permission denied", context.errors()[0]);
}

TEST_F(Failing_Run, OneFileThatCannotBeWrittenIsToldAndTheRestIsRestored) {
  write("bad", "text");
  write("good", "text");
  ASSERT_TRUE(back_up());
  Log_Capture log;
  EXPECT_FALSE(restore({.hook = [](const char* what, const std::string& path) {
    errno = EIO;
    return std::string(what) == "rename" && name_of(path) == "bad";
  }}));
  EXPECT_EQ(MTF::E_END_WITH_SKIPPED_FILES, code_);
  EXPECT_TRUE(log.has(LM_ERROR, "Failed to restore " + target_ + "/bad: Input/output error\n")) << log.all();
  EXPECT_TRUE(std::filesystem::exists(target_ + "/good"));
  for (const auto& file : std::filesystem::directory_iterator(target_))
    EXPECT_FALSE(file.path().filename().string().starts_with(".tessarin-")) << file.path();
}

TEST_F(Failing_Run, LateWriteErrorKeepsTheOldFile) {
  write("a", "new");
  ASSERT_TRUE(back_up());
  dir_.write("target/a", "old");
  Log_Capture log;
  EXPECT_FALSE(restore({.hook = [](const char* what, const std::string&) {
    errno = EIO;
    return std::string(what) == "flush";
  }}));
  EXPECT_EQ("old", test_support::read_file(target_ + "/a"));
}

TEST_F(Failing_Run, FullTargetEndsTheRestore) {
  for (int i = 0; i < 50; ++i) write("f" + std::to_string(i), "text");
  ASSERT_TRUE(back_up());
  Log_Capture log;
  EXPECT_FALSE(restore({.hook = [](const char* what, const std::string&) {
    errno = ENOSPC;
    return std::string(what) == "flush";
  }}));
  EXPECT_EQ(MTF::E_FAILED, code_);
  EXPECT_LT(log.texts(LM_ERROR).size(), 10u);
}

}  // namespace
