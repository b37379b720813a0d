#include "k8s/websvcs_agent/k8s_sclient/k8s_sclient_volume_event_handler.h"

#include "k8s/websvcs_agent/k8s_sclient/k8s_sclient_task_handler.h"
#include "k8s/websvcs_agent/k8s_sclient/k8s_sclient_toolkit.h"

namespace {

typedef K8S_SClient_Volume_Event_Handler Handler;

class Volume_Event_Handler : public ::testing::Test {
 protected:
  Volume_Event_Handler() { K8S_SClient_Task_Handler().open(); }
  ~Volume_Event_Handler() override {
    K8S_SClient_Task_Handler().open();
    K8S_SClient_Toolkit::instance()->remove_job_progress("job");
  }

  std::string progress() {
    const K8S_SClient_Toolkit::Progress progress = K8S_SClient_Toolkit::instance()->get_job_progress("job");
    return std::to_string(progress.speed) + " " + std::to_string(progress.total) + " " +
           std::to_string(progress.processed);
  }

  Handler handler{"job"};
};

TEST_F(Volume_Event_Handler, AsksForReportsInBytes) {
  EXPECT_EQ(MTF::PRM_FILE_SIZE, handler.progress_report_mode());
}

TEST_F(Volume_Event_Handler, WithoutATotalTheReportStandsAsItIs) {
  Handler::processed_size = 1000;
  EXPECT_EQ(0, handler.handle_progress(50, 200, 100, 7));
  EXPECT_EQ("7 200 100", progress());
}

TEST_F(Volume_Event_Handler, WithATotalTheReportCountsTheWholeJob) {
  Handler::total_size = 5000;
  EXPECT_EQ(0, handler.handle_progress(50, 200, 100, 7));
  EXPECT_EQ("7 5000 100", progress());
}

TEST_F(Volume_Event_Handler, FinishedVolumesAreAddedToTheReport) {
  Handler::total_size = 5000;
  Handler::processed_size = 1000;
  handler.handle_progress(50, 200, 100, 7);
  EXPECT_EQ("7 5000 1100", progress());
}

TEST_F(Volume_Event_Handler, EmptyJobIdReportsNothingAndIsNoError) {
  Handler nameless("");
  EXPECT_EQ(0, nameless.handle_progress(50, 200, 100, 7));
  EXPECT_EQ(0u, K8S_SClient_Toolkit::instance()->get_job_progress("").total);
}

TEST_F(Volume_Event_Handler, CancelsOnlyWhileACancelIsPending) {
  EXPECT_FALSE(handler.canceling());
  K8S_SClient_Task_Handler::instance()->set_act_state(JOB_STATE_CANCELING);
  EXPECT_TRUE(handler.canceling());
  EXPECT_TRUE(Handler("another job").canceling());
}

TEST_F(Volume_Event_Handler, OnlyTheStateOfTheProcessWideInstanceCounts) {
  K8S_SClient_Task_Handler of_a_request;
  of_a_request.set_act_state(JOB_STATE_CANCELING);
  EXPECT_FALSE(handler.canceling());
}

TEST_F(Volume_Event_Handler, NeverPauses) {
  EXPECT_FALSE(handler.pausing());
}

}  // namespace
