#include "k8s/websvcs_agent/k8s_sclient/json_rpc_k8s_process_handler.h"

#include "failing_new.h"
#include "fake_task_manager.h"
#include "json_text.h"
#include "k8s/websvcs_agent/k8s_sclient/k8s_sclient_toolkit.h"
#include "log_texts.h"
#include "recorded_channel.h"

namespace {

using test_support::Log_Capture;

class Process_Handler : public ::testing::Test {
 protected:
  Process_Handler() {
    Fake_Task_Manager::reset();
    toolkit.remove_job_progress("job");
  }
  ~Process_Handler() override { toolkit.remove_job_progress("job"); }

  void store(const std::string& task) { tasks.stored["job"] = json_object(task); }
  int poll(const std::string& params = R"({"job_id":"job"})") { return poll(Requester::request(json(params))); }
  int poll(JSON_RPC_Object_var object) { return handler.handle_object(requester.ptr(), object); }
  bool has_progress() { return toolkit.get_job_progress("job").total != 0; }

  Log_Capture log;
  Requester requester;
  JSON_RPC_K8S_Process_Handler handler;
  Fake_Task_Manager& tasks = Fake_Task_Manager::instance();
  K8S_SClient_Toolkit& toolkit = *K8S_SClient_Toolkit::instance();
};

constexpr char completed[] = R"({"state":"completed","result":{"size":100,"set_size":90,"storage_size":30}})";

TEST_F(Process_Handler, PollBeforeTheFirstReportGivesTheStateAndZeros) {
  store(R"({"state":"queued"})");
  EXPECT_EQ(requester.channel().send_result, poll());
  EXPECT_EQ(text_of(json(R"({"state":"queued","speed":0,"total":0,"processed":0})")), requester.result());
  EXPECT_EQ("", log.all());
}

TEST_F(Process_Handler, PollOfARunningJobGivesItsProgress) {
  store(R"({"state":"running"})");
  toolkit.set_job_progress("job", 5, 1000, 400);
  poll();
  EXPECT_EQ(text_of(json(R"({"state":"running","speed":5,"total":1000,"processed":400})")), requester.result());
  EXPECT_TRUE(has_progress());
}

TEST_F(Process_Handler, FailedJobGivesItsProgressAndKeepsIt) {
  store(R"({"state":"failed","result":{}})");
  toolkit.set_job_progress("job", 5, 1000, 400);
  poll();
  EXPECT_EQ(text_of(json(R"({"state":"failed","speed":5,"total":1000,"processed":400})")), requester.result());
  EXPECT_TRUE(has_progress());
}

TEST_F(Process_Handler, CompletedJobGivesItsSizesAndLosesItsProgress) {
  store(completed);
  toolkit.set_job_progress("job", 5, 100, 100);
  poll();
  EXPECT_EQ(text_of(json(R"({"state":"completed","speed":5,"total":100,"processed":100,
                             "size":100,"set_size":90,"storage_size":30})")),
            requester.result());
  EXPECT_FALSE(has_progress());
}

TEST_F(Process_Handler, MoreProgressThanTheSizeStands) {
  store(completed);
  toolkit.set_job_progress("job", 5, 150, 120);
  poll();
  EXPECT_EQ(text_of(json(R"({"state":"completed","speed":5,"total":150,"processed":120,
                             "size":100,"set_size":90,"storage_size":30})")),
            requester.result());
}

TEST_F(Process_Handler, ProcessedIsRaisedToTheSizeAndNotToTheSetSize) {
  store(completed);
  toolkit.set_job_progress("job", 5, 150, 95);
  poll();
  EXPECT_EQ(text_of(json(R"({"state":"completed","speed":5,"total":150,"processed":100,
                             "size":100,"set_size":90,"storage_size":30})")),
            requester.result());
}

TEST_F(Process_Handler, SecondPollAfterCompletionAnswersTheSameSizesWithoutSpeed) {
  store(completed);
  toolkit.set_job_progress("job", 5, 150, 120);
  poll();
  Requester second;
  handler.handle_object(second.ptr(), Requester::request(json(R"({"job_id":"job"})")));
  EXPECT_EQ(text_of(json(R"({"state":"completed","speed":0,"total":100,"processed":100,
                             "size":100,"set_size":90,"storage_size":30})")),
            second.result());
}

TEST_F(Process_Handler, CompletedRestoreHasNoStorageSize) {
  store(R"({"state":"completed","result":{"size":8,"set_size":8,"storage_size":0}})");
  poll();
  EXPECT_EQ(text_of(json(R"({"state":"completed","speed":0,"total":8,"processed":8,
                             "size":8,"set_size":8,"storage_size":0})")),
            requester.result());
}

TEST_F(Process_Handler, SizesBeyondSignedNumbersStand) {
  store(R"({"state":"completed","result":{"size":18446744073709551615,"set_size":1,"storage_size":1}})");
  poll();
  EXPECT_EQ(text_of(json(R"({"state":"completed","speed":0,"total":18446744073709551615,
                             "processed":18446744073709551615,"size":18446744073709551615,
                             "set_size":1,"storage_size":1})")),
            requester.result());
}

TEST_F(Process_Handler, GoneRequesterIsLogged) {
  requester.go_away();
  EXPECT_EQ(-1, poll());
  EXPECT_THAT(log.texts(LM_ERROR), ::testing::ElementsAre("Abort handling JSON-RPC request, requester has gone.\n"));
}

TEST_F(Process_Handler, MessageThatIsNoRequestIsRefused) {
  EXPECT_EQ(-1, poll(JSON_RPC_Object_var(new JSON_RPC_Response(nullptr))));
  EXPECT_TRUE(is_only_check_failure(log, "k8s/websvcs_agent/k8s_sclient/json_rpc_k8s_process_handler.cpp",
                                    "obj is not JSON-RPC request!\n"));
  EXPECT_TRUE(requester.got_nothing());
}

TEST_F(Process_Handler, WithoutMemoryForTheResponseNothingElseIsLookedAt) {
  const Failing_New no_memory(sizeof(JSON_RPC_Response));
  errno = 0;
  EXPECT_EQ(requester.channel().send_error_result, poll("[]"));
  EXPECT_EQ(ENOMEM, errno);
  EXPECT_EQ("-32603 Internal error, out of memory.", requester.error());
}

TEST_F(Process_Handler, ParamsThatAreNoObjectAreInvalid) {
  EXPECT_EQ(requester.channel().send_error_result, poll("\"job\""));
  EXPECT_EQ("-32602 Invalid params: params type must be object.", requester.error());
}

TEST_F(Process_Handler, MissingJobIdIsInvalid) {
  EXPECT_EQ(requester.channel().send_error_result, poll("{}"));
  EXPECT_EQ("-32602 Invalid params: 'job_id' is expected as string in params.", requester.error());
}

TEST_F(Process_Handler, JobIdOfAnotherTypeIsInvalid) {
  poll(R"({"job_id":1})");
  EXPECT_EQ("-32602 Invalid params: 'job_id' is expected as string in params.", requester.error());
}

TEST_F(Process_Handler, UnknownJobIsLoggedAndAnswered) {
  EXPECT_EQ(requester.channel().send_error_result, poll(R"({"job_id":"other"})"));
  EXPECT_EQ("-32603 Failed to get task for other.", requester.error());
  EXPECT_THAT(log.texts(LM_ERROR), ::testing::ElementsAre("Job id other is not found.\n"));
}

TEST_F(Process_Handler, LongUnknownJobIdIsNotCut) {
  const std::string id(1000, 'x');
  poll(R"({"job_id":")" + id + "\"}");
  EXPECT_EQ("-32603 Failed to get task for " + id + ".", requester.error());
}

TEST_F(Process_Handler, TaskWithoutAStateIsToldAsInvalidParams) {
  store(R"({"state":3})");
  EXPECT_EQ(requester.channel().send_error_result, poll());
  EXPECT_EQ("-32602 Invalid params: 'state' is expected as string in params.", requester.error());
}

TEST_F(Process_Handler, CompletedTaskWithoutAResultHasLostItsProgress) {
  store(R"({"state":"completed","result":[]})");
  toolkit.set_job_progress("job", 5, 100, 100);
  EXPECT_EQ(requester.channel().send_error_result, poll());
  EXPECT_EQ("-32602 Invalid params: 'result' is expected as object in params.", requester.error());
  EXPECT_FALSE(has_progress());
}

class Missing_Size : public Process_Handler, public ::testing::WithParamInterface<std::string> {};

INSTANTIATE_TEST_SUITE_P(Each, Missing_Size, ::testing::Values("size", "set_size", "storage_size"),
                         [](const auto& info) { return info.param; });

TEST_P(Missing_Size, IsToldAndTheProgressIsGone) {
  store(completed);
  tasks.stored["job"]["result"].get_obj().erase(GetParam());
  toolkit.set_job_progress("job", 5, 100, 100);
  EXPECT_EQ(requester.channel().send_error_result, poll());
  EXPECT_THAT(requester.error(), ::testing::StartsWith("-32602 Failed to extract size information, err "));
  EXPECT_THAT(requester.error(), ::testing::EndsWith(".\n"));
  EXPECT_FALSE(has_progress());
}

}  // namespace
