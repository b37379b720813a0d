#include "k8s/websvcs_agent/k8s_sclient/k8s_sclient_toolkit.h"

#include "support/log_capture.h"

namespace {

class Toolkit : public ::testing::Test {
 protected:
  static std::string text_of(const K8S_SClient_Toolkit::Progress& progress) {
    return std::to_string(progress.speed) + " " + std::to_string(progress.total) + " " +
           std::to_string(progress.processed);
  }
  std::string progress_of(const std::string& id) { return text_of(toolkit.get_job_progress(id)); }

  K8S_SClient_Toolkit toolkit;
};

TEST_F(Toolkit, UnknownJobHasThreeZeros) {
  EXPECT_EQ("0 0 0", progress_of("job"));
}

TEST_F(Toolkit, ProgressIsKeptPerJob) {
  EXPECT_TRUE(toolkit.set_job_progress("a", 1, 2, 3));
  EXPECT_TRUE(toolkit.set_job_progress("b", 4, 5, 6));
  EXPECT_EQ("1 2 3", progress_of("a"));
  EXPECT_EQ("4 5 6", progress_of("b"));
}

TEST_F(Toolkit, LaterProgressReplacesTheEarlier) {
  toolkit.set_job_progress("a", 1, 2, 3);
  EXPECT_TRUE(toolkit.set_job_progress("a", 0, 9, 9));
  EXPECT_EQ("0 9 9", progress_of("a"));
}

TEST_F(Toolkit, EmptyIdStoresNothing) {
  test_support::Log_Capture log;
  EXPECT_FALSE(toolkit.set_job_progress("", 1, 2, 3));
  EXPECT_EQ("0 0 0", progress_of(""));
  EXPECT_EQ("", log.all());
}

TEST_F(Toolkit, RemovedJobIsUnknown) {
  toolkit.set_job_progress("a", 1, 2, 3);
  toolkit.remove_job_progress("a");
  EXPECT_EQ("0 0 0", progress_of("a"));
}

TEST_F(Toolkit, RemovingAnUnknownJobLeavesTheOthers) {
  toolkit.set_job_progress("a", 1, 2, 3);
  toolkit.remove_job_progress("b");
  EXPECT_EQ("1 2 3", progress_of("a"));
}

TEST_F(Toolkit, ReadersNeverSeeHalfAnEntry) {
  constexpr ACE_UINT64 rounds = 2000;
  toolkit.set_job_progress("a", 0, 0, 0);
  std::thread writer([&] {
    for (ACE_UINT64 i = 1; i <= rounds; ++i) toolkit.set_job_progress("a", i, i, i);
  });
  std::thread other([&] {
    for (ACE_UINT64 i = 1; i <= rounds; ++i) {
      toolkit.set_job_progress("b" + std::to_string(i % 10), i, i, i);
      toolkit.remove_job_progress("b" + std::to_string((i + 5) % 10));
    }
  });
  bool whole = true;
  K8S_SClient_Toolkit::Progress seen = {0, 0, 0};
  while (seen.speed < rounds) {
    seen = toolkit.get_job_progress("a");
    whole = whole && seen.speed == seen.total && seen.speed == seen.processed;
  }
  writer.join();
  other.join();
  EXPECT_TRUE(whole);
}

TEST(Toolkit_Instance, StaysTheSameUntilItIsClosed) {
  K8S_SClient_Toolkit::instance()->set_job_progress("job", 1, 2, 3);
  EXPECT_EQ(2u, K8S_SClient_Toolkit::instance()->get_job_progress("job").total);
  K8S_SClient_Toolkit::close_instance();
  EXPECT_EQ(0u, K8S_SClient_Toolkit::instance()->get_job_progress("job").total);
}

}  // namespace
