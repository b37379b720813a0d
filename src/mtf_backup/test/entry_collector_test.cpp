#include "mtf_backup/backup/entry_collector.h"

#include <gtest/gtest.h>

#include <thread>

#include "support/memory_client_io.h"

namespace {

using namespace MTF_BACKUP;

class Collector : public ::testing::Test {
 protected:
  Collector() { EXPECT_TRUE(catalog_.open()); }

  static Catalog_Entry file(const std::string& path) {
    Catalog_Entry entry;
    entry.path = path;
    entry.stat.mode = S_IFREG | 0640;
    entry.stat.nlink = 2;
    entry.stat.ino = 7;
    return entry;
  }

  const std::vector<std::string> sources_{"/source"};
  test_support::Memory_Client_IO client_{std::make_shared<test_support::Memory_Pool>()};
  Catalog_Writer catalog_{client_, "set/0000000001.1", "uuid"};
  Run_State state_;
  Entry_Collector collector_{catalog_, sources_, state_};
};

TEST_F(Collector, ResultsWithLongPathsWaitForThoseBefore) {
  const auto far_ahead = [](uint64_t number) {
    Batch_Result result;
    result.number = number;
    result.entries.push_back(file(std::string(5u << 20, 'x')));
    return result;
  };
  EXPECT_TRUE(collector_.deliver(far_ahead(1)));
  bool delivered = true;
  std::thread waiting([&] { delivered = collector_.deliver(far_ahead(2)); });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));  // for one that does not wait to be through
  collector_.abort();
  waiting.join();
  EXPECT_FALSE(delivered);
}

TEST_F(Collector, LinkWhoseFirstNameHasNoDataIsSkipped) {
  Batch_Result result;
  result.entries = {file("a"), file("b")};
  result.entries[0].flags = CAT_SKIPPED;
  result.entries[1].hard_link_target = "/source/a";
  result.lost = {"/source/a"};
  EXPECT_TRUE(collector_.deliver(result));
  EXPECT_EQ(collector_.summary().skipped_count, 2u);
}

TEST_F(Collector, FileThatTookTheInodeOfALostOneKeepsItsNames) {
  Batch_Result result;
  result.entries = {file("a"), file("b"), file("c")};
  result.entries[0].flags = CAT_SKIPPED;
  result.entries[2].hard_link_target = "/source/b";
  result.lost = {"/source/a"};
  EXPECT_TRUE(collector_.deliver(result));
  EXPECT_EQ(collector_.summary().skipped_count, 1u);
}

}  // namespace
