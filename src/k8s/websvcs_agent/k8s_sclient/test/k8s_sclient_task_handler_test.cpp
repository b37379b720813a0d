#include "k8s/websvcs_agent/k8s_sclient/k8s_sclient_task_handler.h"

#include "fake_task_manager.h"
#include "json_text.h"
#include "k8s/websvcs_agent/k8s_sclient/k8s_sclient_volume_event_handler.h"
#include "log_texts.h"

namespace {

typedef K8S_SClient_Volume_Event_Handler Totals;
using test_support::Log_Capture;

constexpr char unit[] = "k8s/websvcs_agent/k8s_sclient/k8s_sclient_task_handler.cpp";

class Execute : public ::testing::Test {
 protected:
  bool execute(const std::string& task) { return handler.execute(json_object(task), result); }

  Log_Capture log;
  K8S_SClient_Task_Handler handler;
  json_spirit::Object result;
};

TEST_F(Execute, TaskWithoutDataFails) {
  EXPECT_FALSE(execute(R"({"id":"1"})"));
  EXPECT_TRUE(is_only_check_failure(log, unit, "data is NULL:\n")) << log.all();
}

TEST_F(Execute, DataOfAnotherTypeFails) {
  EXPECT_FALSE(execute(R"({"id":"1","data":[]})"));
  EXPECT_TRUE(is_only_check_failure(log, unit, "data is NULL:\n"));
}

TEST_F(Execute, MissingTypeFails) {
  EXPECT_FALSE(execute(R"({"id":"1","type":"backup","data":{"params":{"a":1}}})"));
  EXPECT_TRUE(is_only_check_failure(log, unit, "type is NULL or empty:\n"));
}

TEST_F(Execute, EmptyTypeFails) {
  EXPECT_FALSE(execute(R"({"id":"1","data":{"type":"","params":{"a":1}}})"));
  EXPECT_TRUE(is_only_check_failure(log, unit, "type is NULL or empty:\n"));
}

TEST_F(Execute, MissingParamsFail) {
  EXPECT_FALSE(execute(R"({"id":"1","data":{"type":"backup"}})"));
  EXPECT_TRUE(is_only_check_failure(log, unit, "params is NULL or empty:\n"));
}

TEST_F(Execute, EmptyParamsFailBeforeTheJobBegins) {
  EXPECT_FALSE(execute(R"({"id":"1","data":{"type":"backup","params":{}}})"));
  EXPECT_TRUE(is_only_check_failure(log, unit, "params is NULL or empty:\n"));
  EXPECT_TRUE(log.texts(LM_DEBUG).empty());
}

TEST_F(Execute, MissingIdFails) {
  EXPECT_FALSE(execute(R"({"data":{"type":"backup","params":{"a":1}}})"));
  EXPECT_TRUE(is_only_check_failure(log, unit, "id is NULL or empty:\n"));
}

TEST_F(Execute, EmptyIdFails) {
  EXPECT_FALSE(execute(R"({"id":"","data":{"type":"backup","params":{"a":1}}})"));
  EXPECT_TRUE(is_only_check_failure(log, unit, "id is NULL or empty:\n"));
}

TEST_F(Execute, IdInsideDataIsNotTaken) {
  EXPECT_FALSE(execute(R"({"data":{"id":"1","type":"backup","params":{"a":1}}})"));
  EXPECT_TRUE(is_only_check_failure(log, unit, "id is NULL or empty:\n"));
}

TEST_F(Execute, TypeIsLookedAtBeforeParamsAndId) {
  EXPECT_FALSE(execute(R"({"data":{}})"));
  EXPECT_TRUE(is_only_check_failure(log, unit, "type is NULL or empty:\n"));
}

TEST_F(Execute, ParamsAreLookedAtBeforeTheId) {
  EXPECT_FALSE(execute(R"({"data":{"type":"other"}})"));
  EXPECT_TRUE(is_only_check_failure(log, unit, "params is NULL or empty:\n"));
}

TEST_F(Execute, UnknownTypeFails) {
  EXPECT_FALSE(execute(R"({"id":"1","data":{"type":"verify","params":{"a":1}}})"));
  EXPECT_THAT(log.texts(LM_ERROR), ::testing::ElementsAre("Unkown execute type: verify.\n"));
}

TEST_F(Execute, TypeInCapitalsIsUnknown) {
  EXPECT_FALSE(execute(R"({"id":"1","data":{"type":"Backup","params":{"a":1}}})"));
  EXPECT_THAT(log.texts(LM_ERROR), ::testing::ElementsAre("Unkown execute type: Backup.\n"));
}

TEST_F(Execute, BackupTypeRunsTheBackup) {
  EXPECT_TRUE(execute(R"({"id":"1","data":{"type":"backup","params":{"paths":[]}}})"));
  EXPECT_THAT(log.texts(LM_DEBUG), ::testing::ElementsAre("Backup task '1' start.\n"));
  EXPECT_EQ(R"({"set_size":0,"size":0,"storage_size":0})", text_of(result));
}

TEST_F(Execute, RestoreTypeRunsTheRestore) {
  EXPECT_TRUE(
      execute(R"({"id":"1","data":{"type":"restore","params":{"rules":{},"total_size":5,"node_name_hex":"6e"}}})"));
  EXPECT_THAT(log.texts(LM_DEBUG), ::testing::ElementsAre("Restore task '1' start.\n"));
  EXPECT_EQ(R"({"set_size":0,"size":5,"storage_size":0})", text_of(result));
}

TEST(Task_Handler_Of_Volumes, OpenClearsTotalsAndAPendingCancel) {
  Totals::total_size = Totals::processed_size = Totals::set_size = Totals::storage_size = 9;
  K8S_SClient_Task_Handler::instance()->set_act_state(JOB_STATE_CANCELING);
  EXPECT_TRUE(K8S_SClient_Task_Handler().open());
  EXPECT_EQ(0u, Totals::total_size + Totals::processed_size + Totals::set_size + Totals::storage_size);
  EXPECT_EQ(JOB_STATE_NONE, K8S_SClient_Task_Handler::instance()->get_act_state());
}

TEST(Task_Handler_Of_Volumes, CloseAndRemoveDoNothingWell) {
  K8S_SClient_Task_Handler handler;
  EXPECT_TRUE(handler.close());
  EXPECT_TRUE(handler.remove("any"));
}

TEST(Task_Handler_Of_Volumes, GetFillsInTheStoredTask) {
  Fake_Task_Manager::reset();
  Fake_Task_Manager::instance().stored["1"] = json_object(R"({"state":"running"})");
  json_spirit::Object task;
  EXPECT_TRUE(K8S_SClient_Task_Handler().get("1", task));
  EXPECT_EQ(R"({"state":"running"})", text_of(task));
}

TEST(Task_Handler_Of_Volumes, GetOfAnUnknownTaskIsLogged) {
  Fake_Task_Manager::reset();
  Log_Capture log;
  json_spirit::Object task;
  EXPECT_FALSE(K8S_SClient_Task_Handler().get("1", task));
  EXPECT_THAT(log.texts(LM_ERROR), ::testing::ElementsAre("Job id 1 is not found.\n"));
}

TEST(Task_Handler_Of_Volumes, ActStateBelongsToTheInstance) {
  K8S_SClient_Task_Handler first;
  K8S_SClient_Task_Handler second;
  first.set_act_state(JOB_STATE_CANCELING);
  EXPECT_EQ(JOB_STATE_CANCELING, first.get_act_state());
  EXPECT_EQ(JOB_STATE_NONE, second.get_act_state());
}

TEST(Task_Handler_Of_Volumes, ClosedInstanceIsMadeAnewWithoutACancel) {
  K8S_SClient_Task_Handler::instance()->set_act_state(JOB_STATE_CANCELING);
  K8S_SClient_Task_Handler::close_instance();
  EXPECT_EQ(JOB_STATE_NONE, K8S_SClient_Task_Handler::instance()->get_act_state());
}

}  // namespace
