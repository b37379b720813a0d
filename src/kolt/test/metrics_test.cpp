#include "kolt/metrics.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "support/log_capture.h"

using testing::HasSubstr;
using testing::Not;

namespace {

TEST(Metrics_Test, CounterIsThereBeforeItsFirstEvent) {
  const kolt::Counter events("test_events_total", "Events of the test.");
  EXPECT_THAT(kolt::metrics_text(),
              HasSubstr("# HELP test_events_total Events of the test.\n# TYPE test_events_total counter\n"
                        "test_events_total 0\n"));
  events.add();
  events.add(2);
  EXPECT_THAT(kolt::metrics_text(), HasSubstr("\ntest_events_total 3\n"));
}

TEST(Metrics_Test, CounterNeverGoesDown) {
  const kolt::Counter rising("test_rising_total", "Help.");
  rising.add(2);
  rising.add(-1);
  EXPECT_THAT(kolt::metrics_text(), HasSubstr("\ntest_rising_total 2\n"));
}

TEST(Metrics_Test, SameNameAndLabelsAreOneSeries) {
  kolt::Counter("test_one_total", "Help.", {{"kind", "a"}}).add();
  kolt::Counter("test_one_total", "Help.", {{"kind", "a"}}).add();
  kolt::Counter("test_one_total", "Help.", {{"kind", "b"}}).add();
  const std::string text = kolt::metrics_text();
  EXPECT_THAT(text, HasSubstr("test_one_total{kind=\"a\"} 2\n"));
  EXPECT_THAT(text, HasSubstr("test_one_total{kind=\"b\"} 1\n"));
}

TEST(Metrics_Test, GaugeGoesUpAndDown) {
  const kolt::Gauge level("test_level", "Help.");
  level.set(5);
  level.add(-2);
  EXPECT_THAT(kolt::metrics_text(), HasSubstr("\ntest_level 3\n"));
}

TEST(Metrics_Test, HistogramCountsIntoAllBucketsThatHoldTheValue) {
  const kolt::Histogram seconds("test_seconds", "Help.", {{"operation", "read"}}, {0.1, 1});
  seconds.observe(0.5);
  const std::string text = kolt::metrics_text();
  EXPECT_THAT(text, HasSubstr("test_seconds_bucket{operation=\"read\",le=\"0.1\"} 0\n"));
  EXPECT_THAT(text, HasSubstr("test_seconds_bucket{operation=\"read\",le=\"1\"} 1\n"));
  EXPECT_THAT(text, HasSubstr("test_seconds_bucket{operation=\"read\",le=\"+Inf\"} 1\n"));
  EXPECT_THAT(text, HasSubstr("test_seconds_sum{operation=\"read\"} 0.5\n"));
}

TEST(Metrics_Test, LabelsAreEscaped) {
  kolt::Counter("test_escaped_total", "Help.", {{"kind", "a\"b\\c\nd"}}).add();
  EXPECT_THAT(kolt::metrics_text(), HasSubstr("test_escaped_total{kind=\"a\\\"b\\\\c\\nd\"} 1\n"));
}

TEST(Metrics_Test, NameOfAnotherTypeIsToldAndNotCounted) {
  test_support::Log_Capture log;
  const kolt::Counter first("test_claimed_total", "Help.");
  const kolt::Gauge second("test_claimed_total", "Help.");
  second.set(7);
  EXPECT_THAT(log.all(), HasSubstr("'test_claimed_total' is not counted: "));
  EXPECT_THAT(kolt::metrics_text(), Not(HasSubstr("test_claimed_total 7")));
}

TEST(Metrics_Test, ThreadsCountTogether) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([] {
      for (int n = 0; n < 1000; ++n) kolt::Counter("test_together_total", "Help.").add();
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_THAT(kolt::metrics_text(), HasSubstr("\ntest_together_total 4000\n"));
}

}  // namespace
