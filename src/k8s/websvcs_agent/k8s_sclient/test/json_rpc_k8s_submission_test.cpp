#include "k8s/websvcs_agent/k8s_sclient/json_rpc_k8s_submission.h"

#include "failing_new.h"
#include "fake_task_manager.h"
#include "json_text.h"
#include "k8s/websvcs_agent/k8s_sclient/json_rpc_k8s_backup_handler.h"
#include "k8s/websvcs_agent/k8s_sclient/json_rpc_k8s_restore_handler.h"
#include "k8s/websvcs_agent/k8s_sclient/k8s_sclient_task_handler.h"
#include "log_texts.h"
#include "recorded_channel.h"

namespace {

using test_support::Log_Capture;

class Submission : public ::testing::TestWithParam<std::string> {
 protected:
  Submission() {
    Fake_Task_Manager::reset();
    if (GetParam() == "backup")
      handler.reset(new JSON_RPC_K8S_Backup_Handler);
    else
      handler.reset(new JSON_RPC_K8S_Restore_Handler);
  }

  int submit(const std::string& params) { return submit(Requester::request(json(params))); }
  int submit(JSON_RPC_Object_var object) { return handler->handle_object(requester.ptr(), object); }

  Log_Capture log;
  Requester requester;
  std::unique_ptr<JSON_RPC_Handler> handler;
  Fake_Task_Manager& tasks = Fake_Task_Manager::instance();
};

INSTANTIATE_TEST_SUITE_P(Each, Submission, ::testing::Values("backup", "restore"),
                         [](const auto& info) { return info.param; });

TEST_P(Submission, AnswersWithTheTaskId) {
  tasks.next_id = "id-5";
  EXPECT_EQ(requester.channel().send_result, submit(R"({"a":1})"));
  EXPECT_EQ("\"id-5\"", requester.result());
  EXPECT_EQ("", log.all());
}

TEST_P(Submission, TaskDocumentHoldsTypeAndParamsUntouched) {
  submit(R"({"paths":[1,{"b":null}],"seq":-3})");
  ASSERT_EQ(1u, tasks.submitted.size());
  EXPECT_EQ(text_of(json(R"({"type":"k8s sclient task","data":{"type":")" + GetParam() +
                         R"(","params":{"paths":[1,{"b":null}],"seq":-3}}})")),
            text_of(tasks.submitted[0]));
}

TEST_P(Submission, EmptyParamsAreTaken) {
  submit("{}");
  EXPECT_EQ("\"task-1\"", requester.result());
}

TEST_P(Submission, RegistersATaskHandlerBeforeItSubmits) {
  size_t registered_before = 0;
  tasks.on_submit = [&] { registered_before = tasks.registered.size(); };
  submit("{}");
  EXPECT_EQ(1u, registered_before);
  EXPECT_EQ("k8s sclient task", tasks.registered[0].first);
  EXPECT_NE(nullptr, dynamic_cast<K8S_SClient_Task_Handler*>(tasks.registered[0].second.get()));
}

TEST_P(Submission, EveryRequestRegistersATaskHandlerOfItsOwn) {
  submit("{}");
  submit("{}");
  ASSERT_EQ(2u, tasks.registered.size());
  EXPECT_NE(tasks.registered[0].second, tasks.registered[1].second);
  EXPECT_NE(K8S_SClient_Task_Handler::instance(), tasks.registered[1].second.get());
  EXPECT_EQ(2u, tasks.submitted.size());
}

TEST_P(Submission, GoneRequesterIsLoggedAndNothingIsSubmitted) {
  requester.go_away();
  EXPECT_EQ(-1, submit("{}"));
  EXPECT_THAT(log.texts(LM_ERROR), ::testing::ElementsAre("Abort handling JSON-RPC request, requester has gone.\n"));
  EXPECT_TRUE(tasks.registered.empty());
  EXPECT_TRUE(tasks.submitted.empty());
}

TEST_P(Submission, ResponseInPlaceOfARequestIsRefused) {
  EXPECT_EQ(-1, submit(JSON_RPC_Object_var(new JSON_RPC_Response(nullptr))));
  EXPECT_TRUE(is_only_check_failure(log, "k8s/websvcs_agent/k8s_sclient/json_rpc_k8s_submission.cpp",
                                    "obj is not JSON-RPC request!\n"));
  EXPECT_TRUE(requester.got_nothing());
  EXPECT_TRUE(tasks.submitted.empty());
}

TEST_P(Submission, NotificationIsNoRequest) {
  EXPECT_EQ(-1, submit(JSON_RPC_Object_var(new JSON_RPC_Notify)));
  EXPECT_TRUE(is_only_check_failure(log, "k8s/websvcs_agent/k8s_sclient/json_rpc_k8s_submission.cpp",
                                    "obj is not JSON-RPC request!\n"));
}

TEST_P(Submission, EmptyObjectIsNoRequest) {
  EXPECT_EQ(-1, submit(JSON_RPC_Object_var()));
  EXPECT_EQ(1u, log.texts(LM_EMERGENCY).size());
}

TEST_P(Submission, ParamsThatAreNoObjectAreInvalid) {
  EXPECT_EQ(requester.channel().send_error_result, submit("[{}]"));
  EXPECT_EQ("-32602 Invalid params: params type must be object.", requester.error());
  EXPECT_EQ("", log.all());
  EXPECT_TRUE(tasks.registered.empty());
  EXPECT_TRUE(tasks.submitted.empty());
}

TEST_P(Submission, AbsentParamsAreInvalid) {
  submit("null");
  EXPECT_EQ("-32602 Invalid params: params type must be object.", requester.error());
}

TEST_P(Submission, RefusedRegistrationIsAnsweredAndNothingIsSubmitted) {
  tasks.registers = false;
  EXPECT_EQ(requester.channel().send_error_result, submit("{}"));
  EXPECT_EQ("-32602 Failed to register " + GetParam() + " handler.\n", requester.error());
  EXPECT_EQ("", log.all());
  EXPECT_TRUE(tasks.submitted.empty());
}

TEST_P(Submission, WithoutMemoryForTheTaskHandlerAnEmptyOneIsRegistered) {
  const Failing_New no_memory(sizeof(K8S_SClient_Task_Handler));
  errno = 0;
  submit("{}");
  EXPECT_EQ(ENOMEM, errno);
  EXPECT_EQ(1, no_memory.count());
  ASSERT_EQ(1u, tasks.registered.size());
  EXPECT_EQ(nullptr, tasks.registered[0].second);
  EXPECT_EQ("\"task-1\"", requester.result());
}

TEST_P(Submission, WithoutMemoryForTheResponseTheTaskStaysSubmitted) {
  const Failing_New no_memory(sizeof(JSON_RPC_Response));
  errno = 0;
  EXPECT_EQ(requester.channel().send_error_result, submit("{}"));
  EXPECT_EQ(ENOMEM, errno);
  EXPECT_EQ("-32603 Internal error, out of memory.", requester.error());
  EXPECT_EQ("", log.all());
  EXPECT_EQ(1u, tasks.submitted.size());
}

TEST_P(Submission, ResultOfTheSubmissionIsNotTested) {
  tasks.submits = false;
  EXPECT_EQ(requester.channel().send_result, submit("{}"));
  EXPECT_EQ("\"\"", requester.result());
}

TEST_P(Submission, ExceptionOfTheTaskManagerPassesThrough) {
  tasks.on_submit = [] { throw std::runtime_error("broken"); };
  EXPECT_THROW(submit("{}"), std::runtime_error);
}

TEST_P(Submission, EntryOfTheAgentReachesTheHandler) {
  EXPECT_EQ(requester.channel().send_result, handler->handle(requester.ptr(), Requester::request(json("{}"))));
  EXPECT_EQ("\"task-1\"", requester.result());
}

}  // namespace
