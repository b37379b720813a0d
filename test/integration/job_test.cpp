// Whole jobs through the real road: a request on the channel, the agent as a process, the plug-in, a bind, the pool.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "integration/agent_process.h"
#include "json_spirit/assign.h"
#include "json_spirit/dump.h"
#include "json_spirit/extract.h"
#include "support/temp_dir.h"
#include "support/tree_compare.h"
#include "support/tree_maker.h"

namespace test_support {
namespace {

using json_spirit::Object;
using json_spirit::Value;

constexpr char private_directory[] = "/var/cache/velmora/tessarin/k8s/data";

class Job : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(agent_.start()) << agent_.log(); }
  void TearDown() override {
    EXPECT_EQ(agent_.terminate(), 0);
    EXPECT_THAT(private_mounts(), ::testing::IsEmpty());
  }

  void make_volume(const std::string& name, std::size_t files, unsigned long long bytes) {
    Tree_Options options;
    options.files = files;
    options.bytes = bytes;
    make_tree(dir_ / name, options);
  }

  Object volume(const std::string& name, const std::string& directory) const {
    Object volumes;
    volumes[name] = directory;
    return volumes;
  }

  std::string pool() const { return dir_ / "pool"; }

  unsigned long long size_of(const std::string& job) {
    unsigned long size = 0;
    const Object task = agent_.task(job);
    if (const Object* result = json_spirit::object_get_object(task, "result"))
      json_spirit::extract (*result)("size", size);
    return size;
  }

  std::size_t sets_in_pool() const {
    std::size_t count = 0;
    if (!std::filesystem::exists(pool())) return 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(pool()))
      count += entry.path().filename() == "commit";
    return count;
  }

  std::string restore(const std::string& name, int seq, unsigned long long size) {
    std::filesystem::create_directories(dir_ / "restored");
    return agent_.wait(
        agent_.submit("k8s.restore", restore_params(pool(), volume(name, dir_ / "restored"), seq, size)));
  }

  Temp_Dir dir_;
  Agent_Process agent_{dir_ / "state"};
};

TEST_F(Job, ATreeComesBackAsItWas) {
  make_volume("vol", 500, 20'000'000);
  const std::string job = agent_.submit("k8s.backup", backup_params(pool(), volume("vol", dir_ / "vol"), 1, 3));
  ASSERT_EQ(agent_.wait(job), "completed") << agent_.log();
  ASSERT_EQ(restore("vol", 1, size_of(job)), "completed") << agent_.log();
  EXPECT_THAT(compare_trees(dir_ / "vol", dir_ / "restored").differences, ::testing::IsEmpty());
}

TEST_F(Job, ACompletedJobTellsItsSizesToThePoller) {
  make_volume("vol", 50, 1'000'000);
  const std::string job = agent_.submit("k8s.backup", backup_params(pool(), volume("vol", dir_ / "vol"), 1, 0));
  ASSERT_EQ(agent_.wait(job), "completed") << agent_.log();
  Object params;
  params["job_id"] = job;
  const Value answer = agent_.call("k8s.process", params);
  const Object& result = answer.get_obj();
  EXPECT_EQ(result.at("state").get_str(), "completed");
  EXPECT_GT(result.at("size").get_uint64(), 500'000u);
  EXPECT_GE(result.at("total").get_uint64(), result.at("size").get_uint64());
  EXPECT_GT(result.at("storage_size").get_uint64(), 0u);
}

TEST_F(Job, TheSizeOfADirectoryIsMeasuredOnTheNode) {
  dir_.write("measured/a", std::string(1000, 'a'));
  dir_.write("measured/below/b", std::string(234, 'b'));
  Object params;
  params["path"] = dir_ / "meas*";
  EXPECT_EQ(agent_.call("k8s.get_pvc_size", params).get_obj().at("size").get_uint64(), 1234u);
}

TEST_F(Job, ARestoreThatMayNotChangeOwnersTellsEachOfThem) {
  dir_.write("vol/theirs", "text");
  dir_.write("vol/ours", "text");
  if (chown((dir_ / "vol/theirs").c_str(), 12345, 12345) != 0) GTEST_SKIP() << "no file can be given away";
  const std::string backup = agent_.submit("k8s.backup", backup_params(pool(), volume("vol", dir_ / "vol"), 1, 0));
  ASSERT_EQ(agent_.wait(backup), "completed") << agent_.log();

  // In a user namespace with one user, as in a container without root's rights.
  Agent_Process other{dir_ / "other-state", {}, {"unshare", "-Ur"}};
  if (!other.start()) GTEST_SKIP() << "no user namespace";
  std::filesystem::create_directories(dir_ / "restored");
  const std::string job =
      other.submit("k8s.restore", restore_params(pool(), volume("vol", dir_ / "restored"), 1, size_of(backup)));
  EXPECT_EQ(other.wait(job), "completed") << other.log();
  const std::string task = json_spirit::JSON_Dump(other.task(job), false).str();
  EXPECT_THAT(task, ::testing::HasSubstr("Restored " + (dir_ / "restored/theirs") +
                                         ", but not as it was: owner 0:0 instead of 12345:12345 (Invalid argument)"));
  EXPECT_THAT(task, ::testing::Not(::testing::HasSubstr("restored/ours")));
  EXPECT_EQ(other.terminate(), 0);
}

TEST_F(Job, TheSecondVolumesFailureLeavesTheFirstSetAndNoBind) {
  make_volume("one", 50, 1'000'000);
  make_volume("two", 50, 1'000'000);
  Object volumes = volume("one", dir_ / "one");
  volumes["two"] = dir_ / "two";
  // A file where the second volume's sets would lie.
  dir_.write("pool/host/resource/two", "in the way");
  const std::string job = agent_.submit("k8s.backup", backup_params(pool(), volumes, 1, 0));
  EXPECT_EQ(agent_.wait(job), "failed");
  EXPECT_EQ(sets_in_pool(), 1u);
  EXPECT_THAT(private_mounts(), ::testing::IsEmpty());
  EXPECT_FALSE(std::filesystem::exists(private_directory));
  EXPECT_THAT(compare_trees(dir_ / "one", dir_ / "one").differences, ::testing::IsEmpty());
  ASSERT_EQ(restore("one", 1, 1), "completed") << agent_.log();
  EXPECT_THAT(compare_trees(dir_ / "one", dir_ / "restored").differences, ::testing::IsEmpty());
}

TEST_F(Job, AFailedJobTellsWhyThroughItsErrorLines) {
  const std::string job = agent_.submit("k8s.backup", backup_params(pool(), volume("vol", dir_ / "none"), 1, 0));
  EXPECT_EQ(agent_.wait(job), "failed");
  const std::string task = json_spirit::JSON_Dump(agent_.task(job), false).str();
  EXPECT_THAT(task, ::testing::HasSubstr("Failed to get backup path " + (dir_ / "none")));
}

TEST_F(Job, NoKeyReachesTheLogOrTheStore) {
  Object params = backup_params(pool(), volume("vol", dir_ / "none"), 1, 0);
  params.erase("paths");  // the line about it prints all params
  EXPECT_EQ(agent_.wait(agent_.submit("k8s.backup", params)), "failed");
  EXPECT_THAT(agent_.log(), ::testing::HasSubstr("Failed to extract backup information"));
  EXPECT_THAT(agent_.log(), ::testing::Not(::testing::HasSubstr("canary-key")));
  for (const auto& entry : std::filesystem::recursive_directory_iterator(agent_.state_dir())) {
    if (!entry.is_regular_file()) continue;
    EXPECT_THAT(read_file(entry.path()), ::testing::Not(::testing::HasSubstr("canary-key"))) << entry.path();
  }
}

TEST_F(Job, ACancelLeavesNoSetAndTheNextJobIsUnaffected) {
  make_volume("vol", 3000, 400'000'000);
  const std::string job = agent_.submit("k8s.backup", backup_params(pool(), volume("vol", dir_ / "vol"), 1, 3));
  Object params;
  params["job_id"] = job;
  // The request is lost before the job has opened, so it waits for the first bytes.
  while (agent_.call("k8s.process", params).get_obj().at("processed").get_uint64() == 0 &&
         agent_.task(job).at("state").get_str() != "completed")
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  EXPECT_TRUE(agent_.call("k8s.cancel_job", Object()).get_obj().at("state").get_bool());
  EXPECT_EQ(agent_.wait(job), "canceled") << agent_.log();
  EXPECT_EQ(sets_in_pool(), 0u);
  EXPECT_THAT(private_mounts(), ::testing::IsEmpty());
  make_volume("small", 50, 1'000'000);
  const std::string next = agent_.submit("k8s.backup", backup_params(pool(), volume("small", dir_ / "small"), 1, 3));
  EXPECT_EQ(agent_.wait(next), "completed") << agent_.log();
}

TEST_F(Job, JobsOfOneKindRunOneAfterTheOtherAndEachSetRestores) {
  make_volume("vol", 50, 1'000'000);
  std::vector<std::string> jobs;
  for (int seq = 1; seq <= 16; ++seq)
    jobs.push_back(agent_.submit("k8s.backup", backup_params(pool(), volume("vol", dir_ / "vol"), seq, 0)));
  for (const std::string& job : jobs) EXPECT_EQ(agent_.wait(job), "completed") << agent_.log();
  EXPECT_EQ(sets_in_pool(), 16u);
  for (int seq : {1, 9, 16}) {
    std::filesystem::remove_all(dir_ / "restored");
    EXPECT_EQ(restore("vol", seq, 1), "completed");
    EXPECT_THAT(compare_trees(dir_ / "vol", dir_ / "restored").differences, ::testing::IsEmpty()) << seq;
  }
}

TEST_F(Job, TheAgentEndsCleanlyInTheMiddleOfAJob) {
  make_volume("vol", 3000, 400'000'000);
  const std::string job = agent_.submit("k8s.backup", backup_params(pool(), volume("vol", dir_ / "vol"), 1, 3));
  while (agent_.task(job).at("state").get_str() == "queued") std::this_thread::sleep_for(std::chrono::milliseconds(5));
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  EXPECT_EQ(agent_.terminate(), 0) << agent_.log();
  EXPECT_THAT(private_mounts(), ::testing::IsEmpty());
  EXPECT_FALSE(std::filesystem::exists(private_directory));
  EXPECT_EQ(sets_in_pool(), 0u);
  ASSERT_TRUE(agent_.start()) << agent_.log();
  EXPECT_EQ(agent_.task(job).at("state").get_str(), "canceled");
}

}  // namespace
}  // namespace test_support
