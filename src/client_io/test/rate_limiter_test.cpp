#include "client_io/rate_limiter.h"

#include <cerrno>
#include <thread>
#include <vector>

#include "client_io/rate_limited_client_io.h"
#include "json_spirit/json_spirit_value.h"
#include "support/fake_clock.h"
#include "support/memory_client_io.h"

namespace {

using client_io::limit_at;
using client_io::Rate_Limiter;
using client_io::Rate_Limiters;
using std::chrono::milliseconds;
using std::chrono::seconds;
using test_support::Fake_Clock;

std::atomic<bool> not_canceled{false};

double seconds_of(std::chrono::nanoseconds span) {
  return std::chrono::duration<double>(span).count();
}

/// A moment whose second of the local day is this one.
time_t at_second_of_day(int second) {
  const time_t some_day = 1'700'000'000;
  struct tm local;
  localtime_r(&some_day, &local);
  local.tm_hour = 0;
  local.tm_min = 0;
  local.tm_sec = second;
  return mktime(&local);
}

/// @param each_takes  what the storage takes per transfer.
void transfer(Rate_Limiter& limiter, Fake_Clock& clock, size_t bytes, milliseconds each_takes = milliseconds(0)) {
  while (bytes > 0) {
    const Rate_Limiter::Transfer portion(limiter, bytes, not_canceled);
    ASSERT_GT(portion.size(), 0u);
    ASSERT_LE(portion.size(), bytes);
    bytes -= portion.size();
    clock.advance(each_takes);
  }
}

double seconds_for(Rate_Limiter& limiter, Fake_Clock& clock, size_t bytes, milliseconds each_takes = milliseconds(0)) {
  const auto begin = clock.steady();
  transfer(limiter, clock, bytes, each_takes);
  return seconds_of(clock.steady() - begin);
}

TEST(LimitAt, OutsideEveryWindowThereIsNone) {
  EXPECT_EQ(limit_at({}, 0), 0u);
  EXPECT_EQ(limit_at({{100, 200, 5}}, 99), 0u);
  EXPECT_EQ(limit_at({{100, 200, 5}}, 201), 0u);
}

TEST(LimitAt, BothBoundsBelongToTheWindow) {
  EXPECT_EQ(limit_at({{100, 200, 5}}, 100), 5u);
  EXPECT_EQ(limit_at({{100, 200, 5}}, 200), 5u);
}

TEST(LimitAt, OfOverlappingWindowsTheLowestCounts) {
  EXPECT_EQ(limit_at({{0, 200, 9}, {100, 300, 5}, {100, 150, 7}}, 120), 5u);
  EXPECT_EQ(limit_at({{0, 200, 9}, {100, 300, 5}, {100, 150, 7}}, 50), 9u);
}

TEST(LimitAt, AZeroIsNoLimitAndHidesNone) {
  EXPECT_EQ(limit_at({{0, 200, 0}}, 120), 0u);
  EXPECT_EQ(limit_at({{0, 200, 0}, {0, 200, 8}}, 120), 8u);
}

TEST(Rate_Limiter, HoldsTheLimitWithinFivePercent) {
  for (const size_t limit : {1000u, 1000000u, 100000000u}) {
    Fake_Clock clock;
    Rate_Limiter limiter({{0, 86399, limit}});
    EXPECT_NEAR(seconds_for(limiter, clock, limit * 20), 20.0, 1.0) << limit;
  }
}

TEST(Rate_Limiter, StorageThatIsSlowToAnswerDoesNotKeepItBelowTheLimit) {
  for (const int latency : {10, 50, 100, 200, 500}) {
    Fake_Clock clock;
    Rate_Limiter limiter({{0, 86399, 1'000'000}});
    EXPECT_NEAR(seconds_for(limiter, clock, 20'000'000, milliseconds(latency)), 20.0, 1.0) << latency;
  }
}

TEST(Rate_Limiter, WithoutALimitNothingWaits) {
  Fake_Clock clock(at_second_of_day(50));
  Rate_Limiter limiter({{100, 200, 10}});
  EXPECT_EQ(Rate_Limiter::Transfer(limiter, 1 << 20, not_canceled).size(), size_t(1 << 20));
  EXPECT_EQ(seconds_for(limiter, clock, 1 << 20), 0.0);
}

TEST(Rate_Limiter, AWindowThatBeginsOrEndsIsFeltAtOnce) {
  Fake_Clock clock(at_second_of_day(90));
  Rate_Limiter limiter({{100, 109, 1000}});
  EXPECT_EQ(seconds_for(limiter, clock, 1 << 20), 0.0);
  clock.advance(seconds(10));                                    // the window begins
  EXPECT_NEAR(seconds_for(limiter, clock, 1 << 20), 10.0, 1.0);  // a megabyte takes no longer than the window lasts
}

TEST(Rate_Limiter, WhatPassedWithoutALimitIsNotPaidForInAWindow) {
  Fake_Clock clock(at_second_of_day(99));
  Rate_Limiter limiter({{100, 86399, 1}});
  {
    const Rate_Limiter::Transfer portion(limiter, 1 << 20, not_canceled);
    EXPECT_EQ(portion.size(), size_t(1 << 20));
    clock.advance(seconds(1));  // the window begins while it is under way
  }
  EXPECT_NEAR(seconds_for(limiter, clock, 10), 10.0, 1.0);
}

TEST(Rate_Limiter, WhoWaitsWhenALimitChangesFeelsTheOtherOne) {
  Fake_Clock clock(at_second_of_day(0));
  Rate_Limiter limiter({{0, 4, 1}, {5, 9, 1000}, {10, 86399, 1'000'000}});
  EXPECT_NEAR(seconds_for(limiter, clock, 5 + 5000 + 1'000'000), 11.0, 0.5);
}

TEST(Rate_Limiter, AWindowThatPassesMidnightHoldsOnBothSidesOfIt) {
  Rate_Limits::Entries_Type windows;
  const json_spirit::Array array{
      json_spirit::Object{{"start_time", 86390}, {"end_time", 9}, {"max_bytes_per_second", 1000}}};
  ASSERT_TRUE(array_to_rate_entries(array, windows));
  Fake_Clock clock(at_second_of_day(86390));
  Rate_Limiter limiter(windows);
  EXPECT_NEAR(seconds_for(limiter, clock, 20000), 20.0, 1.0);  // ten seconds before and ten behind
  clock.advance(seconds(1));
  EXPECT_EQ(seconds_for(limiter, clock, 1 << 20), 0.0);
}

TEST(Rate_Limiter, AShortTransferKeepsToTheLimitToo) {
  Fake_Clock clock;
  Rate_Limiter limiter({{0, 86399, 1000}});
  EXPECT_NEAR(seconds_for(limiter, clock, 1000), 1.0, 0.051);
}

TEST(Rate_Limiter, AllThreadsTogetherHoldTheLimitWithinFivePercent) {
  for (const size_t limit : {size_t(1000), size_t(1'000'000), size_t(1'000'000'000)})
    for (const size_t busy : {1, 2, 7, 64}) {
      Fake_Clock clock;
      Rate_Limiter limiter({{0, 86399, limit}});
      const auto begin = clock.steady();
      std::vector<std::thread> threads;
      for (size_t i = 0; i < busy; ++i) threads.emplace_back([&] { transfer(limiter, clock, 20 * limit / busy); });
      for (std::thread& thread : threads) thread.join();
      EXPECT_NEAR(seconds_of(clock.steady() - begin), 20.0, 1.0) << limit << " by " << busy;
    }
}

TEST(Rate_Limiter, WhoNeedsMuchIsNotOvertakenForeverByWhoNeedsLittle) {
  Rate_Limiter limiter({{0, 86399, 10'000'000}});
  std::atomic<bool> ended{false};
  std::thread small([&] {
    while (!ended) {
      const Rate_Limiter::Transfer portion(limiter, 4096, ended);
    }
  });
  const auto deadline = std::chrono::steady_clock::now() + seconds(30);
  std::thread guard([&] {
    while (!ended && std::chrono::steady_clock::now() < deadline) std::this_thread::sleep_for(milliseconds(10));
    ended = true;
  });
  size_t left = 3'000'000;
  while (left > 0 && !ended) left -= Rate_Limiter::Transfer(limiter, left, ended).size();
  ended = true;
  small.join();
  guard.join();
  EXPECT_EQ(0u, left);
}

TEST(Rate_Limiter, IdleTimeIsNotSavedUp) {
  Fake_Clock clock;
  Rate_Limiter limiter({{0, 86399, 1000}});
  transfer(limiter, clock, 100);
  clock.advance(seconds(1000));
  EXPECT_NEAR(seconds_for(limiter, clock, 10000), 10.0, 0.5);
}

TEST(Rate_Limiter, OfTheTimeOfATransferASecondIsSavedUpAtMost) {
  Fake_Clock clock;
  Rate_Limiter limiter({{0, 86399, 1000}});
  transfer(limiter, clock, 100, seconds(1000));
  EXPECT_NEAR(seconds_for(limiter, clock, 10000), 9.0, 0.5);
}

TEST(Rate_Limiter, APortionIsNeverNothing) {
  Fake_Clock clock;
  Rate_Limiter limiter({{0, 86399, 1}});
  EXPECT_EQ(Rate_Limiter::Transfer(limiter, 100, not_canceled).size(), 1u);
  EXPECT_NEAR(seconds_for(limiter, clock, 100), 100.0, 2.0);
}

TEST(Rate_Limiter, AfterACancelNothingPasses) {
  Fake_Clock clock;
  Rate_Limiter limiter({{0, 86399, 1}});
  const std::atomic<bool> canceled{true};
  EXPECT_EQ(Rate_Limiter::Transfer(limiter, 100, canceled).size(), 0u);
  EXPECT_EQ(errno, ECANCELED);
}

class Rate_Limited : public ::testing::Test {
 protected:
  Rate_Limited() {
    Rate_Limits limits;
    limits.dest_rate_limits = {{0, 86399, 1000}};
    limits.src_rate_limits = {{0, 86399, 4000}};
    limiters_ = std::make_shared<Rate_Limiters>(limits);
    client_ = client();
  }

  std::unique_ptr<Client_IO_Base> client() {
    return std::make_unique<Rate_Limited_Client_IO>(std::make_unique<test_support::Memory_Client_IO>(pool_), limiters_);
  }
  double elapsed() { return seconds_of(clock_.steady() - begin_); }

  Fake_Clock clock_;
  const std::chrono::nanoseconds begin_ = clock_.steady();
  const std::shared_ptr<test_support::Memory_Pool> pool_ = std::make_shared<test_support::Memory_Pool>();
  std::shared_ptr<Rate_Limiters> limiters_;
  std::unique_ptr<Client_IO_Base> client_;
};

TEST_F(Rate_Limited, WritesKeepToTheDestLimitsAndReadsToTheSrcLimits) {
  const std::string bytes(20000, 'x');
  const auto writer = client_->create("object");
  ASSERT_TRUE(writer->write(bytes.data(), bytes.size()) && writer->commit());
  EXPECT_NEAR(elapsed(), 20.0, 1.0);
  std::string back(20000, '\0');
  EXPECT_EQ(client_->open("object")->read(0, back.data(), back.size()), 20000);
  EXPECT_EQ(back, bytes);
  EXPECT_NEAR(elapsed(), 25.0, 1.5);
}

TEST_F(Rate_Limited, ClientsAndWritersShareTheLimit) {
  const std::string bytes(1000, 'x');
  const auto other = client();
  const auto one = client_->create("1");
  const auto two = client_->create("2");
  const auto three = other->create("3");
  for (int i = 0; i < 10; ++i)
    for (auto* writer : {one.get(), two.get(), three.get()}) ASSERT_TRUE(writer->write(bytes.data(), 1000));
  EXPECT_NEAR(elapsed(), 30.0, 1.5);
}

TEST_F(Rate_Limited, TheCancelOfAClientIsNoneOfAnother) {
  const auto other = client();
  const auto one = client_->create("1");
  const auto two = other->create("2");
  client_->cancel();
  EXPECT_FALSE(one->write("x", 1));
  EXPECT_EQ(errno, ECANCELED);
  EXPECT_TRUE(two->write("x", 1));
}

TEST(Rate_Limited_Client, CancelEndsAWaitThatWouldLastForHours) {
  Rate_Limits limits;
  limits.dest_rate_limits = {{0, 86400, 1}};
  Rate_Limited_Client_IO client(
      std::make_unique<test_support::Memory_Client_IO>(std::make_shared<test_support::Memory_Pool>()),
      std::make_shared<Rate_Limiters>(limits));
  const auto writer = client.create("object");
  std::thread canceler([&] { client.cancel(); });
  const std::string bytes(100000, 'x');
  EXPECT_FALSE(writer->write(bytes.data(), bytes.size()));
  EXPECT_EQ(errno, ECANCELED);
  canceler.join();
}

}  // namespace
