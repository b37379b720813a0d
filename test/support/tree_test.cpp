// The judge of all round trips is judged here: each kind of difference must be seen.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cstdlib>

#include "support/temp_dir.h"
#include "support/tree_compare.h"
#include "support/tree_maker.h"

namespace test_support {
namespace {

class TreeCompare : public ::testing::Test {
 protected:
  void SetUp() override {
    Tree_Options options;
    options.files = 150;
    options.bytes = 300'000;
    make_tree(left(), options);
    ASSERT_EQ(std::system(("cp -a " + left() + " " + right()).c_str()), 0);
    victim_ = right() + "/links/first";
  }

  std::string left() const { return dir_ / "left"; }
  std::string right() const { return dir_ / "right"; }
  std::vector<std::string> differences() const { return compare_trees(left(), right()).differences; }

  Temp_Dir dir_;
  std::string victim_;
};

TEST_F(TreeCompare, ACopyWithAllAttributesHasNoDifference) {
  const Tree_Report report = compare_trees(left(), right());
  EXPECT_THAT(report.differences, ::testing::IsEmpty());
  EXPECT_GT(report.entries, 150u);
  EXPECT_GT(report.bytes, 200'000u);
}

TEST_F(TreeCompare, OneChangedByteIsSeenThoughSizeAndTimeAreEqual) {
  struct stat before;
  ASSERT_EQ(stat(victim_.c_str(), &before), 0);
  const int fd = open(victim_.c_str(), O_RDWR);
  char byte = 0;
  ASSERT_EQ(pread(fd, &byte, 1, 4999), 1);
  byte = static_cast<char>(byte ^ 1);
  ASSERT_EQ(pwrite(fd, &byte, 1, 4999), 1);
  const timespec times[2] = {before.st_atim, before.st_mtim};
  ASSERT_EQ(futimens(fd, times), 0);
  close(fd);
  EXPECT_THAT(differences(), ::testing::Contains("./links/first: content"));
}

TEST_F(TreeCompare, OneNanosecondIsSeen) {
  struct stat before;
  ASSERT_EQ(stat(victim_.c_str(), &before), 0);
  const timespec times[2] = {before.st_atim, {before.st_mtim.tv_sec, (before.st_mtim.tv_nsec + 1) % 1'000'000'000}};
  ASSERT_EQ(utimensat(AT_FDCWD, victim_.c_str(), times, 0), 0);
  EXPECT_THAT(differences(), ::testing::Contains("./links/first: time"));
}

TEST_F(TreeCompare, ASpecialModeBitIsSeen) {
  ASSERT_EQ(chmod((right() + "/special/sticky-and-set").c_str(), 0755), 0);
  EXPECT_THAT(differences(), ::testing::Contains("./special/sticky-and-set: mode"));
}

TEST_F(TreeCompare, ABrokenHardLinkIsSeen) {
  const std::string second = right() + "/links/second";
  ASSERT_EQ(std::system(("cp -a " + second + " " + second + ".new && mv " + second + ".new " + second).c_str()), 0);
  EXPECT_THAT(differences(), ::testing::Contains("./links/second: hard link"));
}

TEST_F(TreeCompare, AnotherLinkTargetIsSeen) {
  const std::string link = right() + "/links/dangling";
  ASSERT_EQ(unlink(link.c_str()), 0);
  ASSERT_EQ(symlink("/nowhere/at bll", link.c_str()), 0);
  EXPECT_THAT(differences(), ::testing::Contains("./links/dangling: link target"));
}

TEST_F(TreeCompare, AnAttributeTooManyIsSeen) {
  if (setxattr(victim_.c_str(), "user.more", "1", 1, 0) != 0)
    GTEST_SKIP() << "no extended attributes on this filesystem";
  EXPECT_THAT(differences(), ::testing::Contains("./links/first: extended attributes"));
}

TEST_F(TreeCompare, MissingAndSurplusNamesAreSeen) {
  ASSERT_EQ(unlink((right() + "/special/empty").c_str()), 0);
  ASSERT_EQ(mkdir((right() + "/special/more").c_str(), 0700), 0);
  EXPECT_THAT(differences(),
              ::testing::IsSupersetOf({"./special/empty: only on the left", "./special/more: only on the right"}));
}

TEST_F(TreeCompare, AFileInPlaceOfADirectoryIsSeen) {
  ASSERT_EQ(std::system(("rm -r '" + right() + "/odd' && touch '" + right() + "/odd'").c_str()), 0);
  EXPECT_THAT(differences(), ::testing::Contains("./odd: type"));
}

TEST_F(TreeCompare, ATreeThatIsNotThereIsADifference) {
  EXPECT_EQ(compare_trees(left(), dir_ / "none").differences.size(), 1u);
}

}  // namespace
}  // namespace test_support
