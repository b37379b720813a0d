#include "kolt/mount_table.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char mountinfo[] =
    "21 1 8:1 / / rw,relatime shared:1 - ext4 /dev/sda1 rw\n"
    "22 21 0:20 / /proc rw - proc proc rw\n"
    "30 21 8:1 /src /data/a rw,relatime shared:1 - ext4 /dev/sda1 rw\n"
    "31 30 8:1 /src/x /data/a/x/y ro master:7 - ext4 /dev/sda1 rw\n"
    "32 21 8:1 /src /data/b\\040c\\011\\012\\134d rw - ext4 /dev/sda1 rw\n"
    "33 30 8:1 /other /data/a rw - ext4 /dev/sda1 rw\n"
    "34 21 8:1 /src /database rw - ext4 /dev/sda1 rw\n"
    "35 21 8:1 /src /data rw - ext4 /dev/sda1 rw\n";

TEST(Parse_Mounts_Below, GivesTheDeepestFirstAndStackedOnesEach) {
  EXPECT_THAT(parse_mounts_below(mountinfo, "/data"),
              ElementsAre("/data/a/x/y", "/data/a", "/data/b c\t\n\\d", "/data/a"));
}

TEST(Parse_Mounts_Below, SeparatorAtTheEndDoesNotMatter) {
  EXPECT_EQ(parse_mounts_below(mountinfo, "/data//"), parse_mounts_below(mountinfo, "/data"));
}

TEST(Parse_Mounts_Below, RootIsAboveAllOthers) {
  EXPECT_EQ(parse_mounts_below(mountinfo, "/").size(), 7u);
}

TEST(Parse_Mounts_Below, NeighbourWithTheSameBeginningIsNotBelow) {
  EXPECT_THAT(parse_mounts_below(mountinfo, "/dat"), IsEmpty());
}

TEST(Parse_Mounts_Below, MountOnTheDirectoryItselfIsNotBelow) {
  EXPECT_THAT(parse_mounts_below(mountinfo, "/database"), IsEmpty());
}

TEST(Parse_Mounts_Below, BrokenLinesArePassedOver) {
  EXPECT_THAT(parse_mounts_below("\n1 2\nx x x x\n1 2 3 4 /data/a", "/data"), ElementsAre("/data/a"));
  EXPECT_THAT(parse_mounts_below("1 2 3 4 /data/a\\04", "/data"), ElementsAre("/data/a\\04"));
  EXPECT_THAT(parse_mounts_below("", "/data"), IsEmpty());
}

TEST(Mounts_Below, FindsProcWithoutAMissingDirectory) {
  std::vector<std::string> mounts = {"old"};
  ASSERT_TRUE(mounts_below("/nowhere/at/all", mounts));
  EXPECT_THAT(mounts, IsEmpty());
  ASSERT_TRUE(mounts_below("/", mounts));
  EXPECT_THAT(mounts, testing::Contains("/proc"));
}

Mount_Of mount_of(std::string_view path) {
  Mount_Of mount;
  EXPECT_TRUE(parse_mount_of(mountinfo, path, mount));
  return mount;
}

TEST(Parse_Mount_Of, GivesTheLongestMountPointAbovePath) {
  EXPECT_EQ(mount_of("/data/a/x/y/z").point, "/data/a/x/y");
  EXPECT_EQ(mount_of("/data/a/x").point, "/data/a");
  EXPECT_EQ(mount_of("/database").point, "/database");
  EXPECT_EQ(mount_of("/databases").point, "/");
}

TEST(Parse_Mount_Of, SharedMountsAndSlavesReceive) {
  EXPECT_TRUE(mount_of("/home").receives);
  EXPECT_TRUE(mount_of("/data/a/x/y").receives);
  EXPECT_FALSE(mount_of("/data/c").receives);
}

TEST(Parse_Mount_Of, OfStackedMountsTheLastOneCounts) {
  EXPECT_FALSE(mount_of("/data/a").receives);
}

TEST(Parse_Mount_Of, WithoutALineThatFitsNothingIsFilledIn) {
  Mount_Of mount{"/before", true};
  EXPECT_FALSE(parse_mount_of("", "/data", mount));
  EXPECT_EQ(mount.point, "/before");
}

}  // namespace
