#include <condition_variable>
#include <mutex>

#include "client_io/client_io_factory.h"
#include "kolt/pool_info.h"
#include "mtf_backup/mtf_export.h"
#include "mtf_backup/mtf_verify.h"
#include "mtf_backup/test/mover_fixture.h"
#include "support/fake_s3.h"
#include "support/fault_proxy.h"
#include "support/s3rver.h"
#include "support/tree_maker.h"
#include "task/task_context.h"

using namespace mover_test;
using test_support::Fake_S3;
using test_support::Fault_Proxy;
using test_support::Log_Capture;
using test_support::Network_Fault;
using test_support::S3_Call;
using test_support::s3_error;
using test_support::S3_Reply;
using test_support::S3rver;

namespace {

/// Sets in a bucket.
class S3_Pool : public Mover_Fixture {
 protected:
  S3_Pool() {
    wrap = [this](std::unique_ptr<Client_IO_Base>) { return make_client_io(info_, "host/minor", options_); };
    use(service_.port());
  }

  void use(int port, const std::string& access_key = "access", const std::string& secret_key = "secret") {
    info_.url = "s3://bucket/pool";
    info_.default_s3 = {{"endpoint", "http://127.0.0.1:" + std::to_string(port)},
                        {"access_key_id", access_key},
                        {"secret_access_key", secret_key}};
  }

  void back_up_and_restore(const Backup_Args& args) {
    Log_Capture log;
    ASSERT_TRUE(back_up(args)) << log.all();
    ASSERT_TRUE(restore({.threads = 3})) << log.all();
    EXPECT_EQ(differences(), "");
    EXPECT_EQ(log.texts(LM_ERROR).size(), 0u) << log.all();
    EXPECT_EQ(sets().size(), 1u);
  }

  Fake_S3 service_;
  Pool_Info info_;
  Client_IO_Base::Options options_;
};

TEST_F(S3_Pool, ATreeGoesThereAndBackThroughTheServiceOfOthers) {
  if (!S3rver::missing().empty()) GTEST_SKIP() << S3rver::missing();
  const S3rver service;
  use(service.port(), "S3RVER", "S3RVER");
  test_support::make_tree(source_, {.files = 1000, .bytes = 40'000'000});
  back_up_and_restore({.compression = COMPR_ZSTD, .channels = 2});
}

TEST_F(S3_Pool, MediaOfSeveralPartsGoThereAndBack) {
  for (int i = 0; i < 4; ++i) write("large" + std::to_string(i), noise(12 << 20, i));
  back_up_and_restore({.channels = 2});
  EXPECT_GE(service_.count("PUT", "partNumber="), 6u);
  EXPECT_EQ(service_.uploads().size(), 0u);
}

TEST_F(S3_Pool, ARestoreAsksForSeveralFramesAtATime) {
  write("large", noise(24 << 20));
  ASSERT_TRUE(back_up());
  std::mutex lock;
  std::condition_variable changed;
  int asking = 0, most = 0;
  service_.script([&](const S3_Call& call) -> std::optional<S3_Reply> {
    if (call.method != "GET" || !call.path.ends_with(".mtf")) return {};
    std::unique_lock<std::mutex> guard(lock);
    most = std::max(most, ++asking);
    changed.notify_all();
    changed.wait_for(guard, std::chrono::milliseconds(500), [&] { return most >= 6; });
    --asking;
    return {};
  });
  ASSERT_TRUE(restore({.threads = 1}));
  EXPECT_GE(most, 6);
  EXPECT_EQ(differences(), "");
}

TEST_F(S3_Pool, ASetSurvivesABadNetwork) {
  std::atomic<int> count{0};
  Fault_Proxy proxy(service_.port(), [&](const std::string&) {
    static const Network_Fault faults[] = {Network_Fault::RESET_IN_REQUEST, Network_Fault::LOSE_ANSWER,
                                           Network_Fault::CUT_ANSWER, Network_Fault::ANSWER_503};
    const int number = count++;
    return number % 5 == 4 ? faults[number / 5 % 4] : Network_Fault::NONE;
  });
  use(proxy.port());
  write("large", noise(20 << 20));
  for (int i = 0; i < 20; ++i) write("f" + std::to_string(i), noise(1000, i));
  back_up_and_restore({.compression = COMPR_ZSTD, .channels = 2});
}

// The set stands then, and the job must not say that it failed.
TEST_F(S3_Pool, ALostAnswerToTheCommitRecordIsNoFailure) {
  std::atomic<int> commits{0};
  Fault_Proxy proxy(service_.port(), [&](const std::string& line) {
    const bool commit = line.starts_with("PUT ") && line.find("/commit ") != std::string::npos;
    return commit && ++commits == 1 ? Network_Fault::LOSE_ANSWER : Network_Fault::NONE;
  });
  use(proxy.port());
  write("a", noise(1000));
  back_up_and_restore({});
  EXPECT_EQ(commits, 2);
}

TEST_F(S3_Pool, AFullStorageFailsTheBackupAndKeepsOlderSets) {
  write("a", noise(1000));
  ASSERT_TRUE(back_up());
  const size_t before = service_.objects().size();
  service_.script([](const S3_Call& call) -> std::optional<S3_Reply> {
    if (call.method == "PUT" && call.path.ends_with("catalog")) return s3_error(507, "");
    return {};
  });
  Log_Capture log;
  EXPECT_FALSE(back_up({.seq = 1}));
  EXPECT_TRUE(log.has_containing(LM_ERROR, "No space left on device (507)")) << log.all();
  EXPECT_EQ(service_.objects().size(), before);
  EXPECT_TRUE(restore());
  EXPECT_EQ(differences(), "");
}

TEST_F(S3_Pool, WhatACrashLeftIsSwept) {
  service_.put("pool/host/minor/volume/0000000001.1/medium", "half");
  service_.begin_upload("pool/host/minor/volume/0000000001.1/medium", "dead");
  write("a", noise(1000));
  ASSERT_TRUE(back_up());
  EXPECT_EQ(service_.uploads().size(), 0u);
  EXPECT_EQ(sets().size(), 1u);
}

TEST_F(S3_Pool, ACancelIsHeardWhileTheServiceTakesNoParts) {
  std::atomic<bool> silent{false};
  Fault_Proxy proxy(service_.port(), [&](const std::string& line) {
    if (line.find("partNumber") == std::string::npos) return Network_Fault::NONE;
    silent = true;
    return Network_Fault::SILENCE;
  });
  use(proxy.port());
  write("large", noise(20 << 20));
  prepare = [&](Test_Handler& handler) { handler.cancel_when = [&] { return silent.load(); }; };
  Log_Capture log;
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_FALSE(back_up());
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));  // far less than any time-out
  EXPECT_EQ(service_.objects().size(), 0u);
  EXPECT_EQ(service_.uploads().size(), 0u);
}

/// A service that is away in one phase of a run, for longer than anybody waits.
class Cancel_In_Each_Phase : public S3_Pool {
 protected:
  /// From now on requests for which this holds are not served, and the first one makes the cancel come.
  void go_away(std::function<bool(const S3_Call&)> is_away) {
    service_.script([this, is_away](const S3_Call& call) -> std::optional<S3_Reply> {
      if (!is_away(call)) return {};
      away_ = true;
      return s3_error(503, "SlowDown");
    });
    prepare = [this](Test_Handler& handler) { handler.cancel_when = [this] { return away_.load(); }; };
  }
  void go_away_at(const std::string& object) {
    go_away([object](const S3_Call& call) { return call.path.ends_with("/" + object); });
  }
  /// As if nobody listened any more.
  void refuse() {
    use(1);
    prepare = [](Test_Handler& handler) { handler.cancel = true; };
  }

  template <typename Run>
  void expect_canceled(const Run& run) {
    Task_Context context;
    Task_Context::Attach attach(&context);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_FALSE(run());
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(60));  // of the 600 that it may wait
    EXPECT_EQ(code_, MTF::E_FAILED);
    EXPECT_TRUE(context.canceled());
  }
  void expect_backup_canceled(const Backup_Args& args = {}) {
    const size_t before = service_.objects().size();
    expect_canceled([&] { return back_up(args); });
    EXPECT_EQ(service_.objects().size(), before);
    EXPECT_EQ(service_.uploads().size(), 0u);
  }
  template <typename Mover>
  MTF::Error_Code code_of(Mover mover, MTF::Error_Code (Mover::*run)(const std::string&)) {
    mover.channel_factory(make_channels(nullptr));
    return (mover.*run)("volume/0000000001.1");
  }
  MTF::Event_Handler_var handler() {
    auto* const made = new Test_Handler;
    prepare(*made);
    return MTF::Event_Handler_var(made);
  }

  std::atomic<bool> away_{false};
};

TEST_F(Cancel_In_Each_Phase, OfABackupBeforeItsSetHasBegun) {
  refuse();
  expect_backup_canceled();
}

TEST_F(Cancel_In_Each_Phase, OfABackupThatLooksForTheSetToBuildOn) {
  write("a", "text");
  ASSERT_TRUE(back_up());
  go_away_at("catalog");
  Log_Capture log;
  expect_backup_canceled({.seq = 1, .incremental = true});
  EXPECT_FALSE(log.has_containing(LM_WARNING, "builds on no other")) << log.all();
}

TEST_F(Cancel_In_Each_Phase, OfABackupAtItsCatalog) {
  write("a", "text");
  go_away_at("catalog");
  expect_backup_canceled();
}

TEST_F(Cancel_In_Each_Phase, OfABackupAtItsCommitRecord) {
  write("a", "text");
  go_away_at("commit");
  expect_backup_canceled();
}

TEST_F(Cancel_In_Each_Phase, OfABackupWhoseCommitRecordIsUnderWayLetsTheSetStand) {
  write("a", "text");
  std::mutex lock;
  std::condition_variable asked;
  bool begun = false, heard = false;
  service_.script([&](const S3_Call& call) -> std::optional<S3_Reply> {
    if (call.method != "PUT" || !call.path.ends_with("/commit")) return {};
    std::unique_lock<std::mutex> guard(lock);
    begun = true;
    asked.wait_for(guard, std::chrono::seconds(10), [&] { return heard; });
    return {};
  });
  prepare = [&](Test_Handler& handler) {
    handler.cancel_when = [&] {
      const std::lock_guard<std::mutex> guard(lock);
      heard = begun;
      asked.notify_all();
      return heard;
    };
  };
  Task_Context context;
  Task_Context::Attach attach(&context);
  EXPECT_TRUE(back_up());
  EXPECT_TRUE(heard);
  EXPECT_FALSE(context.canceled());
  EXPECT_EQ(sets().size(), 1u);
}

TEST_F(Cancel_In_Each_Phase, OfARestoreThatLooksForItsSet) {
  refuse();
  expect_canceled([&] { return restore(); });
}

TEST_F(Cancel_In_Each_Phase, OfARestoreAtTheCommitRecord) {
  write("a", "text");
  ASSERT_TRUE(back_up());
  go_away_at("commit");
  expect_canceled([&] { return restore(); });
}

TEST_F(Cancel_In_Each_Phase, OfAVerificationAndAnExport) {
  refuse();
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(code_of(MTF_Verify(handler()), &MTF_Verify::verify), MTF::E_FAILED);
  EXPECT_EQ(code_of(MTF_Export(handler()), &MTF_Export::run), MTF::E_FAILED);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(60));
}

}  // namespace
