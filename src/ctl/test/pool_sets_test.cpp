#include "ctl/sets/pool_sets.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "ctl/failure.h"
#include "ctl/sets/pool.h"
#include "ctl/test/pool_maker.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace {

using namespace ctl;
using ctl_test::make_set;

class Pool_Sets_Test : public ::testing::Test {
 protected:
  static Pool_Info info(const std::string& url) {
    Pool_Info info;
    info.url = url;
    return info;
  }
  std::string listed(const std::string& host, const std::string& resource) {
    std::string text;
    for (const Pool_Set& set : Pool(info(url_)).sets(host, resource).sets)
      text += set.key.host + "/" + set.key.resource + "/" + set.record.name + " " + std::to_string(set.record.seq) +
              "." + std::to_string(set.record.incarnation) + "\n";
    return text;
  }

  Exit_Code code_of(const std::string& url) {
    try {
      const Pool pool(info(url));
      pool.check();
      pool.keys("", "");
    } catch (const Failure& failure) {
      return failure.code();
    }
    return exit_ok;
  }

  test_support::Temp_Dir dir_;
  const std::string url_ = "file://" + dir_.path();
  const Set_Place place_{info(url_), "h", "r"};
};

TEST_F(Pool_Sets_Test, A_set_is_told_with_its_figures) {
  ASSERT_TRUE(make_set(url_, "h", "r", "data", 3));
  const std::vector<Pool_Set> sets = Pool(info(url_)).sets("h", "r").sets;
  ASSERT_EQ(sets.size(), 1u);
  EXPECT_EQ(sets[0].record.name, "data");
  EXPECT_EQ(sets[0].record.seq, 3u);
  EXPECT_EQ(sets[0].key.set.dir(), "data/0000000003.1");
  EXPECT_EQ(sets[0].record.summary.file_count, 10u);
}

TEST_F(Pool_Sets_Test, All_hosts_and_resources_are_listed_unless_some_are_named) {
  for (const char* host : {"h2", "h1"})
    for (const char* resource : {"r1", "r2"}) ASSERT_TRUE(make_set(url_, host, resource, "data", 1));
  EXPECT_EQ(listed("", ""), "h1/r1/data 1.1\nh1/r2/data 1.1\nh2/r1/data 1.1\nh2/r2/data 1.1\n");
  EXPECT_EQ(listed("h1", ""), "h1/r1/data 1.1\nh1/r2/data 1.1\n");
  EXPECT_EQ(listed("", "r2"), "h1/r2/data 1.1\nh2/r2/data 1.1\n");
}

TEST_F(Pool_Sets_Test, A_place_that_does_not_exist_yet_has_no_sets) {
  EXPECT_EQ(listed("h", "r"), "");
  EXPECT_EQ(listed("", ""), "");
}

TEST_F(Pool_Sets_Test, A_pool_that_does_not_exist_cannot_be_listed) {
  EXPECT_EQ(code_of("file://" + (dir_ / "missing")), exit_pool);
}

TEST_F(Pool_Sets_Test, A_pool_of_another_kind_cannot_be_read) {
  EXPECT_EQ(code_of("s3://bucket"), exit_pool);
  EXPECT_EQ(code_of("/plain"), exit_pool);
}

TEST_F(Pool_Sets_Test, A_damaged_set_is_left_out) {
  test_support::Log_Capture log;
  ASSERT_TRUE(make_set(url_, "h", "r", "bad", 1));
  ASSERT_TRUE(make_set(url_, "h", "r", "good", 1));
  for (const auto& entry : std::filesystem::recursive_directory_iterator(dir_ / "h/r/bad"))
    if (entry.path().filename() == "commit") std::filesystem::resize_file(entry.path(), 10);
  EXPECT_EQ(listed("h", "r"), "h/r/good 1.1\n");
  EXPECT_FALSE(log.texts(LM_ERROR).empty());
}

TEST_F(Pool_Sets_Test, The_next_number_follows_the_newest_of_any_of_the_volumes) {
  for (const auto& [name, seq] : {std::pair{"a", 4u}, {"a", 7u}, {"b", 9u}, {"other", 100u}})
    ASSERT_TRUE(make_set(url_, "h", "r", name, seq));
  EXPECT_EQ(next_seq(place_, {{"a", ""}}), 8u);
  EXPECT_EQ(next_seq(place_, {{"a", ""}, {"b", ""}}), 10u);
  EXPECT_EQ(next_seq(place_, {{"new", ""}}), 1u);
}

TEST_F(Pool_Sets_Test, The_number_of_a_damaged_set_is_taken) {
  ASSERT_TRUE(make_set(url_, "h", "r", "a", 4));
  std::filesystem::resize_file(dir_ / "h/r/a/0000000004.1/commit", 10);
  EXPECT_EQ(next_seq(place_, {{"a", ""}}), 5u);
}

TEST_F(Pool_Sets_Test, After_the_last_number_there_is_none) {
  ASSERT_TRUE(make_set(url_, "h", "r", "a", 4294967295u));
  EXPECT_THROW(next_seq(place_, {{"a", ""}}), Failure);
}

TEST_F(Pool_Sets_Test, A_name_of_any_bytes_is_found) {
  ASSERT_TRUE(make_set(url_, "h", "r", "a b%", 4));
  EXPECT_EQ(next_seq(place_, {{"a b%", ""}}), 5u);
  EXPECT_EQ(size_of_sets(place_, {{"a b%", ""}}, 4, 0), 1000u);
}

TEST_F(Pool_Sets_Test, The_size_of_a_restore_is_that_of_its_sets) {
  for (const char* name : {"a", "b"}) ASSERT_TRUE(make_set(url_, "h", "r", name, 1));
  ASSERT_TRUE(make_set(url_, "h", "r", "a", 1, 2));
  EXPECT_EQ(size_of_sets(place_, {{"a", ""}, {"b", ""}}, 1, 0), 2000u);
  EXPECT_EQ(size_of_sets(place_, {{"a", ""}}, 1, 2), 1000u);
  EXPECT_THROW(size_of_sets(place_, {{"b", ""}}, 1, 2), Failure);
  EXPECT_THROW(size_of_sets(place_, {{"a", ""}}, 2, 0), Failure);
  EXPECT_THROW(size_of_sets(place_, {{"a", ""}, {"c", ""}}, 1, 0), Failure);
}

}  // namespace
