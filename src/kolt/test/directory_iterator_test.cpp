#include "kolt/directory_iterator.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <set>
#include <thread>

#include "kolt/string_sprintf.h"
#include "kolt/test/as_nobody.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace {

using test_support::Log_Capture;
using test_support::Temp_Dir;
using testing::ElementsAre;
using testing::IsEmpty;

template <typename Range>
std::set<std::string> names(const Range& range) {
  std::set<std::string> found;
  for (const auto& entry : range) found.insert(entry.name);
  return found;
}

TEST(Directory_Iterator, WalksAllEntriesButSelfAndParent) {
  const Temp_Dir dir;
  dir.write("file", "12345");
  dir.write(".hidden", "");
  dir.write("sub/inner", "");
  EXPECT_THAT(names(iterate_directory(dir.path().c_str())), ElementsAre(".hidden", "file", "sub"));
}

TEST(Directory_Iterator, EntryHoldsItsStatus) {
  const Temp_Dir dir;
  dir.write("file", "12345");
  const Directory_Iterator it(dir.path().c_str(), false, 0);
  ASSERT_NE(it, Directory_Iterator());
  EXPECT_EQ(it->stat.st_size, 5);
  EXPECT_TRUE(S_ISREG((*it).stat.st_mode));
  EXPECT_EQ(it->reparse_types, 0u);
}

TEST(Directory_Iterator, LinkIsNotFollowed) {
  const Temp_Dir dir;
  ASSERT_EQ(symlink("/", (dir / "link").c_str()), 0);
  ASSERT_EQ(symlink("nowhere", (dir / "dangling").c_str()), 0);
  int links = 0;
  for (const auto& entry : iterate_directory(dir.path().c_str())) links += S_ISLNK(entry.stat.st_mode);
  EXPECT_EQ(links, 2);
}

TEST(Directory_Iterator, DirectoryBehindALinkIsOpened) {
  const Temp_Dir dir;
  dir.write("real/file", "");
  ASSERT_EQ(symlink("real", (dir / "link").c_str()), 0);
  EXPECT_THAT(names(iterate_directory((dir / "link").c_str())), ElementsAre("file"));
}

TEST(Directory_Iterator, NamesAreAnyBytes) {
  const Temp_Dir dir;
  const std::string name = "new\nline \xff" + std::string(200, 'n');
  dir.write(name, "");
  EXPECT_THAT(names(iterate_directory(dir.path().c_str())), ElementsAre(name));
}

TEST(Directory_Iterator, EmptyDirectoryYieldsNothingAndLogsNothing) {
  const Temp_Dir dir;
  Log_Capture log;
  const Directory_Iterator it(dir.path().c_str(), false, 0);
  EXPECT_EQ(it, Directory_Iterator());
  EXPECT_FALSE(!it);  // it was opened
  EXPECT_EQ(it.last_error(), 0);
  EXPECT_THAT(names(iterate_directory(dir.path().c_str())), IsEmpty());
  EXPECT_EQ(log.all(), "");
}

TEST(Directory_Iterator, MissingDirectoryIsTheEndAtOnce) {
  const Temp_Dir dir;
  Log_Capture log;
  errno = 0;
  const Directory_Iterator it((dir / "none").c_str(), false, 0);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(it, Directory_Iterator());
  EXPECT_TRUE(!it);
  EXPECT_EQ(log.all(), "");
}

TEST(Directory_Iterator, FileIsNoDirectory) {
  const Temp_Dir dir;
  EXPECT_TRUE(!Directory_Iterator(dir.write("file", "").c_str(), false, 0));
}

TEST(Directory_Iterator, NullPathIsTheEnd) {
  EXPECT_TRUE(!Directory_Iterator(nullptr, false, 0));
}

TEST(Directory_Iterator, DirectoryWhoseEntriesCannotBeExaminedFailsToOpen) {
  const Temp_Dir dir;
  dir.write("sub/file", "");
  ASSERT_EQ(chmod(dir.path().c_str(), 0755), 0);
  ASSERT_EQ(chmod((dir / "sub").c_str(), 0444), 0);
  {
    const As_Nobody nobody;
    errno = 0;
    const Directory_Iterator it((dir / "sub").c_str(), false, 0);
    EXPECT_EQ(errno, EACCES);
    EXPECT_TRUE(!it);
  }
  ASSERT_EQ(chmod((dir / "sub").c_str(), 0755), 0);
}

TEST(Directory_Iterator, PatternChoosesNames) {
  const Temp_Dir dir;
  for (const char* name : {"a.txt", "b.txt", "c.bin"}) dir.write(name, "");
  EXPECT_THAT(names(iterate_directory(Directory_Iterator(dir.path().c_str(), "*.txt", false, 0))),
              ElementsAre("a.txt", "b.txt"));
  EXPECT_THAT(names(iterate_directory(Directory_Iterator(dir.path().c_str(), nullptr, false, 0))),
              ElementsAre("a.txt", "b.txt", "c.bin"));
}

TEST(Directory_Iterator, CopiesWalkTheSameStream) {
  const Temp_Dir dir;
  dir.write("a", "");
  dir.write("b", "");
  Directory_Iterator it(dir.path().c_str(), false, 0);
  const Directory_Iterator copy = it;
  const std::string first = copy->name;
  ++it;
  EXPECT_NE(copy->name, first);
  EXPECT_EQ(it, copy);
  it++;
  EXPECT_EQ(copy, Directory_Iterator());
}

TEST(Directory_Iterator, EqualityLooksAtTheEndOnly) {
  const Temp_Dir dir;
  dir.write("a", "");
  Directory_Iterator one(dir.path().c_str(), false, 0), other(dir.path().c_str(), false, 0);
  EXPECT_NE(one, other);
  EXPECT_NE(one, Directory_Iterator());
  EXPECT_NE(Directory_Iterator(), one);
  ++one;
  EXPECT_NE(one, other);
  EXPECT_EQ(one, Directory_Iterator());
  EXPECT_EQ(Directory_Iterator(), one);
  ++other;
  EXPECT_EQ(one, other);
}

TEST(Directory_Iterator, EndCanBeAdvanced) {
  Directory_Iterator end;
  ++end;
  EXPECT_EQ(end, Directory_Iterator());
  EXPECT_EQ(end.last_error(), 0);
}

TEST(Directory_Iterator, EntriesThatVanishAreLeftOut) {
  const Temp_Dir dir;
  for (int i = 0; i < 100; ++i) dir.write("stays-" + std::to_string(i), "");
  std::atomic<bool> stop = false;
  std::thread churn([&] {
    while (!stop)
      for (int i = 0; i < 100; ++i) {
        const std::string name = dir.write("goes-" + std::to_string(i), "");
        unlink(name.c_str());
      }
  });
  for (int i = 0; i < 200; ++i) {
    Directory_Iterator it(dir.path().c_str(), false, 0);
    long stayed = 0;
    for (; it != Directory_Iterator(); ++it) stayed += it->name.starts_with("stays-");
    EXPECT_EQ(it.last_error(), 0);
    EXPECT_EQ(stayed, 100);
  }
  stop = true;
  churn.join();
}

TEST(Directory_Reader, KeepsTheErrorOfOpening) {
  Directory_Reader reader;
  EXPECT_EQ(reader.last_error(), 0);
  EXPECT_FALSE(reader.open("/nowhere/at/all", nullptr, false, 0));
  EXPECT_EQ(reader.last_error(), ENOENT);
  Directory_Entry entry;
  EXPECT_FALSE(reader.read(entry));
}

TEST(Directory_Reader, OpensAgain) {
  const Temp_Dir dir;
  dir.write("a/one", "");
  dir.write("b/two", "");
  Directory_Reader reader;
  Directory_Entry entry;
  ASSERT_TRUE(reader.open((dir / "a").c_str(), nullptr, false, 0));
  ASSERT_TRUE(reader.read(entry));
  ASSERT_TRUE(reader.open((dir / "b").c_str(), nullptr, false, 0));
  ASSERT_TRUE(reader.read(entry));
  EXPECT_EQ(entry.name, "two");
  EXPECT_FALSE(reader.read(entry));
  EXPECT_EQ(reader.last_error(), 0);
}

}  // namespace
