#include "ctl/commands.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <sstream>

#include "ctl/test/pool_maker.h"
#include "ctl/test/scripted_agent.h"
#include "json_spirit/json_spirit_helper.h"
#include "support/temp_dir.h"

namespace {

using namespace ctl;
using ctl_test::Scripted_Agent;
using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;

Value json(const std::string& text) {
  Value value;
  EXPECT_TRUE(json_spirit::loads_json(text.c_str(), value)) << text;
  return value;
}

/// Commands against a scripted agent that runs one job, "job-1", through the states that the test names.
class Commands_Test : public ::testing::Test {
 protected:
  Commands_Test() {
    options_.agent = agent_.url();
    options_.pool = "file://" + pool_.path();
    options_.resource = "default";
    agent_.on("agent.info", [](const Object&) { return json(R"({"version": "1", "host_uuid": "host-1"})"); });
    for (const char* method : {"k8s.backup", "k8s.restore"})
      agent_.on(method, [](const Object&) { return Value("job-1"); });
    agent_.on("k8s.cancel_job", [](const Object&) { return json(R"({"state": true})"); });
    agent_.on("k8s.process", [this](const Object&) { return process(); });
    agent_.on("agent.tasks", [this](const Object& params) { return tasks(params); });
  }

  /// The last of the states stays.
  Value process() {
    const std::string state = states_.size() > at_ + 1 ? states_[at_++] : states_.back();
    Object result;
    result["state"] = state;
    result["processed"] = 50;
    result["total"] = 100;
    result["speed"] = 10;
    if (on_poll_) on_poll_(state);
    return result;
  }

  Value tasks(const Object& params) {
    const auto id = params.find("id");
    if (id != params.end() && id->second.get_str() != "job-1") return json(R"({"tasks": []})");
    Value task = json(R"({"id": "job-1", "type": "k8s sclient task", "kind": "backup", "created": 1700000000000,
      "started": 1700000001000, "finished": 1700000013000, "errors": [], "errors_left_out": 0,
      "result": {"size": 2048, "set_size": 2048, "storage_size": 1024}})");
    task.get_obj()["state"] = states_.back();
    task.get_obj()["errors"] = errors_;
    if (states_.back() == "running") task.get_obj()["finished"] = Value();
    Object result;
    result["tasks"] = Array{task};
    return result;
  }

  Exit_Code run(const std::string& command) {
    options_.command = command;
    try {
      return run_command(options_, out_, err_);
    } catch (const Failure& failure) {
      failure_ = failure.what();
      return failure.code();
    }
  }

  Exit_Code backup(std::vector<std::string> states) {
    states_ = std::move(states);
    options_.patterns = {"/data/*"};
    return run("backup");
  }

  test_support::Temp_Dir pool_;
  Options options_;
  std::vector<std::string> states_ = {"completed"};
  size_t at_ = 0;
  Array errors_;
  std::function<void(const std::string& state)> on_poll_;
  std::ostringstream out_;
  std::ostringstream err_;
  std::string failure_;
  Scripted_Agent agent_;  // last: its thread uses the others
};

TEST_F(Commands_Test, A_backup_that_completes_tells_size_and_number) {
  EXPECT_EQ(backup({"queued", "running", "running", "completed"}), exit_ok);
  EXPECT_EQ(out_.str(), "Completed in 0:12: 2.0 KiB, 1.0 KiB stored\nSet data, number 1\n");
  const std::vector<Object> sent = agent_.calls_of("k8s.backup");
  ASSERT_THAT(sent, SizeIs(1));
  EXPECT_EQ(sent[0].at("seq").get_int64(), 1);
  EXPECT_EQ(sent[0].at("paths").get_array()[0].get_obj().at("data_path").get_str(), "/data/*");
  EXPECT_EQ(sent[0].at("meta").get_obj().at("host_uuid").get_str(), "host-1");
  EXPECT_THAT(sent[0].at("meta").get_obj().at("uuid").get_str(), SizeIs(36));
}

TEST_F(Commands_Test, A_backup_continues_the_numbers_of_the_pool) {
  ASSERT_TRUE(ctl_test::make_set(options_.pool, "host-1", "default", "data", 6));
  EXPECT_EQ(backup({"completed"}), exit_ok);
  EXPECT_EQ(agent_.calls_of("k8s.backup").at(0).at("seq").get_int64(), 7);
}

TEST_F(Commands_Test, A_number_that_is_given_stands) {
  options_.seq = 0;
  EXPECT_EQ(backup({"completed"}), exit_ok);
  EXPECT_EQ(agent_.calls_of("k8s.backup").at(0).at("seq").get_int64(), 0);
}

TEST_F(Commands_Test, The_pool_of_the_agent_is_the_default) {
  options_.pool = "";
  agent_.on("agent.info", [this](const Object&) {
    return json("{\"host_uuid\": \"h\", \"pool\": \"file://" + (pool_ / "p") + "\", \"state_dir\": \"/x\"}");
  });
  EXPECT_EQ(backup({"completed"}), exit_ok);
  EXPECT_EQ(agent_.calls_of("k8s.backup").at(0).at("pool_info").get_obj().at("url").get_str(),
            "file://" + (pool_ / "p"));
}

TEST_F(Commands_Test, Without_a_pool_of_its_own_it_lies_beside_the_tasks_of_the_agent) {
  options_.pool = "";
  agent_.on("agent.info",
            [this](const Object&) { return json("{\"host_uuid\": \"h\", \"state_dir\": \"" + pool_.path() + "\"}"); });
  EXPECT_EQ(backup({"completed"}), exit_ok);
  EXPECT_EQ(agent_.calls_of("k8s.backup").at(0).at("pool_info").get_obj().at("url").get_str(),
            "file://" + (pool_ / "pool"));
}

TEST_F(Commands_Test, Without_any_pool_or_host_there_is_no_job) {
  options_.pool = "";
  EXPECT_EQ(backup({"completed"}), exit_usage);
  options_.pool = "file:///pool";
  agent_.on("agent.info", [](const Object&) { return json("{}"); });
  EXPECT_EQ(backup({"completed"}), exit_usage);
  EXPECT_THAT(agent_.calls_of("k8s.backup"), IsEmpty());
}

TEST_F(Commands_Test, A_failed_backup_ends_with_1_and_tells_its_errors) {
  errors_ = Array{Value("Failed to get backup path /data/*."), Value("second")};
  EXPECT_EQ(backup({"running", "failed"}), exit_job_failed);
  EXPECT_EQ(out_.str(), "");
  EXPECT_THAT(err_.str(), HasSubstr("Failed to get backup path /data/*.\nsecond\nThe job is failed.\n"));
}

TEST_F(Commands_Test, A_canceled_backup_ends_with_1) {
  EXPECT_EQ(backup({"canceled"}), exit_job_failed);
  EXPECT_THAT(err_.str(), HasSubstr("The job is canceled.\n"));
}

TEST_F(Commands_Test, With_json_there_is_one_document_and_no_progress) {
  options_.json = true;
  EXPECT_EQ(backup({"running", "completed"}), exit_ok);
  EXPECT_EQ(err_.str(), "");
  Value document = json(out_.str());
  EXPECT_EQ(document.get_obj()["seq"].get_int(), 1);
  EXPECT_EQ(document.get_obj()["names"].get_array()[0].get_str(), "data");
  EXPECT_EQ(document.get_obj()["job"].get_obj()["state"].get_str(), "completed");
}

TEST_F(Commands_Test, With_json_a_failed_job_is_a_document_too) {
  options_.json = true;
  errors_ = Array{Value("why")};
  EXPECT_EQ(backup({"failed"}), exit_job_failed);
  Value document = json(out_.str());
  EXPECT_EQ(document.get_obj()["job"].get_obj()["errors"].get_array()[0].get_str(), "why");
}

TEST_F(Commands_Test, An_interrupt_cancels_the_job_and_waits_for_its_end) {
  on_poll_ = [this](const std::string&) {
    if (at_ == 1) kill(getpid(), SIGINT);
  };
  EXPECT_EQ(backup({"running", "running", "running", "canceled"}), exit_job_failed);
  EXPECT_THAT(agent_.calls_of("k8s.cancel_job"), SizeIs(1));
  EXPECT_THAT(err_.str(), HasSubstr("Canceling"));
}

TEST_F(Commands_Test, A_job_behind_another_is_canceled_only_when_it_runs) {
  on_poll_ = [this](const std::string& state) {
    if (at_ == 1) kill(getpid(), SIGTERM);
    if (state == "queued") {
      EXPECT_THAT(agent_.calls_of("k8s.cancel_job"), IsEmpty());
    }
  };
  EXPECT_EQ(backup({"queued", "queued", "queued", "running", "running", "canceled"}), exit_job_failed);
  EXPECT_THAT(agent_.calls_of("k8s.cancel_job"), SizeIs(1));
}

TEST_F(Commands_Test, A_cancel_that_is_not_heard_is_sent_again) {
  on_poll_ = [this, polls = 0](const std::string&) mutable {
    if (++polls == 1) kill(getpid(), SIGINT);
    if (agent_.calls_of("k8s.cancel_job").size() == 2) states_ = {"canceled"};
  };
  EXPECT_EQ(backup({"running"}), exit_job_failed);
  EXPECT_THAT(agent_.calls_of("k8s.cancel_job"), SizeIs(2));
}

TEST_F(Commands_Test, A_second_interrupt_leaves_the_job) {
  on_poll_ = [](const std::string&) { kill(getpid(), SIGINT); };
  EXPECT_EQ(backup({"running"}), exit_interrupted);
  EXPECT_THAT(failure_, HasSubstr("tessarinctl status job-1"));
}

TEST_F(Commands_Test, A_restore_asks_for_the_sets_that_the_pool_has) {
  ASSERT_TRUE(ctl_test::make_set(options_.pool, "host-1", "default", "data", 6));
  options_.seq = 6;
  options_.targets = {"data=/"};
  EXPECT_EQ(run("restore"), exit_ok);
  const Object sent = agent_.calls_of("k8s.restore").at(0);
  EXPECT_EQ(sent.at("total_size").get_uint64(), 1000u);
  EXPECT_EQ(sent.at("rules").get_obj().at("/var/cache/velmora/tessarin/k8s/data/data").get_str(), "/");
  EXPECT_THAT(out_.str(), HasSubstr("Completed in 0:12: 2.0 KiB"));
}

TEST_F(Commands_Test, A_restore_of_a_set_that_is_not_there_is_not_started) {
  options_.seq = 6;
  options_.targets = {"data=/"};
  EXPECT_EQ(run("restore"), exit_pool);
  EXPECT_THAT(failure_, HasSubstr("There is no set 'data' with number 6"));
  EXPECT_THAT(agent_.calls_of("k8s.restore"), IsEmpty());
}

TEST_F(Commands_Test, A_job_is_told_all_that_the_file_says_of_a_pool) {
  test_support::Temp_Dir dir;
  options_.pool_file = dir.write("pool.json", "{\"url\": \"" + pool_.path() + "\", \"cipher\": 4, \"key\": \"" +
                                                  std::string(43, 'A') + "=\", \"ext_attrs\": {\"a\": \"b\"}}");
  EXPECT_EQ(backup({"completed"}), exit_ok) << failure_;
  const Object pool = agent_.calls_of("k8s.backup").at(0).at("pool_info").get_obj();
  EXPECT_EQ(pool.at("url").get_str(), "file://" + pool_.path());
  EXPECT_EQ(pool.at("cipher").get_int(), 4);
  EXPECT_EQ(pool.at("key").get_str(), std::string(43, 'A') + "=");
  EXPECT_EQ(pool.at("ext_attrs").get_obj().at("a").get_str(), "b");
  EXPECT_THAT(out_.str() + err_.str(), Not(HasSubstr("AAAA")));
}

TEST_F(Commands_Test, Without_a_file_that_can_be_read_there_is_no_job) {
  options_.pool_file = pool_ / "missing";
  EXPECT_EQ(backup({"completed"}), exit_usage);
  EXPECT_THAT(agent_.calls_of("k8s.backup"), IsEmpty());
}

TEST_F(Commands_Test, Jobs_are_a_table) {
  errors_ = Array{Value("first error"), Value("second")};
  states_ = {"failed"};
  EXPECT_EQ(run("jobs"), exit_ok);
  EXPECT_THAT(out_.str(), HasSubstr("JOB    KIND    STATE"));
  EXPECT_THAT(out_.str(), HasSubstr("job-1  backup  failed"));
  EXPECT_THAT(out_.str(), HasSubstr("first error\n"));
  EXPECT_EQ(agent_.calls_of("agent.tasks").at(0).at("limit").get_int(), 20);
}

TEST_F(Commands_Test, Jobs_as_json_are_what_the_agent_told) {
  options_.json = true;
  EXPECT_EQ(run("jobs"), exit_ok);
  Value document = json(out_.str());
  EXPECT_EQ(document.get_obj()["tasks"].get_array()[0].get_obj()["finished"].get_int64(), 1700000013000);
}

TEST_F(Commands_Test, Status_ends_with_a_code_for_the_state) {
  options_.job = "job-1";
  for (const auto& [state, code] : {std::pair{"completed", exit_ok},
                                    {"failed", exit_job_failed},
                                    {"canceled", exit_job_failed},
                                    {"queued", exit_not_ended},
                                    {"running", exit_not_ended}}) {
    states_ = {state};
    EXPECT_EQ(run("status"), code) << state;
    EXPECT_THAT(out_.str(), HasSubstr(std::string("State     ") + state));
  }
  EXPECT_THAT(out_.str(), HasSubstr("Progress  50%  50 B of 100 B  10 B/s  0:05 left\n"));
}

TEST_F(Commands_Test, Status_of_an_unknown_job_is_wrong_usage) {
  options_.job = "job-2";
  EXPECT_EQ(run("status"), exit_usage);
  EXPECT_EQ(failure_, "The agent knows no job job-2.");
}

TEST_F(Commands_Test, Status_with_watch_waits_for_the_end) {
  options_.job = "job-1";
  options_.watch = true;
  states_ = {"running"};
  on_poll_ = [this, polls = 0](const std::string&) mutable {
    if (++polls == 3) states_ = {"completed"};
  };
  EXPECT_EQ(run("status"), exit_ok);
  EXPECT_THAT(out_.str(), HasSubstr("State     completed"));
}

TEST_F(Commands_Test, Status_as_json_has_task_and_progress_in_one_document) {
  options_.job = "job-1";
  options_.json = true;
  states_ = {"running"};
  EXPECT_EQ(run("status"), exit_not_ended);
  Value document = json(out_.str());
  EXPECT_EQ(document.get_obj()["state"].get_str(), "running");
  EXPECT_EQ(document.get_obj()["processed"].get_int(), 50);
}

TEST_F(Commands_Test, Cancel_names_the_running_job) {
  states_ = {"running"};
  EXPECT_EQ(run("cancel"), exit_ok);
  EXPECT_EQ(out_.str(), "Canceling job job-1\n");
  EXPECT_THAT(agent_.calls_of("k8s.cancel_job"), SizeIs(1));
}

TEST_F(Commands_Test, Cancel_says_so_when_nothing_runs) {
  EXPECT_EQ(run("cancel"), exit_ok);
  EXPECT_EQ(out_.str(), "No job is running.\n");
}

TEST_F(Commands_Test, Size_is_what_the_agent_measures) {
  agent_.on("k8s.get_pvc_size", [](const Object& params) {
    return params.at("path").get_str() == "/data/*" ? json(R"({"size": 1536})") : Value();
  });
  options_.patterns = {"/data/*"};
  EXPECT_EQ(run("size"), exit_ok);
  EXPECT_EQ(out_.str(), "1.5 KiB\n");
  out_.str("");
  options_.json = true;
  EXPECT_EQ(run("size"), exit_ok);
  EXPECT_EQ(json(out_.str()).get_obj()["size"].get_int(), 1536);
}

TEST_F(Commands_Test, A_pattern_without_a_match_is_the_error_that_the_agent_answers) {
  agent_.on("k8s.get_pvc_size", [](const Object&) -> Value {
    throw Scripted_Agent::Error{-32602, "Invalid params: failed to get path."};
  });
  options_.patterns = {"/none"};
  EXPECT_EQ(run("size"), exit_refused);
  EXPECT_THAT(failure_, HasSubstr("Invalid params: failed to get path."));
}

TEST_F(Commands_Test, Sets_are_listed_without_the_agent) {
  options_.resource = "";
  options_.agent = "unix:///nobody";
  ASSERT_TRUE(ctl_test::make_set(options_.pool, "host-1", "default", "data", 6));
  options_.sets.asked = true;
  EXPECT_EQ(run("sets list"), exit_ok);
  EXPECT_THAT(out_.str(), HasSubstr("NAME  SEQ  INC  TIME"));
  EXPECT_THAT(out_.str(), HasSubstr("data    6    1  "));
  EXPECT_THAT(out_.str(), HasSubstr("10  1000 B   100 B  zstd         default   host-1\n"));
}

TEST_F(Commands_Test, Sets_as_json_are_one_document) {
  options_.json = true;
  ASSERT_TRUE(ctl_test::make_set(options_.pool, "host-1", "default", "data", 6));
  options_.sets.asked = true;
  EXPECT_EQ(run("sets list"), exit_ok);
  EXPECT_TRUE(json(out_.str()) == json(R"({"sets": [{"name": "data", "seq": 6, "incarnation": 1, "time": 1700000000,
    "files": 10, "size": 1000, "stored_size": 100, "compression": "zstd", "base": "",
    "resource": "default", "host_uuid": "host-1"}], "unreadable": 0})"))
      << out_.str();
}

TEST_F(Commands_Test, Info_shows_what_the_agent_tells) {
  EXPECT_EQ(run("info"), exit_ok);
  EXPECT_EQ(out_.str(), "host_uuid: host-1\nversion: 1\n");
}

TEST_F(Commands_Test, An_agent_that_takes_no_job_refuses) {
  agent_.on("k8s.backup", [](const Object&) { return Value(""); });
  EXPECT_EQ(backup({"completed"}), exit_refused);
}

TEST_F(Commands_Test, Without_an_agent_nothing_is_printed) {
  options_.agent = "unix:///nobody";
  EXPECT_EQ(run("jobs"), exit_unreachable);
  EXPECT_EQ(out_.str(), "");
}

}  // namespace
