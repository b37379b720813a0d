// What is kept, and removing the rest.
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <chrono>
#include <random>
#include <thread>

#include "ctl/sets/retention.h"
#include "ctl/test/sets_fixture.h"
#include "mtf_backup/set/set_store.h"

namespace {

using namespace ctl;
using ctl_test::Sets_Fixture;
using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::SizeIs;

constexpr int64_t day = 86400;
constexpr int64_t monday = 1717372800;  // 2024-06-03 00:00 UTC

class Judging : public ::testing::Test {
 protected:
  Judging() {
    setenv("TZ", "UTC", 1);
    tzset();
  }
  ~Judging() override {
    unsetenv("TZ");
    tzset();
  }

  /// @param chain  numbers of the sets of the same name that it needs.
  void add(uint32_t seq, int64_t time, std::vector<uint32_t> chain = {}, const std::string& name = "data") {
    Pool_Set set;
    set.key = {"h", "r", {name, seq, 1, "commit"}};
    set.record.name = name;
    set.record.seq = seq;
    set.record.incarnation = 1;
    set.record.begin_time = time;
    for (const uint32_t number : chain) set.record.chain.push_back({MTF_BACKUP::Set_Id{name, number, 1}.dir(), "uuid"});
    sets_.push_back(set);
  }
  std::string judged(const Retention& rules, const std::string& name = "") {
    std::string text;
    const std::vector<Retention_Verdict> verdicts = judge(sets_, rules, name);
    for (size_t i = 0; i < sets_.size(); ++i) {
      if (!verdicts[i].keep) continue;
      text += sets_[i].record.name + std::to_string(sets_[i].record.seq) + ":";
      for (const std::string& reason : verdicts[i].reasons) text += " " + reason + ";";
      text += "\n";
    }
    return text;
  }

  std::vector<Pool_Set> sets_;
};

TEST_F(Judging, The_newest_are_those_begun_last) {
  add(1, 300);
  add(2, 100);
  add(3, 200);
  EXPECT_EQ(judged({.last = 2}), "data1: last 1;\ndata3: last 2;\n");
  EXPECT_EQ(judged({.last = 9}), "data1: last 1;\ndata2: last 3;\ndata3: last 2;\n");
}

TEST_F(Judging, Of_a_day_or_week_the_newest_set_is_kept) {
  add(1, monday - day);             // Sunday
  add(2, monday);                   // Monday
  add(3, monday + 3600);            // Monday
  add(4, monday + 2 * day);         // Wednesday
  add(5, monday + 9 * day + 3600);  // Wednesday of the next week
  EXPECT_EQ(judged({.daily = 2}), "data4: day 2024-06-05;\ndata5: day 2024-06-12;\n");
  EXPECT_EQ(judged({.daily = 3}), "data3: day 2024-06-03;\ndata4: day 2024-06-05;\ndata5: day 2024-06-12;\n");
  EXPECT_EQ(judged({.weekly = 3}), "data1: week 2024-W22;\ndata4: week 2024-W23;\ndata5: week 2024-W24;\n");
  EXPECT_EQ(judged({.last = 1, .daily = 1}), "data5: last 1; day 2024-06-12;\n");
}

TEST_F(Judging, Each_name_counts_for_itself) {
  add(1, 100);
  add(2, 200);
  add(1, 50, {}, "other");
  EXPECT_EQ(judged({.last = 1}), "data2: last 1;\nother1: last 1;\n");
  add(2, 60, {}, "other");
  EXPECT_EQ(judged({.last = 1}, "data"), "data2: last 1;\nother1: another name;\nother2: another name;\n");
}

TEST_F(Judging, What_a_kept_set_needs_is_kept) {
  add(1, 100);
  add(2, 200, {1});
  add(3, 300, {1, 2});
  add(4, 400, {1});
  EXPECT_EQ(judged({.last = 1}), "data1: needed by data:4.1;\ndata4: last 1;\n");
  EXPECT_EQ(
      judged({.last = 2}),
      "data1: needed by data:3.1; needed by data:4.1;\ndata2: needed by data:3.1;\ndata3: last 2;\ndata4: last 1;\n");
}

class Sets_Remove : public Sets_Fixture {
 protected:
  /// A full set and two that build on it.
  void make_chain() {
    write("one", std::string(5000, '1'));
    ASSERT_TRUE(back_up());
    write("two", std::string(5000, '2'));
    ASSERT_TRUE(back_up({.seq = 2, .incremental = true}));
    write("three", std::string(5000, '3'));
    ASSERT_TRUE(back_up({.seq = 3, .incremental = true}));
  }
  bool is_there(const std::string& dir) const { return std::filesystem::exists(set_dir(dir)); }
};

TEST_F(Sets_Remove, A_set_goes_with_all_its_objects) {
  write("file", "x");
  ASSERT_TRUE(back_up() && back_up({.seq = 2}));
  EXPECT_EQ(run({"sets", "remove", "data:1", "--dry-run"}), exit_ok);
  EXPECT_EQ(out_.str(), "Would remove data:1.1\n");
  EXPECT_TRUE(is_there("data/0000000001.1"));
  EXPECT_EQ(run({"sets", "remove", "data:1"}), exit_ok);
  EXPECT_EQ(out_.str(), "Removed data:1.1\n");
  EXPECT_FALSE(is_there("data/0000000001.1"));
  EXPECT_TRUE(is_there("data/0000000002.1"));
  EXPECT_EQ(run({"sets", "remove", "data:1"}), exit_pool);
  EXPECT_EQ(failure_, "There is no set 'data:1'. Of this name there are 2.1.");
}

TEST_F(Sets_Remove, A_set_that_others_need_stays_unless_they_go_too) {
  make_chain();
  EXPECT_EQ(run({"sets", "remove", "data:1"}), exit_usage);
  EXPECT_THAT(failure_, HasSubstr("data:1.1 is needed by data:2.1"));
  EXPECT_THAT(failure_, HasSubstr("data:1.1 is needed by data:3.1"));
  EXPECT_TRUE(is_there("data/0000000001.1"));
  EXPECT_EQ(run({"sets", "remove", "data:3"}), exit_ok) << failure_;
  EXPECT_EQ(run({"sets", "remove", "data:1", "--with-dependents", "--json"}), exit_ok) << failure_;
  EXPECT_THAT(document().at("sets").get_array(), SizeIs(2));
  EXPECT_TRUE(document().at("removed").get_bool());
  EXPECT_FALSE(is_there("data"));
}

TEST_F(Sets_Remove, Beside_a_damaged_record_nothing_is_removed_unless_told) {
  test_support::Log_Capture log;
  write("file", "x");
  ASSERT_TRUE(back_up() && back_up({.seq = 2}) && back_up({.seq = 3}));
  std::filesystem::resize_file(set_dir("data/0000000002.1/commit"), 20);
  EXPECT_EQ(run({"sets", "remove", "data:1"}), exit_pool);
  EXPECT_THAT(failure_, HasSubstr("What set data:2.1 needs is not known"));
  EXPECT_EQ(run({"sets", "prune", "--keep-last", "1", "--yes"}), exit_pool);
  EXPECT_EQ(run({"sets", "prune", "--keep-last", "2", "--yes", "--json"}), exit_job_failed) << "nothing is too many";
  EXPECT_EQ(err_.str(), "Set data:2.1 cannot be read.\n");
  EXPECT_EQ(document().at("unreadable").get_int64(), 1);
  EXPECT_EQ(run({"sets", "prune", "--keep-last", "2", "--yes", "--ignore-damaged"}), exit_ok);
  EXPECT_TRUE(is_there("data/0000000001.1"));
  EXPECT_EQ(run({"sets", "remove", "data:1", "--ignore-damaged"}), exit_ok);
  EXPECT_EQ(run({"sets", "remove", "data:2.1"}), exit_ok) << failure_;
  EXPECT_FALSE(is_there("data/0000000002.1"));
  EXPECT_TRUE(is_there("data/0000000003.1"));
}

TEST_F(Sets_Remove, Prune_tells_first_and_does_it_when_told) {
  make_chain();
  write("file", "x");
  ASSERT_TRUE(back_up({.seq = 4}) && back_up({.name = "other"}));
  EXPECT_EQ(run({"sets", "prune"}), exit_usage);
  EXPECT_EQ(run({"sets", "prune", "--keep-last", "4294967295", "--keep-daily", "1"}), exit_ok) << failure_;
  EXPECT_EQ(run({"sets", "prune", "--keep-last", "1"}), exit_ok);
  EXPECT_THAT(out_.str(), ContainsRegex("data:1.1 .* remove .*\ndata:2.1 .* remove .*\ndata:3.1 .* remove .*\n"
                                        "data:4.1 .* keep  +last 1 "));
  EXPECT_THAT(out_.str(), HasSubstr("3 sets would be removed; --yes does it.\n"));
  EXPECT_TRUE(is_there("data/0000000001.1"));
  EXPECT_EQ(run({"sets", "prune", "--keep-last", "2", "--yes", "--json"}), exit_ok) << failure_;
  EXPECT_THAT(document().at("sets").get_array(), SizeIs(5));
  EXPECT_TRUE(document().at("removed").get_bool());
  for (const char* dir : {"data/0000000001.1", "data/0000000003.1", "data/0000000004.1", "other/0000000001.1"})
    EXPECT_TRUE(is_there(dir)) << dir;
  EXPECT_EQ(run({"sets", "verify", "--data"}), exit_ok) << out_.str();
}

TEST_F(Sets_Remove, A_removal_of_several_sets_shows_how_far_it_is) {
  make_chain();
  EXPECT_EQ(run({"sets", "remove", "data:1", "--with-dependents"}), exit_ok) << failure_;
  EXPECT_THAT(out_.str(), ContainsRegex("^Removed data:3.1\nRemoved data:2.1\nRemoved data:1.1\n$"));
  EXPECT_THAT(err_.str(), ContainsRegex("removing sets  [0-9]+%  "));
}

TEST_F(Sets_Remove, Prune_that_is_killed_leaves_whole_sets_and_the_next_one_ends_its_work) {
  const unsigned seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  for (uint32_t seq = 1; seq <= 9; ++seq) {
    write("file" + std::to_string(seq), std::string(3000, static_cast<char>('0' + seq)));
    ASSERT_TRUE(back_up({.seq = seq, .incremental = seq % 3 != 1}));  // three chains of three sets
  }
  const std::string whole_pool = dir_ / "whole";
  std::filesystem::rename(pool_, whole_pool);
  const std::vector<std::string> prune = {"sets", "prune", "--keep-last", "1", "--yes"};
  int killed = 0;
  for (int round = 0; round < 20; ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    std::filesystem::remove_all(pool_);
    std::filesystem::copy(whole_pool, pool_, std::filesystem::copy_options::recursive);
    const pid_t child = fork();
    if (child == 0) _exit(run(prune));
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 40'000));
    kill(child, SIGKILL);
    int status = 0;
    waitpid(child, &status, 0);
    killed += WIFSIGNALED(status);
    EXPECT_EQ(run({"sets", "verify", "--data"}), exit_ok) << out_.str();
    EXPECT_THAT(out_.str(), HasSubstr("data:7.1  whole\ndata:8.1  whole\ndata:9.1  whole\n"));
    EXPECT_EQ(run(prune), exit_ok) << failure_;
    EXPECT_EQ(run({"sets", "verify", "--data"}), exit_ok);
    EXPECT_EQ(out_.str(), "data:7.1  whole\ndata:8.1  whole\ndata:9.1  whole\n");
  }
  EXPECT_GT(killed, 0);
  // What a kill left of sets without a record goes with the next backup.
  ASSERT_TRUE(back_up({.seq = 10}));
  for (uint32_t seq = 1; seq <= 6; ++seq) EXPECT_FALSE(is_there("data/000000000" + std::to_string(seq) + ".1")) << seq;
}

TEST_F(Sets_Remove, Prune_of_one_name_leaves_the_others) {
  write("file", "x");
  for (const char* name : {"a", "b"}) ASSERT_TRUE(back_up({.name = name}) && back_up({.name = name, .seq = 2}));
  EXPECT_EQ(run({"sets", "prune", "--keep-last", "1", "--name", "a", "--yes"}), exit_ok);
  EXPECT_FALSE(is_there("a/0000000001.1"));
  EXPECT_TRUE(is_there("b/0000000001.1"));
}

}  // namespace
