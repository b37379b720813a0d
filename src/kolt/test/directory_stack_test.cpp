#include "kolt/directory_stack.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "kolt/test/deep_tree.h"
#include "support/temp_dir.h"

namespace {

using kolt::Directory_Stack;
using test_support::Temp_Dir;

ino_t inode(int fd) {
  struct stat status = {};
  EXPECT_EQ(fstat(fd, &status), 0);
  return status.st_ino;
}

TEST(Directory_Stack, GoesDownAndComesBackToTheSameDirectories) {
  const Temp_Dir dir;
  make_deep_tree(dir.path(), "d", 10);
  Directory_Stack stack(3);
  ASSERT_TRUE(stack.open(dir.path().c_str()));
  std::vector<ino_t> way = {inode(stack.fd())};
  while (stack.enter("d")) way.push_back(inode(stack.fd()));
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(stack.depth(), 11u);
  for (std::size_t i = way.size() - 1; i > 0; --i) {
    EXPECT_EQ(inode(stack.fd()), way[i]);
    ASSERT_TRUE(stack.leave());
  }
  EXPECT_EQ(inode(stack.fd()), way[0]);
  EXPECT_FALSE(stack.leave());
  EXPECT_EQ(stack.fd(), -1);
}

TEST(Directory_Stack, FailureToEnterChangesNothing) {
  const Temp_Dir dir;
  dir.write("file", "");
  ASSERT_EQ(symlink("/", (dir / "link").c_str()), 0);
  Directory_Stack stack;
  ASSERT_TRUE(stack.open(dir.path().c_str()));
  for (const char* name : {"file", "link", "none"}) EXPECT_FALSE(stack.enter(name)) << name;
  EXPECT_EQ(stack.depth(), 1u);
}

TEST(Directory_Stack, MovedTreeLeadsNowhereElse) {
  const Temp_Dir dir;
  make_deep_tree(dir.path(), "d", 6);
  dir.write("elsewhere/file", "");
  Directory_Stack stack(2);
  ASSERT_TRUE(stack.open(dir.path().c_str()));
  for (int i = 0; i < 4; ++i) ASSERT_TRUE(stack.enter("d"));
  ASSERT_EQ(rename((dir / "d/d/d").c_str(), (dir / "elsewhere/d").c_str()), 0);
  EXPECT_TRUE(stack.leave());  // still open
  errno = 0;
  EXPECT_FALSE(stack.leave());
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(stack.depth(), 0u);
}

TEST(Directory_Stack, MissingRootIsAnError) {
  Directory_Stack stack;
  EXPECT_FALSE(stack.open("/nowhere/at/all"));
  EXPECT_EQ(errno, ENOENT);
  EXPECT_FALSE(stack.leave());
}

}  // namespace
