// The agent is killed at random moments of full and incremental backups: nothing half-done may be seen afterwards.
#include <map>
#include <random>

#include "integration/agent_process.h"
#include "mtf_backup/set/commit_record.h"
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
    change("");
    ASSERT_EQ(std::system(("cp -a " + (dir_ / "vol") + " " + (dir_ / "copy")).c_str()), 0);
  }

  /// The records of all sets, by number.
  std::map<int, MTF_BACKUP::Commit_Record> sets() const {
    std::map<int, MTF_BACKUP::Commit_Record> records;
    if (!std::filesystem::exists(dir_ / "pool")) return records;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(dir_ / "pool")) {
      MTF_BACKUP::Commit_Record record;
      if (entry.path().filename() != "commit") continue;
      EXPECT_TRUE(record.from_text(read_file(entry.path()), entry.path().string()));
      records[static_cast<int>(record.seq)] = record;
    }
    return records;
  }

  /// Content of the file that no two sets have alike; nothing else of the tree changes.
  void change(const std::string& content) { dir_.write("vol/changing", content); }

  std::vector<std::string> differences(const std::string& other) const {
    std::vector<std::string> lines = compare_trees(dir_ / "vol", other).differences;
    std::erase_if(lines, [](const std::string& line) { return line.find("changing") != line.npos; });
    return lines;
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
  std::size_t completed = 0, failed = 0;
  std::map<int, std::string> contents;
  for (int round = 1; round <= rounds; ++round) {
    ASSERT_TRUE(agent_.start()) << agent_.log();
    EXPECT_THAT(private_mounts(), ::testing::IsEmpty()) << "round " << round;
    const auto before = sets();
    const int seq = before.empty() ? 1 : before.rbegin()->first + 1;
    change(contents[seq] = "round " + std::to_string(round));
    Object params = backup_params(dir_ / "pool", volumes, seq, round % 2 ? 3 : 0);
    params["subtype"] = round % 4 == 1 ? "full" : "incremental";
    const std::string job = agent_.submit("k8s.backup", params);
    if (round % 5 == 1)
      EXPECT_EQ(agent_.wait(job), "completed");  // something for incrementals to build on
    else
      std::this_thread::sleep_for(std::chrono::microseconds(random() % 700'000));
    agent_.kill();

    ASSERT_TRUE(agent_.start()) << agent_.log();
    EXPECT_THAT(private_mounts(), ::testing::IsEmpty()) << "round " << round;
    EXPECT_FALSE(std::filesystem::exists("/var/cache/velmora/tessarin/k8s/data"));
    const std::string state = agent_.task(job).at("state").get_str();
    EXPECT_THAT(state, ::testing::AnyOf("failed", "completed"));
    ++(state == "completed" ? completed : failed);
    // A crash between the commit record and the end of the task leaves a whole set of a failed task.
    EXPECT_GE(sets().size(), completed);
    agent_.kill();
  }
  EXPECT_GT(failed, 0u) << "no kill hit a running job";
  EXPECT_THAT(differences(dir_ / "copy"), ::testing::IsEmpty());

  // Every set that is listed is whole.
  ASSERT_TRUE(agent_.start());
  std::size_t incrementals = 0;
  for (const auto& [seq, record] : sets()) {
    SCOPED_TRACE("set " + std::to_string(seq));
    const std::string target = dir_ / "restored";
    std::filesystem::remove_all(target);
    std::filesystem::create_directories(target);
    Object rule;
    rule["vol"] = target;
    EXPECT_EQ(agent_.wait(agent_.submit("k8s.restore", restore_params(dir_ / "pool", rule, seq, 1))), "completed");
    EXPECT_THAT(differences(target), ::testing::IsEmpty());
    EXPECT_EQ(read_file(target + "/changing"), contents[seq]);
    incrementals += !record.base.empty();
  }
  EXPECT_GT(incrementals, 0u);
  EXPECT_EQ(agent_.terminate(), 0);
}

}  // namespace
}  // namespace test_support
