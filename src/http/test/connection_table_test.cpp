#include "http/connection_table.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class Connection_Table_Test : public testing::Test {
 protected:
  Connection_Table::Id admit(Connection_Table& table, const std::string& peer, const std::string& name) {
    return table.admit(peer, [this, name] { closed_.push_back(name); });
  }
  std::vector<std::string> closed_;
};

TEST_F(Connection_Table_Test, LongestWaitingGivesWayWhenAllPlacesAreTaken) {
  Connection_Table table(2, 9);
  admit(table, "p", "first");
  admit(table, "p", "second");
  EXPECT_NE(0u, admit(table, "p", "third"));
  EXPECT_THAT(closed_, ElementsAre("first"));
  EXPECT_EQ(2u, table.size());
}

TEST_F(Connection_Table_Test, BusyOneDoesNotGiveWay) {
  Connection_Table table(2, 9);
  const auto first = admit(table, "p", "first");
  admit(table, "p", "second");
  table.busy(first);
  admit(table, "p", "third");
  EXPECT_THAT(closed_, ElementsAre("second"));
}

TEST_F(Connection_Table_Test, OneThatWaitsAgainStandsBehindTheOthers) {
  Connection_Table table(2, 9);
  const auto first = admit(table, "p", "first");
  admit(table, "p", "second");
  table.busy(first);
  table.waiting(first);
  admit(table, "p", "third");
  EXPECT_THAT(closed_, ElementsAre("second"));
}

TEST_F(Connection_Table_Test, NewOneIsRefusedWhenAllAreBusy) {
  Connection_Table table(1, 9);
  table.busy(admit(table, "p", "first"));
  EXPECT_EQ(0u, admit(table, "p", "second"));
  EXPECT_THAT(closed_, IsEmpty());
}

TEST_F(Connection_Table_Test, PeerThatHasItsSharePushesOutItsOwn) {
  Connection_Table table(9, 1);
  admit(table, "other", "other");
  admit(table, "p", "first");
  admit(table, "p", "second");
  EXPECT_THAT(closed_, ElementsAre("first"));
}

TEST_F(Connection_Table_Test, PlaceThatIsGivenBackIsFree) {
  Connection_Table table(1, 1);
  const auto first = admit(table, "p", "first");
  table.busy(first);
  table.leave(first);
  table.leave(first);
  EXPECT_NE(0u, admit(table, "p", "second"));
  EXPECT_THAT(closed_, IsEmpty());
}

TEST_F(Connection_Table_Test, CloseAllEndsEachOnce) {
  Connection_Table table(9, 9);
  admit(table, "p", "first");
  table.busy(admit(table, "p", "second"));
  table.close_all();
  table.close_all();
  EXPECT_THAT(closed_, ElementsAre("first", "second"));
  EXPECT_EQ(0u, table.size());
}

}  // namespace
