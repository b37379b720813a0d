#include "kolt/path.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>

#include "kolt/dir_size.h"
#include "support/temp_dir.h"

namespace {

using kolt::Path;

TEST(Path, JoinsWithOneSeparator) {
  EXPECT_EQ(Path("a", "b", '/', false).str(), "a/b");
}

TEST(Path, TakesUpToSixComponents) {
  EXPECT_EQ(Path("a", '/', false).str(), "a");
  EXPECT_EQ(Path("a", "b", "c", '/', false).str(), "a/b/c");
  EXPECT_EQ(Path("a", "b", "c", "d", '/', false).str(), "a/b/c/d");
  EXPECT_EQ(Path("a", "b", "c", "d", "e", '/', false).str(), "a/b/c/d/e");
  EXPECT_EQ(Path("a", "b", "c", "d", "e", "f", '/', false).str(), "a/b/c/d/e/f");
}

TEST(Path, TakesBothKindsOfString) {
  const std::string name = "pod";
  EXPECT_EQ(kolt::Path_T<char>(name, "log", '/', false).str(), "pod/log");
}

TEST(Path, SeparatorsAtTheJointBecomeOne) {
  EXPECT_EQ(Path("a/", "b", '/', false).str(), "a/b");
  EXPECT_EQ(Path("a", "/b", '/', false).str(), "a/b");
  EXPECT_EQ(Path("a//", "//b", '/', false).str(), "a/b");
}

TEST(Path, RootStaysRoot) {
  EXPECT_EQ(Path("/", "b", '/', false).str(), "/b");
  EXPECT_EQ(Path("/api", "v1", '/', false).str(), "/api/v1");
}

TEST(Path, SeparatorAtTheEndStays) {
  EXPECT_EQ(Path("a", "b/", '/', false).str(), "a/b/");
}

TEST(Path, EmptyComponentAddsNothing) {
  EXPECT_EQ(Path("a", "", "b", '/', false).str(), "a/b");
  EXPECT_EQ(Path("", "b", '/', false).str(), "b");
  EXPECT_EQ(Path("a", "", '/', false).str(), "a");
  EXPECT_EQ(Path("a", static_cast<const char*>(nullptr), '/', false).str(), "a");
}

TEST(Path, SeparatorAloneEndsTheComponentBefore) {
  EXPECT_EQ(Path("a", "/", "b", '/', false).str(), "a/b");
}

TEST(Path, OtherSeparatorsWork) {
  EXPECT_EQ(Path("a.", "b/", ".c", '.', false).str(), "a.b/.c");
}

TEST(Path, AppendsWithTheShiftOperator) {
  Path path("/apis", '/', false);
  path << "apps" << std::string("v1") << ""
       << "/namespaces/";
  EXPECT_EQ(path.str(), "/apis/apps/v1/namespaces/");
}

TEST(Path, JoinAppendsInOrder) {
  Path path("a", '/', false);
  EXPECT_EQ(&path.join("b", std::string("c")), &path);
  EXPECT_STREQ(path.c_str(), "a/b/c");
  EXPECT_EQ(path.size(), 5u);
}

TEST(Path, DollarIsPlainTextWithoutExpansion) {
  EXPECT_EQ(Path("$HOME", "${x}", '/', false).str(), "$HOME/${x}");
}

TEST(Path, ExpandsVariables) {
  setenv("KOLT_PATH_TEST", "/var/x/", 1);
  unsetenv("KOLT_PATH_UNSET");
  EXPECT_EQ(Path("$KOLT_PATH_TEST", "a-${KOLT_PATH_TEST}", '/', true).str(), "/var/x/a-/var/x/");
  EXPECT_EQ(Path("a", "$KOLT_PATH_UNSET", "b", '/', true).str(), "a/b");
  EXPECT_EQ(Path("5$", "${", "$.x", '/', true).str(), "5$/${/$.x");
}

TEST(Path, AssignmentKeepsTheSeparator) {
  Path path("a", "b", '.', false);
  path = "c";
  path << "d";
  EXPECT_EQ(path.str(), "c.d");
  path = Path("x", "y", '/', false);
  path << "z";
  EXPECT_EQ(path.str(), "x/y.z");
}

TEST(Path, AssignmentOfItsOwnTextIsHarmless) {
  Path path("abc", "def", '/', false);
  path = path.c_str() + 4;
  EXPECT_EQ(path.str(), "def");
}

TEST(Path, ClearsAndCuts) {
  Path path("abc", "def", '/', false);
  path.resize(3);
  EXPECT_EQ(path.str(), "abc");
  EXPECT_FALSE(path.empty());
  path.clear();
  EXPECT_TRUE(path.empty());
}

TEST(Path, TemporaryGivesItsTextAway) {
  const std::string part(100, 'p');
  Path path(part, '/', false);
  const char* before = path.c_str();
  const std::string text = std::move(path).str();
  EXPECT_EQ(text.c_str(), before);
}

TEST(Path, MkdirMakesParentsToo) {
  const test_support::Temp_Dir dir;
  const Path path(dir.path(), "a", "b", '/', false);
  EXPECT_TRUE(path.mkdir(0750));
  EXPECT_TRUE(is_directory(path.c_str()));
  EXPECT_TRUE(path.mkdir(0750));
}

TEST(Path, JoinRandomAppendsANameThatIsFree) {
  const test_support::Temp_Dir dir;
  Path one(dir.path(), '/', false), other(dir.path(), '/', false);
  bool ok = false;
  one.join_random(&ok);
  EXPECT_TRUE(ok);
  other.join_random(nullptr);
  EXPECT_NE(one.str(), other.str());
  EXPECT_TRUE(one.str().starts_with(dir.path() + "/"));
  EXPECT_FALSE(is_directory(one.c_str()));
}

TEST(Path, JoinRandomSaysWhenNothingCanBeThere) {
  const test_support::Temp_Dir dir;
  Path path(dir.write("file", ""), '/', false);
  const std::string before = path.str();
  bool ok = true;
  path.join_random(&ok);
  EXPECT_FALSE(ok);
  EXPECT_EQ(path.str(), before);
}

TEST(Basename, IsTheLastComponent) {
  EXPECT_EQ(kolt::basename("/var/cache/data", '/'), "data");
  EXPECT_EQ(kolt::basename("data", '/'), "data");
  EXPECT_EQ(kolt::basename("/data", '/'), "data");
  EXPECT_EQ(kolt::basename("a.b.c", '.'), "c");
}

TEST(Basename, LeavesTrailingSeparatorsOut) {
  EXPECT_EQ(kolt::basename("/var/data//", '/'), "data");
}

TEST(Basename, OfNothingIsEmpty) {
  EXPECT_EQ(kolt::basename("", '/'), "");
  EXPECT_EQ(kolt::basename("//", '/'), "");
}

}  // namespace
