#include "client_io/rate_limiter.h"

#include <cerrno>

#include "client_io/rate_limited_client_io.h"
#include "json_spirit/json_spirit_value.h"
#include "support/memory_client_io.h"

namespace {

using client_io::limit_at;
using client_io::Rate_Clock;
using client_io::Rate_Limiter;
using std::chrono::nanoseconds;
using std::chrono::seconds;

/// Waiting moves this clock on and takes no time.
class Fake_Clock : public Rate_Clock {
 public:
  nanoseconds now() override { return now_; }
  unsigned second_of_day() override {
    return static_cast<unsigned>((start_ + std::chrono::duration_cast<seconds>(now_).count()) % 86400);
  }
  void wait(nanoseconds span) override {
    now_ += std::min<nanoseconds>(span, std::chrono::minutes(1));
    ++waits_;
  }
  void wake() override {}

  nanoseconds now_{0};
  int64_t start_ = 0;  // second of the day at the beginning
  int waits_ = 0;
};

double seconds_for(Rate_Limiter& limiter, Fake_Clock& clock, size_t bytes) {
  const nanoseconds begin = clock.now_;
  while (bytes > 0) {
    const size_t portion = limiter.portion(bytes);
    EXPECT_TRUE(limiter.pass(portion));
    bytes -= portion;
  }
  return std::chrono::duration<double>(clock.now_ - begin).count();
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
    Rate_Limiter limiter({{0, 86399, limit}}, clock);
    EXPECT_NEAR(seconds_for(limiter, clock, limit * 20), 20.0, 1.0) << limit;
  }
}

TEST(Rate_Limiter, WithoutALimitNothingWaits) {
  Fake_Clock clock;
  clock.start_ = 50;
  Rate_Limiter limiter({{100, 200, 10}}, clock);
  EXPECT_EQ(limiter.portion(1 << 20), size_t(1 << 20));
  EXPECT_TRUE(limiter.pass(1 << 20));
  EXPECT_EQ(clock.waits_, 0);
}

TEST(Rate_Limiter, AWindowThatBeginsOrEndsIsFeltAtOnce) {
  Fake_Clock clock;
  clock.start_ = 90;
  Rate_Limiter limiter({{100, 109, 1000}}, clock);
  EXPECT_EQ(seconds_for(limiter, clock, 1 << 20), 0.0);
  clock.now_ = seconds(10);                                      // the window begins
  EXPECT_NEAR(seconds_for(limiter, clock, 1 << 20), 10.0, 1.0);  // a megabyte takes no longer than the window lasts
}

TEST(Rate_Limiter, AWindowThatPassesMidnightHoldsOnBothSidesOfIt) {
  Rate_Limits::Entries_Type windows;
  const json_spirit::Array array{
      json_spirit::Object{{"start_time", 86390}, {"end_time", 9}, {"max_bytes_per_second", 1000}}};
  ASSERT_TRUE(array_to_rate_entries(array, windows));
  Fake_Clock clock;
  clock.start_ = 86390;
  Rate_Limiter limiter(windows, clock);
  EXPECT_NEAR(seconds_for(limiter, clock, 20000), 20.0, 1.0);  // ten seconds before and ten behind
  clock.now_ = seconds(20);
  EXPECT_EQ(seconds_for(limiter, clock, 1 << 20), 0.0);
}

TEST(Rate_Limiter, AShortTransferKeepsToTheLimitToo) {
  Fake_Clock clock;
  Rate_Limiter limiter({{0, 86399, 1000}}, clock);
  EXPECT_NEAR(seconds_for(limiter, clock, 1000), 1.0, 0.051);
}

// Every channel has a client and so a limiter of its own, and its part of the limit.
TEST(Rate_Limiter, AllChannelsTogetherHoldTheLimitWithinFivePercent) {
  for (const size_t limit : {size_t(1000), size_t(1'000'000), size_t(1'000'000'000)})
    for (const size_t channels : {size_t(1), size_t(2), size_t(7), size_t(16), size_t(64)}) {
      Rate_Limits limits;
      limits.dest_rate_limits = {{0, 86399, limit}};
      limits.set_rate_limits_by_channels(channels);
      const size_t per_channel = 20 * limit / channels;
      double longest = 0;
      for (size_t i = 0; i < channels; ++i) {
        Fake_Clock clock;
        Rate_Limiter limiter(limits.dest_rate_limits, clock);
        longest = std::max(longest, seconds_for(limiter, clock, per_channel));
      }
      EXPECT_NEAR(static_cast<double>(per_channel * channels) / longest, static_cast<double>(limit),
                  0.05 * static_cast<double>(limit))
          << limit << " over " << channels;
    }
}

TEST(Rate_Limiter, IdleTimeIsNotSavedUp) {
  Fake_Clock clock;
  Rate_Limiter limiter({{0, 86399, 1000}}, clock);
  EXPECT_TRUE(limiter.pass(100));
  clock.now_ += seconds(1000);
  EXPECT_NEAR(seconds_for(limiter, clock, 10000), 10.0, 0.5);
}

TEST(Rate_Limiter, APortionIsNeverNothing) {
  Fake_Clock clock;
  Rate_Limiter limiter({{0, 86399, 1}}, clock);
  EXPECT_EQ(limiter.portion(100), 1u);
  EXPECT_NEAR(seconds_for(limiter, clock, 100), 100.0, 2.0);
}

TEST(Rate_Limiter, AfterCancelNothingPasses) {
  Fake_Clock clock;
  Rate_Limiter limiter({{0, 86399, 1}}, clock);
  limiter.cancel();
  EXPECT_FALSE(limiter.pass(100));
  EXPECT_EQ(errno, ECANCELED);
}

class Rate_Limited : public ::testing::Test {
 protected:
  Rate_Limited() {
    Rate_Limits limits;
    limits.dest_rate_limits = {{0, 86399, 1000}};
    limits.src_rate_limits = {{0, 86399, 4000}};
    auto clock = std::make_unique<Fake_Clock>();
    clock_ = clock.get();
    client_ = std::make_unique<Rate_Limited_Client_IO>(
        std::make_unique<test_support::Memory_Client_IO>(std::make_shared<test_support::Memory_Pool>()), limits,
        std::move(clock));
  }

  double elapsed() const { return std::chrono::duration<double>(clock_->now_).count(); }

  Fake_Clock* clock_;
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

TEST_F(Rate_Limited, AllWritersOfAClientShareTheLimit) {
  const std::string bytes(1000, 'x');
  const auto one = client_->create("1");
  const auto two = client_->create("2");
  for (int i = 0; i < 10; ++i) ASSERT_TRUE(one->write(bytes.data(), 1000) && two->write(bytes.data(), 1000));
  EXPECT_NEAR(elapsed(), 20.0, 1.0);
}

TEST(Rate_Limited_Client, CancelEndsAWaitThatWouldLastForHours) {
  Rate_Limits limits;
  limits.dest_rate_limits = {{0, 86400, 1}};
  Rate_Limited_Client_IO client(
      std::make_unique<test_support::Memory_Client_IO>(std::make_shared<test_support::Memory_Pool>()), limits);
  const auto writer = client.create("object");
  std::thread canceler([&] { client.cancel(); });
  const std::string bytes(100000, 'x');
  EXPECT_FALSE(writer->write(bytes.data(), bytes.size()));
  EXPECT_EQ(errno, ECANCELED);
  canceler.join();
}

}  // namespace
