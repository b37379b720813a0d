#include "mtf_backup/backup/link_table.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <functional>

namespace {

using MTF::Timestamp;
using MTF_BACKUP::Link_Table;

constexpr Timestamp birth{800, 1};

/// Names of a file with three.
class Links : public ::testing::Test {
 protected:
  MTF::Entry_Stat stat_{S_IFREG | 0640, 1, 2, 0, 4, 5, 3, 7, {900, 1}, {901, 2}, {902, 3}};
  Link_Table table_;
};

TEST_F(Links, FurtherNamesAreTheFirstOnes) {
  EXPECT_EQ(table_.first_name(stat_, birth, "/a"), "");
  EXPECT_EQ(table_.first_name(stat_, birth, "/b"), "/a");
  EXPECT_EQ(table_.first_name(stat_, birth, "/c"), "/a");
  EXPECT_EQ(table_.first_name(stat_, birth, "/d"), "") << "all were seen";
}

TEST_F(Links, FilesOfOtherInodesAreOthers) {
  MTF::Entry_Stat inode = stat_, filesystem = stat_;
  ++inode.ino;
  ++filesystem.dev;
  EXPECT_EQ(table_.first_name(stat_, birth, "/a"), "");
  EXPECT_EQ(table_.first_name(inode, birth, "/b"), "");
  EXPECT_EQ(table_.first_name(filesystem, birth, "/c"), "");
}

TEST_F(Links, FileThatTookTheInodeOfADeletedOneIsAnother) {
  EXPECT_EQ(table_.first_name(stat_, birth, "/a"), "");
  EXPECT_EQ(table_.first_name(stat_, Timestamp{800, 2}, "/b"), "");
  EXPECT_EQ(table_.first_name(stat_, Timestamp{800, 2}, "/c"), "/b");
  stat_.mode = S_IFLNK | 0777;
  EXPECT_EQ(table_.first_name(stat_, Timestamp{800, 2}, "/d"), "");
}

TEST_F(Links, FileThatChangesKeepsItsNamesWhereItsBirthIsKnown) {
  EXPECT_EQ(table_.first_name(stat_, birth, "/a"), "");
  ++stat_.size;
  stat_.mtime = stat_.ctime = {1000, 0};
  stat_.nlink = 4;
  EXPECT_EQ(table_.first_name(stat_, birth, "/b"), "/a");
}

TEST_F(Links, WithoutABirthWhatHasChangedIsAnotherFile) {
  const std::function<void(MTF::Entry_Stat&)> changes[] = {
      [](auto& stat) { ++stat.size; }, [](auto& stat) { ++stat.mtime.nsec; }, [](auto& stat) { ++stat.ctime.nsec; }};
  for (const auto& change : changes) {
    Link_Table table;
    EXPECT_EQ(table.first_name(stat_, {}, "/a"), "");
    EXPECT_EQ(table.first_name(stat_, {}, "/b"), "/a");
    MTF::Entry_Stat changed = stat_;
    change(changed);
    EXPECT_EQ(table.first_name(changed, {}, "/c"), "");
    EXPECT_EQ(table.first_name(changed, {}, "/d"), "/c");
  }
}

}  // namespace
