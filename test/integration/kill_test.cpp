// The agent is killed at random moments of a backup: nothing half-done may be seen afterwards.
#include <random>

#include "integration/agent_process.h"
#include "json_spirit/extract.h"
#include "support/temp_dir.h"
#include "support/tree_compare.h"
#include "support/tree_maker.h"

namespace test_support {
namespace {

using json_spirit::Object;

constexpr int rounds = 50;

class Kill : public ::testing::Test {
 protected:
  void SetUp() override {
    Tree_Options options;
    options.files = 1500;
    options.bytes = 60'000'000;
    make_tree(dir_ / "vol", options);
    ASSERT_EQ(std::system(("cp -a " + (dir_ / "vol") + " " + (dir_ / "copy")).c_str()), 0);
  }

  std::size_t commit_records() const {
    std::size_t count = 0;
    if (!std::filesystem::exists(dir_ / "pool")) return 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(dir_ / "pool"))
      count += entry.path().filename() == "commit";
    return count;
  }

  Temp_Dir dir_;
  Agent_Process agent_{dir_ / "state"};
};

TEST_F(Kill, AtFiftyRandomMomentsLeavesNoMountNoHalfSetAndTheSourceUntouched) {
  const unsigned seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  Object volumes;
  volumes["vol"] = dir_ / "vol";
  int completed = 0, failed = 0;
  for (int round = 1; round <= rounds; ++round) {
    ASSERT_TRUE(agent_.start()) << agent_.log();
    EXPECT_THAT(private_mounts(), ::testing::IsEmpty()) << "round " << round;
    const std::string job =
        agent_.submit("k8s.backup", backup_params(dir_ / "pool", volumes, round, round % 2 ? 3 : 0));
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 700'000));
    agent_.kill();

    ASSERT_TRUE(agent_.start()) << agent_.log();
    EXPECT_THAT(private_mounts(), ::testing::IsEmpty()) << "round " << round;
    EXPECT_FALSE(std::filesystem::exists("/var/cache/velmora/tessarin/k8s/data"));
    const std::string state = agent_.task(job).at("state").get_str();
    EXPECT_THAT(state, ::testing::AnyOf("failed", "completed"));
    ++(state == "completed" ? completed : failed);
    // A crash between the commit record and the end of the task leaves a whole set of a failed task.
    EXPECT_GE(commit_records(), static_cast<std::size_t>(completed));
    agent_.kill();
  }
  EXPECT_GT(failed, 0) << "no kill hit a running job";
  EXPECT_THAT(compare_trees(dir_ / "vol", dir_ / "copy").differences, ::testing::IsEmpty());

  // Every set that is listed is whole.
  ASSERT_TRUE(agent_.start());
  std::size_t whole = 0;
  for (int seq = 1; seq <= rounds; ++seq) {
    const std::string target = dir_ / "restored";
    std::filesystem::remove_all(target);
    std::filesystem::create_directories(target);
    if (commit_records() == 0) break;
    Object rule;
    rule["vol"] = target;
    const std::string state = agent_.wait(agent_.submit("k8s.restore", restore_params(dir_ / "pool", rule, seq, 1)));
    if (state != "completed") continue;
    ++whole;
    EXPECT_THAT(compare_trees(dir_ / "vol", target).differences, ::testing::IsEmpty()) << "set " << seq;
  }
  EXPECT_EQ(whole, commit_records());
  EXPECT_EQ(agent_.terminate(), 0);
}

}  // namespace
}  // namespace test_support
