// The retry loop and its delays, on a clock that a test moves.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <numeric>
#include <set>
#include <string>
#include <vector>

#include "kolt/clock.h"
#include "kolt/exponential_backoff_iterator.h"
#include "kolt/retry_macros.h"
#include "support/fake_clock.h"
#include "support/log_capture.h"

namespace {

using test_support::Fake_Clock;
using test_support::Log_Capture;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

typedef std::vector<unsigned int> Delays;

Delays delays_of(Exponential_Backoff_Iterator it) {
  Delays delays;
  for (; it != Exponential_Backoff_Iterator(); ++it) delays.push_back(*it);
  return delays;
}

TEST(Exponential_Backoff, DelaysDoubleUpToTheCap) {
  EXPECT_THAT(delays_of(Exponential_Backoff_Iterator(1, 9, 60, false)), ElementsAre(1, 2, 4, 8, 16, 32, 60, 60, 60));
  EXPECT_THAT(delays_of(Exponential_Backoff_Iterator(5, 4, 20, false)), ElementsAre(5, 10, 20, 20));
}

TEST(Exponential_Backoff, FirstDelayObeysTheCapToo) {
  EXPECT_THAT(delays_of(Exponential_Backoff_Iterator(90, 2, 60, false)), ElementsAre(60, 60));
  EXPECT_THAT(delays_of(Exponential_Backoff_Iterator(9, 2, 0, true)), ElementsAre(0, 0));
}

TEST(Exponential_Backoff, DelaysDoNotOverflow) {
  const Delays delays = delays_of(Exponential_Backoff_Iterator(0x40000001, 4, 0xFFFFFFFF, false));
  EXPECT_THAT(delays, ElementsAre(0x40000001u, 0x80000002u, 0xFFFFFFFFu, 0xFFFFFFFFu));
}

TEST(Exponential_Backoff, JitterStaysBetweenHalfAndTheWhole) {
  const Delays bounds = delays_of(Exponential_Backoff_Iterator(1, 40, 60, false));
  std::set<unsigned int> seen;
  for (int run = 0; run < 200; ++run) {
    const Delays delays = delays_of(Exponential_Backoff_Iterator(1, 40, 60, true));
    ASSERT_EQ(delays.size(), bounds.size());
    for (size_t i = 0; i < delays.size(); ++i) {
      EXPECT_GE(delays[i] * 2, bounds[i]);
      EXPECT_GE(delays[i], 1u);
      EXPECT_LE(delays[i], bounds[i]);
    }
    seen.insert(delays.begin() + 6, delays.end());
  }
  EXPECT_EQ(*seen.begin(), 30u);
  EXPECT_EQ(*seen.rbegin(), 60u);
  EXPECT_THAT(seen, SizeIs(31));
}

TEST(Exponential_Backoff, JitterDoesNotShrinkTheSeries) {
  for (int run = 0; run < 100; ++run) {
    const Delays delays = delays_of(Exponential_Backoff_Iterator(1, 7, 64, true));
    EXPECT_TRUE(std::is_sorted(delays.begin(), delays.end()));
  }
}

TEST(Exponential_Backoff, CumulationCountsTheDelaysPassed) {
  Exponential_Backoff_Iterator it(1, 10, 60, false);
  EXPECT_EQ(it.cumulation(), 0u);
  ++it;
  EXPECT_EQ(it.cumulation(), 1u);
  EXPECT_EQ(*it++, 2u);
  EXPECT_EQ(it.cumulation(), 3u);
  EXPECT_EQ(*it, 4u);
}

TEST(Exponential_Backoff, CumulationIsTheSumOfWhatWasDelayedWithJitterToo) {
  Exponential_Backoff_Iterator it(1, 12, 60, true);
  unsigned int sum = 0;
  for (; !it.done(); ++it) {
    EXPECT_EQ(it.cumulation(), sum);
    sum += *it;
  }
  EXPECT_EQ(it.cumulation(), sum);
}

TEST(Exponential_Backoff, EqualsTheEndOnceItsDelaysAreSpent) {
  const Exponential_Backoff_Iterator end;
  Exponential_Backoff_Iterator it(1, 2, 60, false);
  EXPECT_FALSE(it.done());
  EXPECT_TRUE(it != end);
  ++it;
  EXPECT_FALSE(it == end);
  ++it;
  EXPECT_TRUE(it == end);
  EXPECT_TRUE(end == it);
  EXPECT_TRUE(it.done());
  EXPECT_TRUE(end.done());
  EXPECT_EQ((++it).cumulation(), 3u);  // stays where it is
}

TEST(Exponential_Backoff, NoDelaysIsTheEndAtOnce) {
  EXPECT_TRUE(Exponential_Backoff_Iterator(1, 0, 60, true) == Exponential_Backoff_Iterator());
}

TEST(Exponential_Backoff, CopiesWalkOnTheirOwn) {
  Exponential_Backoff_Iterator it(1, 5, 60, false);
  const Exponential_Backoff_Iterator first = it;
  EXPECT_TRUE(it == first);
  ++it;
  EXPECT_TRUE(it != first);
  EXPECT_EQ(*first, 1u);
}

TEST(Exponential_Backoff, ResetGoesBackToTheFirstDelay) {
  Exponential_Backoff_Iterator it(1, 3, 60, false);
  ++ ++it;
  it.reset();
  EXPECT_EQ(it.cumulation(), 0u);
  EXPECT_THAT(delays_of(it), ElementsAre(1, 2, 4));
}

TEST(Exponential_Backoff, InitMakesItAnew) {
  Exponential_Backoff_Iterator it(1, 3, 60, false);
  ++it;
  it.init(3, 2, 4, false);
  EXPECT_EQ(it.cumulation(), 0u);
  EXPECT_THAT(delays_of(it), ElementsAre(3, 4));
}

struct Outcome {
  int probes = 0;
  bool gave_up = false;
};

/// Probes until the probe of number @a good; 0: never.
Outcome retry(int times, int timeout, int good = 0) {
  Outcome outcome;
  const auto run = [&] {
    QVX_RETRY(times, timeout, ++outcome.probes, outcome.probes == good, {
      outcome.gave_up = true;
      return;
    });
  };
  run();
  return outcome;
}

unsigned int slept(const Fake_Clock& clock) {
  std::chrono::milliseconds sum{0};
  for (const auto span : clock.sleeps()) sum += span;
  return static_cast<unsigned int>(std::chrono::duration_cast<std::chrono::seconds>(sum).count());
}

TEST(Retry, SuccessAtTheFirstProbeNeitherLogsNorSleeps) {
  Fake_Clock clock;
  const Log_Capture log;
  const Outcome outcome = retry(100, 600, 1);
  EXPECT_EQ(outcome.probes, 1);
  EXPECT_FALSE(outcome.gave_up);
  EXPECT_THAT(clock.sleeps(), IsEmpty());
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(Retry, NoTimesProbesOnceAndDoesNotSleep) {
  Fake_Clock clock;
  const Outcome outcome = retry(0, 600);
  EXPECT_EQ(outcome.probes, 1);
  EXPECT_TRUE(outcome.gave_up);
  EXPECT_THAT(clock.sleeps(), IsEmpty());
}

TEST(Retry, OneTimeProbesTwiceWithOneSleepBetween) {
  Fake_Clock clock;
  const Log_Capture log;
  const Outcome outcome = retry(1, 600);
  EXPECT_EQ(outcome.probes, 2);
  EXPECT_TRUE(outcome.gave_up);
  EXPECT_THAT(clock.sleeps(), ElementsAre(std::chrono::seconds(1)));
}

TEST(Retry, EachSleepIsToldWithItsRoundAndDelay) {
  Fake_Clock clock;
  const Log_Capture log;
  const int line = __LINE__ + 1;
  QVX_RETRY(2, 600, , false, );
  const std::string at = " " __FILE__ ":" + std::to_string(line) + " at ";
  const std::string second = std::to_string(clock.sleeps().at(1).count() / 1000);
  EXPECT_THAT(log.texts(LM_INFO),
              ElementsAre("Retry(1)" + at + "1 second(s) later.\n", "Retry(2)" + at + second + " second(s) later.\n"));
  EXPECT_THAT(log.lines(), SizeIs(2));
}

TEST(Retry, SuccessInALaterRoundEndsTheLoop) {
  Fake_Clock clock;
  const Log_Capture log;
  const Outcome outcome = retry(100, 600, 4);
  EXPECT_EQ(outcome.probes, 4);
  EXPECT_FALSE(outcome.gave_up);
  EXPECT_THAT(clock.sleeps(), SizeIs(3));
}

TEST(Retry, WithoutABoundOnRoundsItGoesOnUntilTheSleepsReachTheTimeout) {
  for (int run = 0; run < 50; ++run) {
    Fake_Clock clock;
    const Log_Capture log;
    const Outcome outcome = retry(QVX_RETRY_INFINITY_TIMES, 600);
    EXPECT_TRUE(outcome.gave_up);
    EXPECT_EQ(outcome.probes, static_cast<int>(clock.sleeps().size()) + 1);
    EXPECT_GE(slept(clock), 600u);
    EXPECT_LT(slept(clock), 660u);
    EXPECT_LT(slept(clock) - clock.sleeps().back().count() / 1000, 600u);
  }
}

TEST(Retry, WithoutABoundOnSecondsItGoesOnForAllRounds) {
  Fake_Clock clock;
  const Log_Capture log;
  EXPECT_EQ(retry(100, QVX_RETRY_INFINITY_TIMEOUT).probes, 101);
  EXPECT_GT(slept(clock), 600u);
}

TEST(Retry, WithoutAnyBoundOnlySuccessEndsIt) {
  Fake_Clock clock;
  const Log_Capture log;
  const Outcome outcome = retry(-1, -1, 500);
  EXPECT_EQ(outcome.probes, 500);
  EXPECT_FALSE(outcome.gave_up);
}

TEST(Retry, ATimeoutOfNoSecondsGivesUpAfterTheFirstRound) {
  Fake_Clock clock;
  EXPECT_EQ(retry(100, 0).probes, 1);
  EXPECT_THAT(clock.sleeps(), IsEmpty());
}

TEST(Retry, ATimeoutBelowInfinityIsNoBoundSinceTheComparisonIsUnsigned) {
  Fake_Clock clock;
  const Log_Capture log;
  EXPECT_EQ(retry(50, -2).probes, 51);
}

TEST(Retry, TheBodyMayLeaveTheFunction) {
  Fake_Clock clock;
  const auto probe = []() -> int {
    QVX_RETRY(100, 600, return 7, false, return 8);
    return 9;
  };
  EXPECT_EQ(probe(), 7);
  EXPECT_THAT(clock.sleeps(), IsEmpty());
}

TEST(Clock, IsTheSystemsUnlessAnotherIsSet) {
  const time_t before = ::time(nullptr);
  EXPECT_GE(kolt::clock().now(), before);
  EXPECT_LE(kolt::clock().now(), ::time(nullptr));
  Fake_Clock fake(1000);
  EXPECT_EQ(kolt::clock().now(), 1000);
  kolt::clock().sleep(std::chrono::seconds(5));
  EXPECT_EQ(kolt::clock().now(), 1005);
}

TEST(Clock, TheSystemsReallySleeps) {
  const auto before = std::chrono::steady_clock::now();
  kolt::clock().sleep(std::chrono::milliseconds(20));
  kolt::clock().sleep(std::chrono::milliseconds(-5000));
  EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(20));
}

TEST(Clock, SettingGivesTheFormer) {
  EXPECT_EQ(kolt::set_clock(nullptr), nullptr);
  Fake_Clock fake;
  EXPECT_EQ(kolt::set_clock(nullptr), &fake);
  EXPECT_EQ(kolt::set_clock(&fake), nullptr);
}

}  // namespace
