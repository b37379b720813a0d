#include "mtf/fs/path_converter.h"

#include "mtf/fs/mkdir_p.h"
#include "support/temp_dir.h"

namespace {

using MTF_FS::create_transform_path_converter;
using MTF_FS::path_transform_rules;

std::string converted(const MTF::IPath_Converter_var& converter, const std::string& path) {
  std::string target = "untouched";
  if (converter->convert(path, target)) return target;
  EXPECT_EQ(target, "untouched");
  return "not restored";
}

std::string convert(const path_transform_rules& rules, const std::string& path, const std::string& root = "/") {
  return converted(create_transform_path_converter(root, rules, false, MTF::IPath_Converter_var()), path);
}

const path_transform_rules rules = {
    {"/data/a", "/target/a"}, {"/data/a/inner", "/elsewhere"}, {"/data/b/", "/target/b/"}};

TEST(PathConverter, ARuleCoversItsPathAndAllBelow) {
  EXPECT_EQ(convert(rules, "/data/a"), "/target/a");
  EXPECT_EQ(convert(rules, "/data/a/"), "/target/a");
  EXPECT_EQ(convert(rules, "/data/a/file"), "/target/a/file");
  EXPECT_EQ(convert(rules, "/data/a/dir/file"), "/target/a/dir/file");
}

TEST(PathConverter, TheLongestRuleCounts) {
  EXPECT_EQ(convert(rules, "/data/a/inner"), "/elsewhere");
  EXPECT_EQ(convert(rules, "/data/a/inner/file"), "/elsewhere/file");
}

TEST(PathConverter, OnlyWholeComponentsMatch) {
  EXPECT_EQ(convert(rules, "/data/a/innermost"), "/target/a/innermost");
  EXPECT_EQ(convert(rules, "/data/ab"), "not restored");
  EXPECT_EQ(convert(rules, "/data/a.b/file"), "not restored");
}

TEST(PathConverter, WithoutARuleNothingIsRestored) {
  EXPECT_EQ(convert(rules, "/data"), "not restored");
  EXPECT_EQ(convert(rules, "/other/file"), "not restored");
  EXPECT_EQ(convert({}, "/data/a"), "not restored");
}

TEST(PathConverter, SeparatorsAtTheEndOfARuleDoNotCount) {
  EXPECT_EQ(convert(rules, "/data/b"), "/target/b");
  EXPECT_EQ(convert(rules, "/data/b/file"), "/target/b/file");
}

TEST(PathConverter, ARuleForTheRootCoversEverything) {
  EXPECT_EQ(convert({{"/", "/target"}}, "/a/b"), "/target/a/b");
  EXPECT_EQ(convert({{"/", "/target"}}, "/"), "/target");
  EXPECT_EQ(convert({{"/", "/"}}, "/a/b"), "/a/b");
  EXPECT_EQ(convert({{"/", "/"}}, "/"), "/");
  EXPECT_EQ(convert({{"/a", "/"}}, "/a/b"), "/b");
  EXPECT_EQ(convert({{"/a", "/"}}, "/a"), "/");
}

TEST(PathConverter, TheResultLiesBelowTheRoot) {
  EXPECT_EQ(convert(rules, "/data/a/file", "/root"), "/root/target/a/file");
  EXPECT_EQ(convert(rules, "/data/a/file", "/root/"), "/root/target/a/file");
  EXPECT_EQ(convert({{"/data", "target"}}, "/data/file", "/root"), "/root/target/file");
}

TEST(PathConverter, PathsThatLeadElsewhereAreNeverRestored) {
  const path_transform_rules all = {{"/", "/target"}};
  for (const std::string& path : {std::string("/data/../etc/passwd"), std::string("/.."), std::string("/data/./x"),
                                  std::string("/."), std::string("/data//x"), std::string("/data/a\0b", 9)})
    EXPECT_EQ(convert(all, path), "not restored") << path;
  EXPECT_EQ(convert(all, "/data/..."), "/target/data/...");
  EXPECT_EQ(convert(all, "/data/..x"), "/target/data/..x");
}

TEST(PathConverter, OthersAreKeptWhereThatIsAskedFor) {
  const MTF::IPath_Converter_var converter =
      create_transform_path_converter("/root", rules, true, MTF::IPath_Converter_var());
  EXPECT_EQ(converted(converter, "/other/file"), "/root/other/file");
  EXPECT_EQ(converted(converter, "/data/a/file"), "/root/target/a/file");
  EXPECT_EQ(converted(converter, "/data/../file"), "not restored");
}

TEST(PathConverter, TheNextOneHasTheLastWord) {
  const MTF::IPath_Converter_var next =
      create_transform_path_converter("/", {{"/target/a/keep", "/kept"}}, false, MTF::IPath_Converter_var());
  const MTF::IPath_Converter_var converter = create_transform_path_converter("/", rules, false, next);
  EXPECT_EQ(converted(converter, "/data/a/keep/file"), "/kept/file");
  EXPECT_EQ(converted(converter, "/data/a/drop"), "not restored");
  std::string base;
  std::string below;
  ASSERT_TRUE(converter->convert_below("/data/a/keep/file", base, below));
  EXPECT_EQ(base, "/");
  EXPECT_EQ(below, "kept/file");
}

TEST(PathConverter, TheTwoPartsJoinToTheWhole) {
  const MTF::IPath_Converter_var converter =
      create_transform_path_converter("/root", rules, false, MTF::IPath_Converter_var());
  std::string base;
  std::string below;
  ASSERT_TRUE(converter->convert_below("/data/a/dir/file", base, below));
  EXPECT_EQ(base, "/root/target/a");
  EXPECT_EQ(below, "dir/file");
  ASSERT_TRUE(converter->convert_below("/data/a", base, below));
  EXPECT_EQ(base, "/root/target/a");
  EXPECT_EQ(below, "");
  EXPECT_FALSE(converter->convert_below("/other", base, below));
}

TEST(MtfMkdirP, MakesAllAndTellsWhyNot) {
  test_support::Temp_Dir dir;
  EXPECT_TRUE(MTF_FS::mkdir_p((dir / "a/b/c").c_str()));
  EXPECT_TRUE(MTF_FS::mkdir_p((dir / "a/b/c").c_str()));
  dir.write("file", "");
  errno = 0;
  EXPECT_FALSE(MTF_FS::mkdir_p((dir / "file/below").c_str()));
  EXPECT_THAT(errno, testing::AnyOf(ENOTDIR, EEXIST));
}

}  // namespace
