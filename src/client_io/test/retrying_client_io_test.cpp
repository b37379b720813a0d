#include "client_io/retrying_client_io.h"

#include <cerrno>
#include <numeric>

#include "client_io/held_failure.h"
#include "support/fake_clock.h"
#include "support/faulty_client_io.h"
#include "support/log_capture.h"
#include "support/memory_client_io.h"

namespace {

using client_io::may_pass;
using client_io::Patience;
using test_support::Fault_Plan;
using test_support::Faulty_Client_IO;
using test_support::Log_Capture;
using test_support::Memory_Client_IO;
using test_support::Memory_Pool;

class Retrying : public ::testing::Test {
 protected:
  /// A client of storage that fails as planned.
  void fail(Fault_Plan plan, size_t seconds = 100, size_t buffer = 1 << 20) {
    plan_ = std::make_unique<Fault_Plan>(std::move(plan));
    Client_IO_Base::Options options;
    options.max_seconds_retry = seconds;
    options.resumption_buffer_size = buffer;
    client_ = std::make_unique<Retrying_Client_IO>(std::make_unique<Faulty_Client_IO>(memory_, *plan_), options);
  }

  bool store(const std::string& key, const std::string& bytes, size_t portion = 100000) {
    const auto writer = client_->create(key);
    if (!writer) return false;
    for (size_t at = 0; at < bytes.size(); at += portion)
      if (!writer->write(bytes.data() + at, std::min(portion, bytes.size() - at))) return false;
    EXPECT_EQ(writer->size(), bytes.size());
    return writer->commit();
  }
  std::string fetch(const std::string& key) {
    const auto reader = client_->open(key);
    if (!reader) return "(missing)";
    std::string bytes(reader->size(), '\0');
    return reader->read(0, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()) ? bytes : "(unreadable)";
  }
  // All that a client does.
  bool work() {
    std::string listed;
    return store("a", content()) && store("b", "bytes") && fetch("a") == content() &&
           client_->list("", [&](const auto& info) { return listed += info.key, true; }) && listed == "ab" &&
           client_->remove("b") && client_->sweep("");
  }
  static const std::string& content() {
    static const std::string bytes = [] {
      std::string made(3'000'000, '\0');
      for (size_t i = 0; i < made.size(); ++i) made[i] = static_cast<char>(i / 1000 + i);
      return made;
    }();
    return bytes;
  }
  std::chrono::milliseconds slept() const {
    const auto sleeps = clock_.sleeps();
    return std::accumulate(sleeps.begin(), sleeps.end(), std::chrono::milliseconds(0));
  }

  test_support::Fake_Clock clock_;
  const std::shared_ptr<Memory_Pool> pool_ = std::make_shared<Memory_Pool>();
  Memory_Client_IO memory_{pool_};
  std::unique_ptr<Fault_Plan> plan_;
  std::unique_ptr<Client_IO_Base> client_;
};

TEST_F(Retrying, EveryOperationIsTriedAgain) {
  for (int nth = 0;; ++nth) {
    SCOPED_TRACE(nth);
    pool_->objects.clear();
    Log_Capture log;
    fail({Fault_Plan::ALL, nth, ETIMEDOUT});
    ASSERT_TRUE(work()) << log.all();
    EXPECT_EQ(pool_->objects.size(), 1u);
    EXPECT_TRUE(log.texts(LM_ERROR).empty()) << log.all();
    if (!plan_->struck()) break;
    EXPECT_EQ(log.lines().size(), 2u) << log.all();
  }
}

TEST_F(Retrying, AnOutageOfMinutesIsRiddenOutAtAnyMoment) {
  for (int nth = 0;; ++nth) {
    SCOPED_TRACE(nth);
    pool_->objects.clear();
    fail(Fault_Plan::away(nth, 90, EHOSTUNREACH));
    Log_Capture log;
    ASSERT_TRUE(work()) << log.all();
    if (!plan_->struck()) break;
    EXPECT_EQ(log.lines().size(), 2u) << log.all();
    EXPECT_EQ(log.texts(LM_WARNING).size(), 2u) << log.all();
  }
}

TEST_F(Retrying, TheLogTellsWhenAWaitBeginsAndWhenItEnds) {
  fail(Fault_Plan::away(0, 5, ECONNREFUSED));
  Log_Capture log;
  ASSERT_TRUE(store("object", "bytes"));
  EXPECT_TRUE(log.has(LM_WARNING,
                      "Failed to create object \"object\" in \"faulty\": Connection refused. It is tried again for up "
                      "to 100 seconds.\n"))
      << log.all();
  EXPECT_TRUE(log.has_containing(LM_WARNING, "The storage works again after ")) << log.all();
}

TEST_F(Retrying, AnOutageBeyondTheBoundIsAFailureToldOnce) {
  fail(Fault_Plan::away(1, 1000, ETIMEDOUT), 100);
  Log_Capture log;
  EXPECT_FALSE(store("object", content()));
  EXPECT_EQ(errno, ETIMEDOUT);
  EXPECT_EQ(log.texts(LM_WARNING).size(), 1u) << log.all();
  ASSERT_EQ(log.texts(LM_ERROR).size(), 1u) << log.all();
  EXPECT_TRUE(log.has(LM_ERROR, "Failed to write object \"object\" in \"faulty\": Connection timed out.\n"));
  EXPECT_GE(slept(), std::chrono::seconds(100));
  EXPECT_LT(slept(), std::chrono::seconds(102));
  EXPECT_TRUE(pool_->objects.empty());
}

TEST_F(Retrying, OnceItHasWaitedInVainItWaitsNoMore) {
  fail({Fault_Plan::ALL, 0, ETIMEDOUT, true}, 100);
  EXPECT_FALSE(store("object", "bytes"));
  const auto before = slept();
  Log_Capture log;
  EXPECT_EQ(client_->open("object"), nullptr);
  EXPECT_FALSE(client_->remove("object"));
  EXPECT_EQ(slept(), before);
  EXPECT_EQ(log.texts(LM_ERROR).size(), 2u) << log.all();
}

TEST_F(Retrying, WithZeroSecondsNothingIsTriedAgain) {
  fail({Fault_Plan::ALL, 0, ETIMEDOUT}, 0);
  Log_Capture log;
  EXPECT_FALSE(store("object", "bytes"));
  EXPECT_EQ(slept().count(), 0);
  EXPECT_EQ(log.lines().size(), 1u) << log.all();
}

TEST_F(Retrying, WhatDoesNotPassIsFinalAtOnce) {
  for (const int error : {ENOSPC, EDQUOT, EACCES, EROFS, EBADMSG, EEXIST, ENOMEM, EIO}) {
    fail({Fault_Plan::ALL, 0, error});
    Log_Capture log;
    EXPECT_FALSE(store("object", "bytes"));
    EXPECT_EQ(errno, error);
    EXPECT_EQ(slept().count(), 0);
    EXPECT_EQ(log.lines().size(), 1u) << log.all();
  }
}

TEST_F(Retrying, ADiskErrorIsTriedAgainInReadsOnly) {
  EXPECT_TRUE(may_pass(EIO, Patience::READING));
  EXPECT_FALSE(may_pass(EIO, Patience::WRITING));
  pool_->objects["object"] = "bytes";
  fail(Fault_Plan::away(0, 10, EIO));
  EXPECT_EQ(fetch("object"), "bytes");
}

TEST_F(Retrying, WaitsGrowUpToAMinute) {
  struct Counting : Memory_Client_IO {
    using Memory_Client_IO::Memory_Client_IO;
    bool sweep(const std::string&) override {
      tries.push_back(kolt::clock().now());
      errno = EAGAIN;
      return false;
    }
    std::vector<time_t> tries;
  };
  auto counting = std::make_unique<Counting>(pool_);
  const std::vector<time_t>& tries = counting->tries;
  Client_IO_Base::Options options;
  options.max_seconds_retry = 1000;
  client_ = std::make_unique<Retrying_Client_IO>(std::move(counting), options);
  EXPECT_FALSE(client_->sweep(""));
  time_t bound = 1;
  for (size_t i = 1; i + 1 < tries.size(); ++i, bound = std::min<time_t>(2 * bound, 60)) {
    EXPECT_LE(tries[i] - tries[i - 1], bound);
    EXPECT_GE(tries[i] - tries[i - 1], bound / 2);
  }
  EXPECT_EQ(tries.back() - tries.front(), 1000);
}

TEST_F(Retrying, AMissingObjectIsToldByErrnoAlone) {
  fail({0, 0});
  Log_Capture log;
  EXPECT_EQ(client_->open("object"), nullptr);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(log.all(), "");
  EXPECT_EQ(slept().count(), 0);
}

TEST_F(Retrying, AfterAnOutageAMissingObjectIsToldByErrnoAlone) {
  fail({Fault_Plan::OPEN, 0, ETIMEDOUT});
  Log_Capture log;
  EXPECT_EQ(client_->open("object"), nullptr);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_TRUE(log.texts(LM_ERROR).empty()) << log.all();
}

TEST_F(Retrying, AListingGoesOnBehindWhatWasShown) {
  /// Fails in mid-listing, twice.
  struct Breaking : Memory_Client_IO {
    using Memory_Client_IO::Memory_Client_IO;
    bool list(const std::string& prefix, const List_Callback& each) override {
      if (++calls == 3) return Memory_Client_IO::list(prefix, each);
      (void)Memory_Client_IO::list(prefix, [&](const Object_Info& info) { return each(info) && info.key != "b"; });
      errno = ESTALE;
      return false;
    }
    int calls = 0;
  };
  for (const char* key : {"a", "b", "c"}) pool_->objects[key] = "x";
  Retrying_Client_IO client(std::make_unique<Breaking>(pool_), {});
  std::string listed;
  EXPECT_TRUE(client.list("", [&](const auto& info) { return listed += info.key, true; }));
  EXPECT_EQ(listed, "abc");
}

TEST_F(Retrying, FailuresInsideACallbackAreToldAsEver) {
  pool_->objects["a"] = "x";
  fail({0, 0});
  Fault_Plan other(Fault_Plan::ALL, 0, EACCES);
  Faulty_Client_IO failing(memory_, other);
  Log_Capture log;
  EXPECT_FALSE(client_->list("", [&](const auto& info) { return failing.remove(info.key); }));
  EXPECT_EQ(errno, ECANCELED);
  EXPECT_EQ(log.texts(LM_ERROR).size(), 1u) << log.all();
}

/// Storage that may lose all that was not settled, and tells how much a writer could ask it to.
struct Watched_Pool : Memory_Client_IO {
  using Memory_Client_IO::Memory_Client_IO;
  std::unique_ptr<Writer> create(const std::string& key) override {
    struct Watched_Writer : Writer {
      bool write(const void* data, size_t n) override {
        if (pool.fail_at != 0 && next->size() >= pool.fail_at) {
          pool.fail_at = 0;
          errno = ETIMEDOUT;
          return false;
        }
        if (!next->write(data, n)) return false;
        pool.most_unsettled = std::max(pool.most_unsettled, next->size() - settled);
        return true;
      }
      bool commit() override { return next->commit(); }
      uint64_t size() const override { return next->size(); }
      bool settle(uint64_t n) override {
        settled = n;
        return true;
      }
      int64_t resume(uint64_t from) override {
        EXPECT_EQ(from, settled);
        pool.resumed = true;
        return next->resume(from);
      }
      Watched_Writer(std::unique_ptr<Writer> writer, Watched_Pool& owner) : next(std::move(writer)), pool(owner) {}
      std::unique_ptr<Writer> next;
      Watched_Pool& pool;
      uint64_t settled = 0;
    };
    return std::make_unique<Watched_Writer>(Memory_Client_IO::create(key), *this);
  }
  uint64_t fail_at = 0;
  uint64_t most_unsettled = 0;
  bool resumed = false;
};

TEST_F(Retrying, NeverMoreThanTheBufferIsUnsettled) {
  for (const size_t buffer : {size_t(100'000), size_t(1'000'000), size_t(10'000'000)}) {
    Client_IO_Base::Options options;
    options.resumption_buffer_size = buffer;
    for (uint64_t at = 1; at < content().size() - 70'000; at += 271'828) {
      auto watched = std::make_unique<Watched_Pool>(pool_);
      Watched_Pool& pool = *watched;
      pool.fail_at = at;
      client_ = std::make_unique<Retrying_Client_IO>(std::move(watched), options);
      pool_->objects.clear();
      ASSERT_TRUE(store("object", content(), 70'000));
      EXPECT_TRUE(pool.resumed);
      EXPECT_TRUE(pool_->objects["object"] == content()) << buffer << " " << at;
      EXPECT_LE(pool.most_unsettled, buffer);
    }
  }
}

TEST_F(Retrying, ABufferWithoutMeasureIsCutAndToldOnce) {
  Client_IO_Base::Options options;
  options.resumption_buffer_size = SIZE_MAX;
  Log_Capture log;
  auto watched = std::make_unique<Watched_Pool>(pool_);
  Watched_Pool& pool = *watched;
  client_ = std::make_unique<Retrying_Client_IO>(std::move(watched), options);
  const Retrying_Client_IO other(std::make_unique<Watched_Pool>(pool_), options);
  EXPECT_EQ(log.texts(LM_WARNING), std::vector<std::string>{"A resumption buffer of 18446744073709551615 bytes is too "
                                                            "large, 67108864 are used.\n"});
  ASSERT_TRUE(store("object", std::string(70 << 20, 'x'), 1 << 20));
  EXPECT_LE(pool.most_unsettled, size_t(64) << 20);
}

TEST_F(Retrying, AWriterThatCannotResumeFailsForGood) {
  struct Stubborn : Memory_Client_IO {
    using Memory_Client_IO::Memory_Client_IO;
    std::unique_ptr<Writer> create(const std::string&) override {
      struct Stubborn_Writer : Writer {
        bool write(const void*, size_t) override {
          errno = ETIMEDOUT;
          client_io::log_failure("write", "object", "stubborn");
          return false;
        }
        bool commit() override { return false; }
        uint64_t size() const override { return 0; }
      };
      return std::make_unique<Stubborn_Writer>();
    }
  };
  client_ = std::make_unique<Retrying_Client_IO>(std::make_unique<Stubborn>(pool_), Client_IO_Base::Options());
  Log_Capture log;
  EXPECT_FALSE(store("object", "bytes"));
  EXPECT_EQ(log.texts(LM_ERROR).size(), 1u) << log.all();
  EXPECT_TRUE(log.has(LM_ERROR, "Failed to write object \"object\" in \"stubborn\": Connection timed out.\n"));
}

TEST(Retrying_Client, CancelEndsAWaitWithinASecond) {
  Fault_Plan plan(Fault_Plan::ALL, 0, ETIMEDOUT, true);
  Memory_Client_IO memory(std::make_shared<Memory_Pool>());
  Retrying_Client_IO client(std::make_unique<Faulty_Client_IO>(memory, plan), {});
  Log_Capture log;
  std::thread canceler([&] {
    while (!plan.struck()) std::this_thread::yield();
    client.cancel();
  });
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(client.create("object"), nullptr);
  EXPECT_EQ(errno, ECANCELED);
  canceler.join();
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));  // of the 600 that it may wait
  EXPECT_TRUE(log.texts(LM_ERROR).empty()) << log.all();
  EXPECT_FALSE(client.remove("object"));  // no wait any more, but a reason
  EXPECT_EQ(errno, ETIMEDOUT);
}

TEST(Held_Failure, KeepsTheLastLineForWhoTriesAgain) {
  Log_Capture log;
  client_io::Held_Failure held;
  errno = EIO;
  client_io::log_failure("read", "one", "pool");
  client_io::log_failure("read", "two", "pool");
  EXPECT_EQ(log.all(), "");
  EXPECT_EQ(errno, EIO);
  held.tell();
  EXPECT_EQ(log.texts(LM_ERROR),
            std::vector<std::string>{"Failed to read object \"two\" in \"pool\": Input/output error.\n"});
}

}  // namespace
