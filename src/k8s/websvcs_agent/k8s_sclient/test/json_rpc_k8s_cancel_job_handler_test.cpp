#include "k8s/websvcs_agent/k8s_sclient/json_rpc_k8s_cancel_job_handler.h"

#include "failing_new.h"
#include "json_rpc/json_rpc_thread_pool.h"
#include "json_text.h"
#include "k8s/websvcs_agent/k8s_sclient/k8s_sclient_task_handler.h"
#include "k8s/websvcs_agent/k8s_sclient/k8s_sclient_volume_event_handler.h"
#include "recorded_channel.h"
#include "support/log_capture.h"

namespace {

using test_support::Log_Capture;

class Cancel_Job_Handler : public ::testing::Test {
 protected:
  Cancel_Job_Handler() { K8S_SClient_Task_Handler::instance()->set_act_state(JOB_STATE_NONE); }
  ~Cancel_Job_Handler() override {
    JSON_RPC_Thread_Pool::close_instance();
    K8S_SClient_Task_Handler::instance()->set_act_state(JOB_STATE_NONE);
  }

  int cancel(JSON_RPC_Channel* channel, const std::string& params = "{}") {
    JSON_RPC_Request request;
    request.id(json_spirit::Value(7));
    request.params() = json(params);
    return handler.handle_request(channel, request);
  }
  bool is_pending() { return K8S_SClient_Volume_Event_Handler("any").canceling(); }

  Log_Capture log;
  Requester requester;
  JSON_RPC_K8S_Cancel_Job_Handler handler;
};

TEST_F(Cancel_Job_Handler, RecordsTheCancelAndAnswersTrue) {
  EXPECT_EQ(requester.channel().send_result, cancel(&requester.channel()));
  EXPECT_EQ(R"({"state":true})", requester.result());
  EXPECT_TRUE(is_pending());
  EXPECT_EQ("", log.all());
}

class Cancel_Params : public Cancel_Job_Handler, public ::testing::WithParamInterface<const char*> {};

INSTANTIATE_TEST_SUITE_P(Each, Cancel_Params, ::testing::Values("null", "{}", "[1]", "\"text\"", "true", "1.5"));

TEST_P(Cancel_Params, AreNotLookedAt) {
  cancel(&requester.channel(), GetParam());
  EXPECT_EQ(R"({"state":true})", requester.result());
}

TEST_F(Cancel_Job_Handler, TwoCancelsAreTheSameAsOne) {
  cancel(&requester.channel());
  Requester second;
  cancel(&second.channel());
  EXPECT_EQ(R"({"state":true})", second.result());
  EXPECT_TRUE(is_pending());
}

TEST_F(Cancel_Job_Handler, CancelJustBeforeAJobIsWiped) {
  cancel(&requester.channel());
  K8S_SClient_Task_Handler().open();
  EXPECT_FALSE(is_pending());
}

TEST_F(Cancel_Job_Handler, GoneRequesterIsLoggedAndTheCancelIsNotRecorded) {
  EXPECT_EQ(-1, cancel(nullptr));
  EXPECT_THAT(log.texts(LM_ERROR), ::testing::ElementsAre("Abort handling JSON-RPC request, requester has gone.\n"));
  EXPECT_FALSE(is_pending());
}

TEST_F(Cancel_Job_Handler, WithoutMemoryForTheResponseTheCancelStands) {
  const Failing_New no_memory(sizeof(JSON_RPC_Response));
  errno = 0;
  EXPECT_EQ(requester.channel().send_error_result, cancel(&requester.channel()));
  EXPECT_EQ(ENOMEM, errno);
  EXPECT_EQ("-32603 Internal error, out of memory.", requester.error());
  EXPECT_TRUE(is_pending());
}

TEST_F(Cancel_Job_Handler, RunsOnAWorkerOfThePool) {
  ASSERT_EQ(0, JSON_RPC_Thread_Pool::instance()->open("test", 1, 10, 0, 0));
  EXPECT_EQ(0, handler.handle(requester.ptr(), Requester::request(json("{}"))));
  JSON_RPC_Thread_Pool::instance()->close();
  EXPECT_EQ(R"({"state":true})", requester.result());
  EXPECT_TRUE(is_pending());
}

TEST_F(Cancel_Job_Handler, PoolWithoutWorkersLosesTheRequest) {
  ASSERT_EQ(0, JSON_RPC_Thread_Pool::instance()->open("test", 0, 10, 0, 0));
  EXPECT_EQ(0, handler.handle(requester.ptr(), Requester::request(json("{}"))));
  const std::vector<std::string> errors = log.texts(LM_ERROR);
  ASSERT_EQ(2u, errors.size()) << log.all();
  EXPECT_EQ("No active worker thread!\n", errors[0]);
  EXPECT_THAT(errors[1], ::testing::StartsWith("Failed to schedule handling of JSON-RPC {"));
  EXPECT_THAT(errors[1], ::testing::EndsWith(" into thread pool queue.\n"));
  EXPECT_TRUE(requester.got_nothing());
  EXPECT_FALSE(is_pending());
}

TEST_F(Cancel_Job_Handler, RequesterThatWentBeforeQueueingIsFoundGoneByTheWorker) {
  ASSERT_EQ(0, JSON_RPC_Thread_Pool::instance()->open("test", 1, 10, 0, 0));
  requester.go_away();
  EXPECT_EQ(0, handler.handle(requester.ptr(), Requester::request(json("{}"))));
  JSON_RPC_Thread_Pool::instance()->close();
  EXPECT_THAT(log.texts(LM_ERROR), ::testing::ElementsAre("Abort handling JSON-RPC request, requester has gone.\n"));
  EXPECT_FALSE(is_pending());
}

}  // namespace
