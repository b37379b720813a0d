#include "websvcs/self_checks.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>

#include "kolt/metrics.h"
#include "support/log_capture.h"

using std::chrono::milliseconds;
using testing::HasSubstr;

namespace {

class Self_Checks_Test : public testing::Test {
 protected:
  template <typename Condition>
  static bool eventually(Condition condition) {
    for (int i = 0; i < 4000; ++i) {
      if (condition()) return true;
      std::this_thread::sleep_for(milliseconds(5));
    }
    return false;
  }

  test_support::Log_Capture log_;
};

TEST_F(Self_Checks_Test, CheckThatHasNotRunIsNotOk) {
  const Self_Checks checks({{"one", [] { return std::string(); }}}, milliseconds(1));
  const auto results = checks.results();
  ASSERT_EQ(1u, results.size());
  EXPECT_EQ("one", results[0].name);
  EXPECT_FALSE(results[0].ok);
  EXPECT_EQ("has not been looked at yet", results[0].reason);
}

TEST_F(Self_Checks_Test, ResultsStandInTheOrderOfTheChecks) {
  Self_Checks checks({{"good", [] { return std::string(); }}, {"bad", [] { return std::string("no disk"); }}},
                     milliseconds(1));
  ASSERT_EQ(0, checks.start());
  ASSERT_TRUE(eventually([&] { return checks.results()[1].reason == "no disk"; }));
  EXPECT_TRUE(checks.results()[0].ok);
  EXPECT_EQ("", checks.results()[0].reason);
  EXPECT_FALSE(checks.results()[1].ok);
  EXPECT_THAT(kolt::metrics_text(), HasSubstr("tessarin_check_ok{check=\"good\"} 1\n"));
  EXPECT_THAT(kolt::metrics_text(), HasSubstr("tessarin_check_ok{check=\"bad\"} 0\n"));
}

TEST_F(Self_Checks_Test, ChangesAreToldOnceEach) {
  std::atomic<bool> well{false};
  std::atomic<int> runs{0};
  Self_Checks checks({{"pool",
                       [&] {
                         ++runs;
                         return std::string(well ? "" : "away");
                       }}},
                     milliseconds(1));
  ASSERT_EQ(0, checks.start());
  ASSERT_TRUE(eventually([&] { return runs > 3; }));
  EXPECT_EQ(1u, log_.texts(LM_WARNING).size()) << log_.all();
  EXPECT_THAT(log_.all(), HasSubstr("The check 'pool' fails: away.\n"));
  well = true;
  ASSERT_TRUE(eventually([&] { return checks.results()[0].ok; }));
  const int then = runs;
  ASSERT_TRUE(eventually([&] { return runs > then + 3; }));
  EXPECT_EQ(1u, log_.texts(LM_WARNING).size()) << log_.all();
  EXPECT_THAT(log_.all(), HasSubstr("The check 'pool' is fine again.\n"));
}

TEST_F(Self_Checks_Test, AgeGrowsWhileACheckHangs) {
  std::atomic<bool> hang{true};
  Self_Checks checks({{"slow",
                       [&] {
                         while (hang) std::this_thread::sleep_for(milliseconds(1));
                         return std::string();
                       }}},
                     milliseconds(1));
  ASSERT_EQ(0, checks.start());
  EXPECT_TRUE(eventually([&] { return checks.age() > milliseconds(50); }));
  hang = false;
  EXPECT_TRUE(eventually([&] { return checks.results()[0].ok && checks.age() < milliseconds(50); }));
}

}  // namespace
