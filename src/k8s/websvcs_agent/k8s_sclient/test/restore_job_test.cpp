#include "fake_data_mover.h"
#include "json_text.h"
#include "k8s/websvcs_agent/k8s_sclient/k8s_sclient_task_handler.h"
#include "k8s/websvcs_agent/k8s_sclient/k8s_sclient_toolkit.h"
#include "k8s/websvcs_agent/k8s_sclient/k8s_sclient_volume_event_handler.h"
#include "log_texts.h"
#include "support/temp_dir.h"

namespace {

namespace fs = std::filesystem;
typedef K8S_SClient_Volume_Event_Handler Totals;
using test_support::Log_Capture;

class Restore_Job : public ::testing::Test {
 protected:
  Restore_Job() {
    Fake_Data_Mover::reset();
    for (const char* name : {"new-a", "new-b", "new-b2"}) fs::create_directory(dir / name);
  }
  ~Restore_Job() override { K8S_SClient_Toolkit::instance()->remove_job_progress("job"); }

  bool restore(const std::string& rules, const std::string& total_size = "500") {
    return handler.restore(params(rules, total_size), "job", result);
  }
  static json_spirit::Object params(const std::string& rules, const std::string& total_size = "500") {
    return json_object(R"({
      "rules": )" + rules +
                       R"(, "total_size": )" + total_size + R"(, "node_name_hex": "6e6f6465",
      "minor_resource_id": "R", "pool_uuid": "P", "host_uuid": "H", "seq": 8, "incarnation": 0, "channel_num": 4,
      "concurrent": 6, "access_key": "secret", "pool_info": {"url": "file:///pool"}, "max_seconds_retry": 77,
      "resumption_buffer_size": 4096})");
  }
  std::string two_rules() const {
    return R"({"/data/vol-b":")" + (dir / "new-b*") + R"(","/data/vol-a":")" + (dir / "new-a") + "\"}";
  }
  std::string converted(size_t run, const std::string& path) {
    std::string target = "none";
    mover.restores.at(run).settings.path_converter->convert(path, target);
    return target;
  }

  Log_Capture log;
  test_support::Temp_Dir dir;
  Fake_Data_Mover& mover = Fake_Data_Mover::instance();
  K8S_SClient_Task_Handler handler;
  json_spirit::Object result;
};

TEST_F(Restore_Job, RunsOncePerRuleInOrderOfTheKeysUnderTheirLastComponent) {
  ASSERT_TRUE(restore(two_rules()));
  ASSERT_EQ(2u, mover.restores.size());
  EXPECT_EQ("vol-a", mover.restores[0].name);
  EXPECT_EQ("vol-b", mover.restores[1].name);
  EXPECT_THAT(log.texts(LM_DEBUG), ::testing::ElementsAre("Restore task 'job' start.\n"));
}

TEST_F(Restore_Job, EveryRunGetsTheWholeSelection) {
  restore(two_rules());
  ASSERT_EQ(2u, mover.restores.size());
  for (const Fake_Data_Mover::Restore& run : mover.restores)
    EXPECT_EQ(R"([{"dir":"/data/vol-a"},{"dir":"/data/vol-b"}])", text_of(run.selection));
}

TEST_F(Restore_Job, EveryRunGetsAllRulesWithTheFirstMatchOfEach) {
  restore(two_rules());
  for (size_t run : {0, 1}) {
    EXPECT_EQ(dir / "new-a/x", converted(run, "/data/vol-a/x"));
    EXPECT_EQ(dir / "new-b/x", converted(run, "/data/vol-b/x"));
  }
}

TEST_F(Restore_Job, ResultHoldsTheRequestedSizeAndTheTotals) {
  mover.runs.push_back({.size = 100, .set_size = 90});
  mover.runs.push_back({.size = 200, .set_size = 180});
  ASSERT_TRUE(restore(two_rules()));
  EXPECT_EQ(text_of(json(R"({"size":500,"set_size":270,"storage_size":0})")), text_of(result));
}

TEST_F(Restore_Job, ProgressRunsOverTheWholeJob) {
  std::vector<std::string> reports;
  const auto report = [&](MTF::Event_Handler& events) {
    events.handle_progress(50, 999, 50, 7);
    const K8S_SClient_Toolkit::Progress progress = K8S_SClient_Toolkit::instance()->get_job_progress("job");
    reports.push_back(std::to_string(progress.processed) + " of " + std::to_string(progress.total));
  };
  mover.runs.push_back({.size = 100, .during = report});
  mover.runs.push_back({.size = 200, .during = report});
  restore(two_rules());
  EXPECT_THAT(reports, ::testing::ElementsAre("50 of 500", "150 of 500"));
}

TEST_F(Restore_Job, OldSetIsRestoredUnderTheNodeNameForEveryRule) {
  ASSERT_TRUE(restore(two_rules(), "0"));
  ASSERT_EQ(2u, mover.restores.size());
  EXPECT_EQ("6e6f6465", mover.restores[0].name);
  EXPECT_EQ("6e6f6465", mover.restores[1].name);
  EXPECT_EQ(text_of(json(R"({"size":0,"set_size":0,"storage_size":0})")), text_of(result));
}

TEST_F(Restore_Job, OldSetReportsTheDataMoversOwnFigures) {
  K8S_SClient_Toolkit::Progress progress = {0, 0, 0};
  mover.runs.push_back({.during = [&](MTF::Event_Handler& events) {
    events.handle_progress(50, 999, 50, 7);
    progress = K8S_SClient_Toolkit::instance()->get_job_progress("job");
  }});
  restore(two_rules(), "0");
  EXPECT_EQ(999u, progress.total);
  EXPECT_EQ(50u, progress.processed);
}

TEST_F(Restore_Job, NoRulesAreASuccessWithoutARestore) {
  ASSERT_TRUE(restore("{}"));
  EXPECT_TRUE(mover.restores.empty());
  EXPECT_EQ(text_of(json(R"({"size":500,"set_size":0,"storage_size":0})")), text_of(result));
}

TEST_F(Restore_Job, StartsWithCleanTotalsAndWithoutAPendingCancel) {
  Totals::set_size = 9;
  K8S_SClient_Task_Handler::instance()->set_act_state(JOB_STATE_CANCELING);
  ASSERT_TRUE(restore("{}"));
  EXPECT_EQ(0u, result["set_size"].get_uint64());
  EXPECT_EQ(JOB_STATE_NONE, K8S_SClient_Task_Handler::instance()->get_act_state());
}

class Missing_Job_Param : public Restore_Job, public ::testing::WithParamInterface<const char*> {};

INSTANTIATE_TEST_SUITE_P(Each, Missing_Job_Param, ::testing::Values("rules", "total_size", "node_name_hex"),
                         [](const auto& info) { return info.param; });

TEST_P(Missing_Job_Param, FailsWithAllParamsAndTheReasonInTheLog) {
  json_spirit::Object bad = params("{}");
  bad.erase(GetParam());
  EXPECT_FALSE(handler.restore(bad, "job", result));
  const std::vector<std::string> errors = log.texts(LM_ERROR);
  ASSERT_EQ(1u, errors.size());
  EXPECT_THAT(errors[0],
              ::testing::StartsWith("Failed to extract restore information from\n" + text_of(bad) + "\nerror "));
  EXPECT_THAT(errors[0], ::testing::EndsWith(".\n"));
}

TEST_P(Missing_Job_Param, ReasonIsToldBehindParamsLongerThanALine) {
  json_spirit::Object bad = params("{}");
  bad.erase(GetParam());
  handler.restore(bad, "job", result);
  bad["zeros"] = std::string(10'000, '0');
  EXPECT_FALSE(handler.restore(bad, "job", result));
  const std::vector<std::string> errors = log.texts(LM_ERROR);
  ASSERT_EQ(2u, errors.size());
  const std::string reason = errors[0].substr(errors[0].rfind("\nerror "));
  EXPECT_THAT(reason, ::testing::HasSubstr(GetParam()));
  EXPECT_THAT(errors[1], ::testing::EndsWith("00..." + reason));
}

TEST_P(Missing_Job_Param, OfAnotherTypeFails) {
  json_spirit::Object bad = params("{}");
  bad[GetParam()] = json("[1]");
  EXPECT_FALSE(handler.restore(bad, "job", result));
  EXPECT_EQ(1u, log.texts(LM_ERROR).size());
}

TEST_F(Restore_Job, RuleThatIsNoStringFailsBeforeTheFirstRestore) {
  EXPECT_FALSE(restore(R"({"/data/a":")" + dir.path() + R"(","/data/b":1})"));
  EXPECT_TRUE(is_only_check_failure(log, "k8s/websvcs_agent/k8s_sclient/k8s_sclient_task_handler",
                                    "obj.second is not string!\n"))
      << log.all();
  EXPECT_TRUE(mover.restores.empty());
}

TEST_F(Restore_Job, PatternWithoutAMatchFailsBeforeTheFirstRestore) {
  EXPECT_FALSE(restore(R"({"/data/a":")" + dir.path() + R"(","/data/b":")" + (dir / "none-*") + "\"}"));
  EXPECT_THAT(log.texts(LM_ERROR), ::testing::ElementsAre("Failed to get restore path " + (dir / "none-*") + ".\n"));
  EXPECT_TRUE(mover.restores.empty());
}

TEST_F(Restore_Job, FailedRunEndsTheJobWithoutAResult) {
  mover.runs.push_back({.ok = false, .code = MTF::E_NOT_FOUND});
  EXPECT_FALSE(restore(two_rules()));
  EXPECT_EQ(1u, mover.restores.size());
  EXPECT_TRUE(result.empty());
}

TEST_F(Restore_Job, ExceptionInMidJobPassesThrough) {
  mover.runs.push_back({.during = [](MTF::Event_Handler&) { throw std::runtime_error("broken"); }});
  EXPECT_THROW(restore(two_rules()), std::runtime_error);
}

}  // namespace
