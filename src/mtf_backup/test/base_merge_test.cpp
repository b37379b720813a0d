#include "mtf_backup/backup/base_merge.h"

#include <gtest/gtest.h>

#include <functional>
#include <limits>

#include "mtf_backup/set/catalog_writer.h"
#include "support/log_capture.h"
#include "support/memory_client_io.h"

namespace {

using namespace MTF_BACKUP;

/// An older set with the root and one file in it, begun at second 1000.
class Base_Merge_Test : public ::testing::Test {
 protected:
  Base_Merge_Test() {
    base_.dir = "set/0000000001.1";
    base_.record.set_uuid = "older";
    base_.record.begin_time = 1000;
    base_.record.chain = {{"set/0000000000.1", "oldest"}};
    root_.stat.mode = S_IFDIR | 0755;
    file_.path = "name";
    file_.stat = {S_IFREG | 0640, 1, 2, 3, 4, 5, 6, 7, {900, 1}, {901, 2}, {902, 3}};
    file_.channel = 8;
    file_.offset = 9;
  }

  /// What becomes of the file when it is found with @a stat, and as a further name of @a link where that is not empty.
  std::unique_ptr<Catalog_Entry> keep(const MTF::Entry_Stat& stat, const std::string& link = "") {
    const auto pool = std::make_shared<test_support::Memory_Pool>();
    test_support::Memory_Client_IO client(pool);
    Catalog_Writer writer(client, base_.dir, base_.record.set_uuid);
    EXPECT_TRUE(writer.open() && writer.append(root_) && writer.append(file_) && writer.finish());
    base_.record.objects = {writer.object()};
    Run_State state;
    Base_Merge merge(client, base_, state);
    EXPECT_TRUE(merge.open());
    Work_Item item;
    item.directory = std::make_shared<const std::string>();
    item.name = "name";
    item.stat = stat;
    item.hard_link_target = link;
    auto kept = merge.keep(item);
    chain_ = merge.chain();
    return kept;
  }

  Base_Set base_;
  Catalog_Entry root_;
  Catalog_Entry file_;
  std::vector<Chain_Link> chain_;
};

TEST_F(Base_Merge_Test, KeepsTheBlockWithTheStatusOfToday) {
  MTF::Entry_Stat now = file_.stat;
  now.atime = {5000, 6};
  now.nlink = 70;
  now.dev = 80;
  const auto kept = keep(now);
  ASSERT_TRUE(kept);
  EXPECT_EQ(kept->stat, now);
  EXPECT_EQ(kept->set, 1u);
  EXPECT_EQ(kept->channel, 8u);
  EXPECT_EQ(kept->offset, 9u);
  EXPECT_EQ(chain_, (std::vector<Chain_Link>{{base_.dir, "older"}}));
}

TEST_F(Base_Merge_Test, NamesTheSetInWhichTheBlockWasBefore) {
  file_.set = 1;
  const auto kept = keep(file_.stat);
  ASSERT_TRUE(kept);
  EXPECT_EQ(kept->set, 1u);
  EXPECT_EQ(chain_, base_.record.chain);
}

TEST_F(Base_Merge_Test, EveryDifferenceThatCountsHasTheFileRead) {
  const std::vector<std::function<void(MTF::Entry_Stat&)>> changes = {[](auto& stat) { stat.mode = S_IFIFO | 0640; },
                                                                      [](auto& stat) { stat.mode ^= 0001; },
                                                                      [](auto& stat) { ++stat.uid; },
                                                                      [](auto& stat) { ++stat.gid; },
                                                                      [](auto& stat) { ++stat.rdev; },
                                                                      [](auto& stat) { ++stat.ino; },
                                                                      [](auto& stat) { ++stat.size; },
                                                                      [](auto& stat) { ++stat.mtime.sec; },
                                                                      [](auto& stat) { ++stat.mtime.nsec; },
                                                                      [](auto& stat) { --stat.ctime.sec; },
                                                                      [](auto& stat) { ++stat.ctime.nsec; }};
  for (size_t i = 0; i < changes.size(); ++i) {
    MTF::Entry_Stat now = file_.stat;
    changes[i](now);
    EXPECT_FALSE(keep(now)) << i;
    EXPECT_TRUE(chain_.empty());
  }
}

TEST_F(Base_Merge_Test, DataIsNotKeptForALinkNorALinkForData) {
  EXPECT_FALSE(keep(file_.stat, "/source/other"));
  file_.hard_link_target = "/source/other";
  EXPECT_FALSE(keep(file_.stat));
  EXPECT_FALSE(keep(file_.stat, "/source/third"));
  EXPECT_TRUE(keep(file_.stat, "/source/other"));
}

TEST_F(Base_Merge_Test, WhatIsFlaggedIsRead) {
  for (const uint32_t flag : {CAT_CORRUPT, CAT_CHANGED, CAT_SKIPPED, CAT_BARE}) {
    file_.flags = flag;
    EXPECT_FALSE(keep(file_.stat)) << flag;
  }
}

TEST_F(Base_Merge_Test, TimesHaveToBeMoreThanAMinuteOlderThanTheSet) {
  for (MTF::Timestamp MTF::Entry_Stat::*time : {&MTF::Entry_Stat::mtime, &MTF::Entry_Stat::ctime}) {
    const MTF::Timestamp before = file_.stat.*time;
    file_.stat.*time = {939, 999'999'999};
    EXPECT_TRUE(keep(file_.stat));
    for (const int64_t second :
         {int64_t(940), int64_t(965), int64_t(1000), int64_t(5000), std::numeric_limits<int64_t>::max()}) {
      file_.stat.*time = {second, 0};
      EXPECT_FALSE(keep(file_.stat)) << second;
    }
    file_.stat.*time = {std::numeric_limits<int64_t>::min(), 0};
    EXPECT_TRUE(keep(file_.stat));
    file_.stat.*time = before;
  }
  base_.record.begin_time = std::numeric_limits<int64_t>::min();
  EXPECT_FALSE(keep(file_.stat));
}

TEST_F(Base_Merge_Test, ASetThatTheChainDoesNotHaveIsNotReferredTo) {
  file_.set = 2;
  EXPECT_FALSE(keep(file_.stat));
}

TEST_F(Base_Merge_Test, ADirectoryOfTheSameNameIsAnotherEntry) {
  file_.stat.mode = S_IFDIR | 0755;
  MTF::Entry_Stat now = file_.stat;
  now.mode = S_IFREG | 0755;
  EXPECT_FALSE(keep(now));
}

TEST_F(Base_Merge_Test, ARunThatIsStoppingIsNotWarnedOfTheCatalog) {
  const auto pool = std::make_shared<test_support::Memory_Pool>();
  test_support::Memory_Client_IO client(pool);
  Catalog_Writer writer(client, base_.dir, base_.record.set_uuid);
  ASSERT_TRUE(writer.open() && writer.append(root_) && writer.append(file_) && writer.finish());
  base_.record.objects = {writer.object()};
  pool->objects[base_.dir + "/catalog"][50] ^= 1;
  Work_Item item;
  item.directory = std::make_shared<const std::string>();
  for (const bool stopping : {false, true}) {
    test_support::Log_Capture log;
    Run_State state;
    Base_Merge merge(client, base_, state);
    ASSERT_TRUE(merge.open());
    if (stopping) state.cancel();
    item.stat = root_.stat;
    EXPECT_FALSE(merge.keep(item));
    EXPECT_FALSE(merge.keep(item));
    EXPECT_EQ(log.texts(LM_WARNING).size(), stopping ? 0u : 1u) << log.all();
  }
}

}  // namespace
