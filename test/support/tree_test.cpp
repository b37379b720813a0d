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

TEST_F(TreeCompare, HolesThatWereFilledAreSeen) {
  const std::string file = left() + "/holes";
  ASSERT_EQ(close(open(file.c_str(), O_CREAT | O_WRONLY, 0644)), 0);
  ASSERT_EQ(truncate(file.c_str(), 1 << 20), 0);
  ASSERT_EQ(std::system(("cp -a --sparse=never " + file + " " + right() + "/holes").c_str()), 0);
  EXPECT_THAT(differences(), ::testing::Contains("./holes: holes"));
}

TEST_F(TreeCompare, OneByteInAHugeHoleIsSeen) {
  for (const std::string& tree : {left(), right()}) {
    const int fd = open((tree + "/huge").c_str(), O_CREAT | O_WRONLY, 0644);
    ASSERT_EQ(ftruncate(fd, off_t(1) << 40), 0);
    ASSERT_EQ(pwrite(fd, tree == left() ? "a" : "b", 1, off_t(1) << 39), 1);
    close(fd);
  }
  EXPECT_THAT(differences(), ::testing::Contains("./huge: content"));
}

TEST_F(TreeCompare, AnAccessListIsSeen) {
  // Version 2; owner rw, user 7 r, group r, mask r, others nothing.
  const std::string list(
      "\x02\0\0\0"
      "\x01\0\x06\0\xff\xff\xff\xff"
      "\x02\0\x04\0\x07\0\0\0"
      "\x04\0\x04\0\xff\xff\xff\xff"
      "\x10\0\x04\0\xff\xff\xff\xff"
      "\x20\0\0\0\xff\xff\xff\xff",
      44);
  if (setxattr(victim_.c_str(), "system.posix_acl_access", list.data(), list.size(), 0) != 0)
    GTEST_SKIP() << "no access lists on this filesystem";
  EXPECT_THAT(differences(), ::testing::Contains("./links/first: extended attributes"));
}

TEST_F(TreeCompare, ATreeThatIsNotThereIsADifference) {
  EXPECT_EQ(compare_trees(left(), dir_ / "none").differences.size(), 1u);
}

}  // namespace
}  // namespace test_support
