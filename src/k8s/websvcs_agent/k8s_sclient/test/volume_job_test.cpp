// Whole jobs: requests through the exported factories, a real task manager and data mover, and a pool in a directory.
#include <sys/mount.h>

#include <algorithm>
#include <functional>
#include <set>

#include "factories.h"
#include "json_rpc/json_rpc_handler_impl_base.h"
#include "json_text.h"
#include "recorded_channel.h"
#include "support/log_capture.h"
#include "support/tree_compare.h"
#include "support/tree_maker.h"
#include "task/task_manager.h"
#include "volumes_fixture.h"

namespace {

namespace fs = std::filesystem;
using json_spirit::Object;
using test_support::compare_trees;
using test_support::Log_Capture;
using test_support::make_tree;

typedef std::unique_ptr<JSON_RPC_Handler> Handler_ptr;

class Volume_Job : public ::testing::Test {
 protected:
  ~Volume_Job() override {
    Task_Manager::close_instance();
    for (const std::string& mount : Node_Volumes::mounts()) umount2(mount.c_str(), MNT_DETACH);
    fs::remove_all(k8s::root_directory);
  }

  std::string pool_dir() const { return volumes.dir / "pool"; }
  /// The storage members that both kinds of job have.
  std::string storage(const std::string& more) const {
    return R"("minor_resource_id":"R","seq":5,"max_seconds_retry":5,"resumption_buffer_size":1048576,"access_key":"K",
              "pool_info":{"uuid":"P","url":"file://)" +
           pool_dir() + "\"}," + more;
  }
  Object backup_params(const std::vector<std::string>& names, const std::string& more = "") const {
    std::string paths;
    for (const std::string& name : names) paths += (paths.empty() ? "" : ",") + volumes.path(name);
    return json_object("{" +
                       storage(R"("meta":{"pool_uuid":"P","host_uuid":"H","uuid":"S"},"subtype":"full",
        "opts":{"compression":3,"compression_level":1,"channel_num":2},"paths":[)" +
                               paths + "]" + more) +
                       "}");
  }
  /// Rules that bring each volume back to a new directory.
  Object restore_params(const std::vector<std::string>& names, const std::string& more = "") const {
    std::string rules;
    for (const std::string& name : names) {
      fs::create_directories(target(name));
      rules += (rules.empty() ? "\"" : ",\"") + Node_Volumes::bound(name) + "\":\"" + target(name) + "\"";
    }
    return json_object("{" +
                       storage(R"("pool_uuid":"P","host_uuid":"H","incarnation":0,"channel_num":2,"concurrent":2,
        "node_name_hex":"6e","total_size":1000,"rules":{)" +
                               rules + "}" + more) +
                       "}");
  }
  std::string target(const std::string& name) const { return volumes.dir / ("new/" + name); }

  static std::string submit(const Handler_ptr& handler, const Object& params) {
    Requester requester;
    handler->handle_object(requester.ptr(), Requester::request(params));
    const std::string result = requester.result();
    return result.size() > 2 ? result.substr(1, result.size() - 2) : "";
  }
  Object poll(const std::string& id) {
    Requester requester;
    process->handle_object(requester.ptr(), Requester::request(json(R"({"job_id":")" + id + "\"}")));
    return json_object(requester.result());
  }
  /// Polls until the job has ended, calling @a each with every answer. Gives the last answer.
  Object wait(
      const std::string& id, const std::function<void(const Object&)>& each = [](const Object&) {}) {
    for (;;) {
      const Object answer = poll(id);
      each(answer);
      const std::string& state = answer.at("state").get_str();
      if (state != "queued" && state != "running") return answer;
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
  }
  static std::string state_of(const Object& answer) { return answer.at("state").get_str(); }
  /// Cancels the job once it has moved something, and waits for its end.
  Object cancel_in_mid_run(const std::string& id) {
    const Handler_ptr cancel(_make_JSON_RPC_K8S_Cancel_Job_Handler(nullptr));
    bool asked = false;
    const Object answer = wait(id, [&](const Object& poll) {
      if (asked || poll.at("processed").get_uint64() == 0) return;
      asked = true;
      Requester requester;
      JSON_RPC_Request request;
      request.id(json_spirit::Value(7));
      dynamic_cast<JSON_RPC_Handler_Impl_Base&>(*cancel).handle_request(&requester.channel(), request);
      EXPECT_EQ(R"({"state":true})", requester.result());
    });
    EXPECT_TRUE(asked);
    return answer;
  }
  /// Commit records below the pool's directory of the set name.
  size_t sets_of(const std::string& name) const {
    size_t sets = 0;
    const fs::path directory = pool_dir() + "/H/R/" + name;
    if (!fs::is_directory(directory)) return 0;
    for (const auto& entry : fs::recursive_directory_iterator(directory)) sets += entry.path().filename() == "commit";
    return sets;
  }
  static ACE_UINT64 bytes_below(const std::string& directory) {
    ACE_UINT64 bytes = 0;
    for (const auto& entry : fs::recursive_directory_iterator(directory))
      if (entry.symlink_status().type() == fs::file_type::regular)
        bytes += fs::file_size(entry.path());
      else if (entry.is_symlink())
        bytes += fs::read_symlink(entry.path()).string().size();
    return bytes;
  }
  static std::string differences(const std::string& left, const std::string& right) {
    std::string text;
    for (const std::string& difference : compare_trees(left, right).differences) text += difference + "\n";
    return text;
  }

  Node_Volumes volumes;
  Log_Capture log;
  const Handler_ptr backup{_make_JSON_RPC_K8S_Backup_Handler(nullptr)};
  const Handler_ptr restore{_make_JSON_RPC_K8S_Restore_Handler(nullptr)};
  const Handler_ptr process{_make_JSON_RPC_K8S_Process_Handler(nullptr)};
};

TEST_F(Volume_Job, TwoVolumesComeBackAsTheyWere) {
  make_tree(volumes.source("vol-a"), {.files = 200, .bytes = 3'000'000, .special = true, .seed = 1});
  make_tree(volumes.source("vol-b"), {.files = 50, .bytes = 5'000'000, .special = true, .seed = 2});

  ASSERT_EQ("completed", state_of(wait(submit(backup, backup_params({"vol-a", "vol-b"}))))) << log.all();
  ASSERT_EQ("completed", state_of(wait(submit(restore, restore_params({"vol-a", "vol-b"}))))) << log.all();
  EXPECT_EQ("", differences(volumes.source("vol-a"), target("vol-a")));
  EXPECT_EQ("", differences(volumes.source("vol-b"), target("vol-b")));
}

TEST_F(Volume_Job, BackupAnswersItsSizesAndLeavesNothingOnTheNode) {
  make_tree(volumes.source("vol-a"), {.files = 20, .bytes = 300'000, .special = false, .seed = 1});
  make_tree(volumes.source("vol-b"), {.files = 30, .bytes = 500'000, .special = false, .seed = 2});
  const ACE_UINT64 bytes = bytes_below(volumes.source("vol-a")) + bytes_below(volumes.source("vol-b"));

  const Object answer = wait(submit(backup, backup_params({"vol-a", "vol-b"})));
  ASSERT_EQ("completed", state_of(answer)) << log.all();
  EXPECT_EQ(bytes, answer.at("size").get_uint64());
  EXPECT_EQ(bytes, answer.at("set_size").get_uint64());
  EXPECT_EQ(bytes, answer.at("total").get_uint64());
  EXPECT_EQ(bytes, answer.at("processed").get_uint64());
  EXPECT_GT(answer.at("storage_size").get_uint64(), 0u);
  EXPECT_TRUE(Node_Volumes::is_clean());
}

TEST_F(Volume_Job, RestoreAnswersTheRequestedSizeAndNoStorageSize) {
  make_tree(volumes.source("vol-a"), {.files = 20, .bytes = 300'000, .special = false, .seed = 1});
  ASSERT_EQ("completed", state_of(wait(submit(backup, backup_params({"vol-a"})))));
  const Object answer = wait(submit(restore, restore_params({"vol-a"})));
  ASSERT_EQ("completed", state_of(answer)) << log.all();
  EXPECT_EQ(1000u, answer.at("size").get_uint64());
  EXPECT_EQ(bytes_below(volumes.source("vol-a")), answer.at("set_size").get_uint64());
  EXPECT_EQ(0u, answer.at("storage_size").get_uint64());
}

TEST_F(Volume_Job, ProgressOfTwoVolumesRunsOverOneTotal) {
  make_tree(volumes.source("vol-a"), {.files = 20, .bytes = 1'500'000, .special = false, .seed = 1});
  make_tree(volumes.source("vol-b"), {.files = 20, .bytes = 1'500'000, .special = false, .seed = 2});
  const ACE_UINT64 first = bytes_below(volumes.source("vol-a"));
  const ACE_UINT64 all = first + bytes_below(volumes.source("vol-b"));

  std::set<ACE_UINT64> totals;
  std::vector<ACE_UINT64> processed;
  wait(submit(backup, backup_params({"vol-a", "vol-b"}, R"(,"dest_rate_limits":[
                  {"start_time":0,"end_time":86399,"max_bytes_per_second":600000}])")),
       [&](const Object& answer) {
         if (answer.at("total").get_uint64() == 0) return;  // before the first report
         totals.insert(answer.at("total").get_uint64());
         processed.push_back(answer.at("processed").get_uint64());
       });
  EXPECT_THAT(totals, ::testing::ElementsAre(all));
  EXPECT_TRUE(std::is_sorted(processed.begin(), processed.end()));
  EXPECT_TRUE(std::any_of(processed.begin(), processed.end(), [&](auto bytes) { return bytes > 0 && bytes <= first; }));
  EXPECT_TRUE(
      std::any_of(processed.begin(), processed.end(), [&](auto bytes) { return bytes > first && bytes <= all; }));
  EXPECT_EQ(all, processed.back());
}

TEST_F(Volume_Job, FailureOfTheSecondVolumeLeavesTheFirstSetInThePool) {
  make_tree(volumes.source("vol-a"), {.files = 20, .bytes = 300'000, .special = false, .seed = 1});
  make_tree(volumes.source("vol-b"), {.files = 20, .bytes = 300'000, .special = false, .seed = 2});
  volumes.dir.write("pool/H/R/vol-b", "in the way of the second set");

  const Object answer = wait(submit(backup, backup_params({"vol-a", "vol-b"})));
  EXPECT_EQ("failed", state_of(answer));
  EXPECT_EQ(0u, answer.count("size"));
  EXPECT_TRUE(log.has(LM_ERROR, "Failed to backup data to storage.\n")) << log.all();
  EXPECT_TRUE(Node_Volumes::is_clean());
  EXPECT_EQ(1u, sets_of("vol-a"));

  ASSERT_EQ("completed", state_of(wait(submit(restore, restore_params({"vol-a"}))))) << log.all();
  EXPECT_EQ("", differences(volumes.source("vol-a"), target("vol-a")));
}

TEST_F(Volume_Job, SourceIsNeverChanged) {
  make_tree(volumes.source("vol-a"), {.files = 50, .bytes = 300'000, .special = true, .seed = 1});
  make_tree(volumes.source("copy"), {.files = 50, .bytes = 300'000, .special = true, .seed = 1});
  const std::string before = differences(volumes.source("copy"), volumes.source("vol-a"));
  ASSERT_EQ("completed", state_of(wait(submit(backup, backup_params({"vol-a"})))));
  EXPECT_EQ(before, differences(volumes.source("copy"), volumes.source("vol-a")));
}

TEST_F(Volume_Job, MountInsideAVolumeIsBackedUpWithIt) {
  const std::string inner = volumes.source("vol-a") + "/inner";
  fs::create_directories(inner);
  ASSERT_EQ(0, mount("tmpfs", inner.c_str(), "tmpfs", 0, nullptr));
  volumes.dir.write("vol-a/inner/file", "inside");
  EXPECT_EQ("completed", state_of(wait(submit(backup, backup_params({"vol-a"}))))) << log.all();
  EXPECT_EQ("completed", state_of(wait(submit(restore, restore_params({"vol-a"}))))) << log.all();
  EXPECT_EQ("inside", test_support::read_file(target("vol-a") + "/inner/file"));
  umount2(inner.c_str(), MNT_DETACH);
}

TEST_F(Volume_Job, EmptyVolumeIsASuccess) {
  fs::create_directories(volumes.source("vol-a"));
  const Object answer = wait(submit(backup, backup_params({"vol-a"})));
  EXPECT_EQ("completed", state_of(answer)) << log.all();
  EXPECT_EQ(0u, answer.at("size").get_uint64());
}

TEST_F(Volume_Job, CancelStopsARunningBackupAndLeavesNothing) {
  make_tree(volumes.source("vol-a"), {.files = 10, .bytes = 20'000'000, .special = false, .seed = 1});
  const Object answer = cancel_in_mid_run(submit(backup, backup_params({"vol-a"}, R"(,"dest_rate_limits":[
      {"start_time":0,"end_time":86399,"max_bytes_per_second":200000}])")));
  EXPECT_EQ("canceled", state_of(answer)) << log.all();
  EXPECT_TRUE(log.has(LM_ERROR, "Failed to backup data to storage.\n"));
  EXPECT_TRUE(Node_Volumes::is_clean());
  EXPECT_EQ(0u, sets_of("vol-a"));
}

TEST_F(Volume_Job, CancelStopsARunningRestore) {
  make_tree(volumes.source("vol-a"), {.files = 10, .bytes = 20'000'000, .special = false, .seed = 1});
  ASSERT_EQ("completed", state_of(wait(submit(backup, backup_params({"vol-a"}))))) << log.all();
  const Object answer = cancel_in_mid_run(submit(restore, restore_params({"vol-a"}, R"(,"src_rate_limits":[
      {"start_time":0,"end_time":86399,"max_bytes_per_second":200000}])")));
  EXPECT_EQ("canceled", state_of(answer)) << log.all();
  EXPECT_TRUE(log.has(LM_ERROR, "Failed to restore data from storage.\n"));
  EXPECT_LT(bytes_below(target("vol-a")), bytes_below(volumes.source("vol-a")));

  ASSERT_EQ("completed", state_of(wait(submit(restore, restore_params({"vol-a"}))))) << log.all();
  EXPECT_EQ("", differences(volumes.source("vol-a"), target("vol-a")));
}

TEST_F(Volume_Job, FailureOfTheSecondRestoreLeavesTheFirstInPlace) {
  make_tree(volumes.source("vol-a"), {.files = 20, .bytes = 300'000, .special = false, .seed = 1});
  ASSERT_EQ("completed", state_of(wait(submit(backup, backup_params({"vol-a"}))))) << log.all();
  const Object answer = wait(submit(restore, restore_params({"vol-a", "vol-b"})));
  EXPECT_EQ("failed", state_of(answer));
  EXPECT_EQ(0u, answer.count("size"));
  EXPECT_TRUE(log.has(LM_ERROR, "Failed to restore data from storage.\n")) << log.all();
  EXPECT_EQ("", differences(volumes.source("vol-a"), target("vol-a")));
}

TEST_F(Volume_Job, ParamsThatAreEmptyFailInTheTask) {
  const std::string id = submit(backup, Object());
  ASSERT_NE("", id);
  EXPECT_EQ("failed", state_of(wait(id)));
  EXPECT_TRUE(log.has_containing(LM_EMERGENCY, ", params is NULL or empty:\n"));
}

TEST_F(Volume_Job, ParamsThatAreNoObjectMakeNoTask) {
  Requester requester;
  backup->handle_object(requester.ptr(), Requester::request(json("[]")));
  json_spirit::Array tasks;
  ASSERT_TRUE(Task_Manager::instance()->list(tasks));
  EXPECT_TRUE(tasks.empty());
}

TEST_F(Volume_Job, RestoreOfASetThatIsNotThereFails) {
  EXPECT_EQ("failed", state_of(wait(submit(restore, restore_params({"vol-a"})))));
  EXPECT_TRUE(log.has(LM_ERROR, "Failed to restore data from storage.\n")) << log.all();
}

TEST_F(Volume_Job, JobsSubmittedAtOnceRunOneAfterTheOther) {
  constexpr int jobs = 8;
  for (int i = 0; i < jobs; ++i)
    make_tree(volumes.source("vol-" + std::to_string(i)), {.files = 5, .bytes = 50'000, .special = false, .seed = 1});
  std::vector<std::string> ids(jobs);
  std::vector<std::thread> requesters;
  for (int i = 0; i < jobs; ++i)
    requesters.emplace_back([&, i] { ids[i] = submit(backup, backup_params({"vol-" + std::to_string(i)})); });
  for (std::thread& requester : requesters) requester.join();

  for (int i = 0; i < jobs; ++i) {
    const std::string name = "vol-" + std::to_string(i);
    const Object answer = wait(ids[i]);
    EXPECT_EQ("completed", state_of(answer)) << log.all();
    EXPECT_EQ(bytes_below(volumes.source(name)), answer.at("size").get_uint64());
    EXPECT_EQ(1u, sets_of(name));
  }
  EXPECT_TRUE(Node_Volumes::is_clean());
}

}  // namespace
