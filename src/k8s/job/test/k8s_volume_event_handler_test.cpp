#include "k8s/job/k8s_volume_event_handler.h"

namespace {

class K8sVolumeEventHandler : public ::testing::Test {
 protected:
  K8S_Progress progress_;
  Job_Activity act_{};
  K8S_Volume_Event_Handler handler_{progress_, act_};
};

TEST_F(K8sVolumeEventHandler, StoresTheFiguresAndAnswers0) {
  EXPECT_EQ(handler_.handle_progress(50, 1000, 500, 7), 0);
  EXPECT_EQ(progress_.total, 1000u);
  EXPECT_EQ(progress_.processed, 500u);
  EXPECT_EQ(progress_.speed, 7u);
}

TEST_F(K8sVolumeEventHandler, IsCancelingOnlyInThatState) {
  for (int state = JOB_STATE_NONE; state <= JOB_STATE_OPENING; ++state) {
    act_.state = static_cast<Job_State>(state);
    EXPECT_EQ(handler_.canceling(), state == JOB_STATE_CANCELING) << state;
  }
}

TEST_F(K8sVolumeEventHandler, ReportsBytes) {
  EXPECT_EQ(handler_.progress_report_mode(), MTF::PRM_FILE_SIZE);
}

TEST_F(K8sVolumeEventHandler, KeepsTheBaseBehaviourOfTheRest) {
  EXPECT_FALSE(handler_.pausing());
  EXPECT_EQ(handler_.notify_event(1, "text"), 0);
}

TEST(K8sProgress, HasItsMembersInOrder) {
  const K8S_Progress progress{1, 2, 3};
  EXPECT_EQ(progress.speed, 1u);
  EXPECT_EQ(progress.total, 2u);
  EXPECT_EQ(progress.processed, 3u);
}

}  // namespace
