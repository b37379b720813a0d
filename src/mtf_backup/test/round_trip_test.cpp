#include <fcntl.h>
#include <sys/stat.h>

#include "mtf_backup/test/mover_fixture.h"
#include "support/tree_maker.h"

using namespace mover_test;
using test_support::Log_Capture;

namespace {

/// Compression method and number of channels.
class Round_Trip : public Mover_Fixture, public ::testing::WithParamInterface<std::pair<unsigned, size_t>> {
 protected:
  void expect_round_trip() {
    Log_Capture log;
    ASSERT_TRUE(back_up({.compression = GetParam().first, .channels = GetParam().second})) << log.all();
    ASSERT_TRUE(restore({.threads = GetParam().second + 1})) << log.all();
    EXPECT_EQ("", differences());
    EXPECT_EQ("", log.all());
  }
};

INSTANTIATE_TEST_SUITE_P(Methods, Round_Trip,
                         ::testing::Values(std::pair<unsigned, size_t>(COMPR_NONE, 1),
                                           std::pair<unsigned, size_t>(COMPR_NONE, 3),
                                           std::pair<unsigned, size_t>(COMPR_LZOP, 2),
                                           std::pair<unsigned, size_t>(COMPR_ZSTD, 2),
                                           std::pair<unsigned, size_t>(COMPR_AUTO, 2)));

TEST_P(Round_Trip, EntriesOfAllKindsComeBackEqual) {
  test_support::make_tree(source_, {.files = 700, .bytes = 6'000'000});
  expect_round_trip();
}

TEST_P(Round_Trip, FilesLargerThanFramesComeBackEqual) {
  for (const size_t size : {1u << 20, (1u << 20) - 1, 5u << 20, (9u << 20) + 12345}) {
    write("noise-" + std::to_string(size), noise(size, static_cast<unsigned>(size)));
    write("same-" + std::to_string(size), std::string(size, 'x'));
  }
  expect_round_trip();
}

class Restored : public Mover_Fixture {};

TEST_F(Restored, TreeDeeperThanAPathMayBe) {
  const std::string name(200, 'd');
  int at = open(source_.c_str(), O_DIRECTORY);
  for (int level = 0; level < 60; ++level) {
    ASSERT_EQ(0, mkdirat(at, name.c_str(), 0755));
    const int next = openat(at, name.c_str(), O_DIRECTORY);
    close(at);
    at = next;
  }
  const int file = openat(at, "leaf", O_CREAT | O_WRONLY, 0640);
  ASSERT_EQ(4, ::write(file, "deep", 4));
  close(file);
  close(at);
  ASSERT_TRUE(back_up({.channels = 2}));
  ASSERT_TRUE(restore());

  at = open(target_.c_str(), O_DIRECTORY);
  for (int level = 0; level < 60; ++level) {
    const int next = openat(at, name.c_str(), O_DIRECTORY);
    close(at);
    at = next;
  }
  char text[5] = {};
  const int back = openat(at, "leaf", O_RDONLY);
  EXPECT_EQ(4, ::read(back, text, 4));
  EXPECT_STREQ("deep", text);
  close(back);
  close(at);
}

TEST_F(Restored, TwoSourcesGoWhereTheirRulesSay) {
  write("a", "one");
  dir_.write("other/b", "two");
  ASSERT_TRUE(back_up({.sources = {source_, dir_ / "other"}}));
  ASSERT_TRUE(restore(
      {.select = {source_, dir_ / "other"}, .rules = {{source_, target_ + "/1"}, {dir_ / "other", target_ + "/2"}}}));
  EXPECT_EQ("one", test_support::read_file(target_ + "/1/a"));
  EXPECT_EQ("two", test_support::read_file(target_ + "/2/b"));
}

TEST_F(Restored, OnlyWhatIsSelectedComesBack) {
  write("keep/a", "one");
  write("keeper/b", "two");
  write("other/c", "three");
  ASSERT_TRUE(back_up());
  ASSERT_TRUE(restore({.select = {source_ + "/keep"}}));
  EXPECT_EQ("one", test_support::read_file(target_ + "/keep/a"));
  EXPECT_FALSE(std::filesystem::exists(target_ + "/keeper"));
  EXPECT_FALSE(std::filesystem::exists(target_ + "/other"));
  EXPECT_EQ(3u, size_);
}

TEST_F(Restored, OneFileComesBackWithTheDirectoriesAboveIt) {
  write("d/e/a", "one");
  write("d/e/b", "two");
  ASSERT_TRUE(back_up());
  ASSERT_TRUE(restore({.select = {source_ + "/d/e/b"}}));
  EXPECT_EQ("two", test_support::read_file(target_ + "/d/e/b"));
  EXPECT_FALSE(std::filesystem::exists(target_ + "/d/e/a"));
}

TEST_F(Restored, RuleForOneFileGivesItAnotherName) {
  write("d/a", "one");
  ASSERT_TRUE(back_up());
  ASSERT_TRUE(restore({.select = {source_ + "/d/a"}, .rules = {{source_ + "/d/a", target_ + "/renamed"}}}));
  EXPECT_EQ("one", test_support::read_file(target_ + "/renamed"));
}

TEST_F(Restored, EntryWithoutARuleStaysAway) {
  write("d/a", "one");
  write("e/b", "two");
  ASSERT_TRUE(back_up());
  ASSERT_TRUE(restore({.rules = {{source_ + "/d", target_}}}));
  EXPECT_TRUE(std::filesystem::exists(target_ + "/a"));
  EXPECT_FALSE(std::filesystem::exists(target_ + "/b"));
}

TEST_F(Restored, SelectionOfNothingIsACodeAndNoError) {
  write("a", "one");
  ASSERT_TRUE(back_up());
  Log_Capture log;
  EXPECT_FALSE(restore({.select = {source_ + "/nowhere"}}));
  EXPECT_EQ(MTF::E_NO_FILES_RESTORED, code_);
  EXPECT_EQ(0u, size_);
  EXPECT_TRUE(log.texts(LM_ERROR).empty()) << log.all();
}

TEST_F(Restored, ElementWithoutDirIsRefused) {
  write("a", "one");
  ASSERT_TRUE(back_up());
  json_spirit::Array select;
  select.push_back(json_spirit::Object());
  MTF_Restore restore(MTF::Event_Handler_var(nullptr), ACE_Log_Msg_Callback_var());
  restore.restore_select(&select);
  restore.callback_factory(MTF::IRestore_Callback_Factory_var(new Posix_Restore_Factory));
  restore.channel_factory(std::make_shared<Memory_Channel_Factory>(pool_));
  Log_Capture log;
  EXPECT_FALSE(restore.restore("volume"));
  EXPECT_EQ(MTF::E_FAILED, restore.err_code());
  EXPECT_TRUE(log.has(LM_ERROR, "Failed to start the restore: an element of the selection has no dir.\n"));
}

TEST_F(Restored, MissingSetIsTold) {
  Log_Capture log;
  EXPECT_FALSE(restore({.seq = 5}));
  EXPECT_EQ(MTF::E_NOT_FOUND, code_);
  EXPECT_TRUE(log.has(LM_ERROR, "There is no set volume with number 5, incarnation 0.\n")) << log.all();
}

TEST_F(Restored, IncarnationsAreToldApart) {
  write("a", "one");
  ASSERT_TRUE(back_up());
  write("a", "other");
  ASSERT_TRUE(back_up());
  ASSERT_TRUE(restore({.incarnation = 1}));
  EXPECT_EQ("one", test_support::read_file(target_ + "/a"));
  ASSERT_TRUE(restore({.incarnation = 2}));
  EXPECT_EQ("other", test_support::read_file(target_ + "/a"));
  ASSERT_TRUE(restore({.incarnation = 0}));
  EXPECT_EQ("other", test_support::read_file(target_ + "/a"));
}

TEST_F(Restored, MissingIncarnationIsNotFound) {
  write("a", "one");
  ASSERT_TRUE(back_up());
  Log_Capture log;
  EXPECT_FALSE(restore({.incarnation = 2}));
  EXPECT_EQ(MTF::E_NOT_FOUND, code_);
}

TEST_F(Restored, EmptySetRestoresItsRoot) {
  ASSERT_FALSE(back_up());
  chmod(source_.c_str(), 0750);
  EXPECT_TRUE(restore());
}

TEST_F(Restored, ExistingFileIsReplacedAndOthersStay) {
  write("a", "new");
  ASSERT_TRUE(back_up());
  dir_.write("target/a", "old and longer");
  dir_.write("target/b", "stays");
  ASSERT_TRUE(restore());
  EXPECT_EQ("new", test_support::read_file(target_ + "/a"));
  EXPECT_EQ("stays", test_support::read_file(target_ + "/b"));
}

TEST_F(Restored, DirectoryInTheWayOfAFileIsAnErrorOfThatFile) {
  write("a", "one");
  write("b", "two");
  ASSERT_TRUE(back_up());
  std::filesystem::create_directory(target_ + "/a");
  Log_Capture log;
  EXPECT_FALSE(restore());
  EXPECT_EQ(MTF::E_END_WITH_SKIPPED_FILES, code_);
  EXPECT_TRUE(log.has(LM_ERROR, "Failed to restore " + target_ + "/a: Is a directory\n")) << log.all();
  EXPECT_EQ("two", test_support::read_file(target_ + "/b"));
}

TEST_F(Restored, SecondRunOverAFinishedOneConverges) {
  test_support::make_tree(source_, {.files = 200, .bytes = 500'000});
  ASSERT_TRUE(back_up());
  ASSERT_TRUE(restore());
  ASSERT_TRUE(restore());
  EXPECT_EQ("", differences());
}

TEST_F(Restored, WhatAKilledRunLeftIsTakenAwayAndTheUsersFilesStay) {
  write("d/a", "one");
  ASSERT_TRUE(back_up());
  const std::string left = target_ + "/d/.tessarin-0123456789abcdef";
  dir_.write("target/d/.tessarin-0123456789abcdef/.tessarin-a1B2c3", "half");
  ASSERT_EQ(0, chmod(left.c_str(), 0700));
  const char* const files[] = {".tessarin-config", ".tessarin-a1B2c3", ".tessarin-not-ours"};
  for (const char* file : files) dir_.write(std::string("target/d/") + file, "the user's");
  ASSERT_TRUE(restore());
  EXPECT_FALSE(std::filesystem::exists(left));
  for (const char* file : files) EXPECT_EQ("the user's", test_support::read_file(target_ + "/d/" + file));
}

TEST_F(Restored, TwoSourcesBecomeOneDirectory) {
  for (int i = 0; i < 600; ++i) {
    write("one/a" + std::to_string(i), noise(300, i));
    dir_.write("more/b" + std::to_string(i), noise(300, i));
  }
  ASSERT_TRUE(back_up({.sources = {source_ + "/one", dir_ / "more"}}));
  const MTF_FS::path_transform_rules rules{{source_ + "/one", target_}, {dir_ / "more", target_}};
  for (int round = 0; round < 3; ++round) {
    Log_Capture log;
    ASSERT_TRUE(restore({.threads = 4, .select = {source_ + "/one", dir_ / "more"}, .rules = rules})) << log.all();
  }
  for (int i = 0; i < 600; ++i) {
    EXPECT_EQ(noise(300, i), test_support::read_file(target_ + "/a" + std::to_string(i)));
    EXPECT_EQ(noise(300, i), test_support::read_file(target_ + "/b" + std::to_string(i)));
  }
}

TEST_F(Restored, FileUnderTheNameOfAHardLinkIsReplacedAtOnceOrStays) {
  write("a", "shared");
  std::filesystem::create_hard_link(source_ + "/a", source_ + "/b");
  ASSERT_TRUE(back_up());
  dir_.write("target/b", "old");
  {
    Log_Capture log;
    EXPECT_FALSE(restore({.hook = [](const char* what, const std::string&) {
      errno = EMLINK;
      return std::string(what) == "link";
    }}));
    EXPECT_TRUE(log.has(LM_ERROR, "Failed to restore " + target_ + "/b: Too many links\n")) << log.all();
  }
  EXPECT_EQ("old", test_support::read_file(target_ + "/b"));
  ASSERT_TRUE(restore());
  EXPECT_EQ("", differences());
}

TEST_F(Restored, HardLinksOfWhichOneIsSelectedBecomeAFile) {
  write("a", "shared");
  std::filesystem::create_directory(source_ + "/d");
  std::filesystem::create_hard_link(source_ + "/a", source_ + "/d/b");
  std::filesystem::create_hard_link(source_ + "/a", source_ + "/d/c");
  ASSERT_TRUE(back_up());
  ASSERT_TRUE(restore({.select = {source_ + "/d"}}));
  EXPECT_EQ("shared", test_support::read_file(target_ + "/d/b"));
  EXPECT_TRUE(std::filesystem::equivalent(target_ + "/d/b", target_ + "/d/c"));
}

TEST_F(Restored, HardLinksToTwoTargetsAreTwoFiles) {
  write("d/a", "shared");
  std::filesystem::create_directory(source_ + "/e");
  std::filesystem::create_hard_link(source_ + "/d/a", source_ + "/e/b");
  ASSERT_TRUE(back_up());
  Log_Capture log;
  ASSERT_TRUE(restore({.rules = {{source_ + "/d", target_ + "/1"}, {source_ + "/e", target_ + "/2"}}}));
  EXPECT_EQ("shared", test_support::read_file(target_ + "/1/a"));
  EXPECT_EQ("shared", test_support::read_file(target_ + "/2/b"));
  EXPECT_EQ(
      log.texts(LM_ERROR),
      std::vector<std::string>{"Restored 1 hard links as files of their own: their other names went elsewhere.\n"});
}

TEST_F(Restored, HardLinksStayTogetherBelowEachOfSeveralTargets) {
  write("1/a", "shared");
  const char* const names[] = {"1/z", "2/a", "2/b", "3/a", "3/b"};
  for (const char* name : names) {
    std::filesystem::create_directories(std::filesystem::path(source_ + "/" + name).parent_path());
    std::filesystem::create_hard_link(source_ + "/1/a", source_ + "/" + name);
  }
  ASSERT_TRUE(back_up());
  MTF_FS::path_transform_rules rules;
  for (const char* dir : {"/1", "/2", "/3"}) rules[source_ + dir] = target_ + dir;
  Log_Capture log;
  ASSERT_TRUE(restore({.rules = rules})) << log.all();
  for (const char* name : names) EXPECT_EQ("shared", test_support::read_file(target_ + "/" + name)) << name;
  for (const char* dir : {"/1", "/2", "/3"})
    EXPECT_EQ(2u, std::filesystem::hard_link_count(target_ + dir + "/a")) << dir;
  EXPECT_TRUE(log.has(LM_ERROR, "Restored 2 hard links as files of their own: their other names went elsewhere.\n"))
      << log.all();
}

TEST_F(Restored, SizesAndLastReportAreThoseOfTheSelection) {
  write("d/a", noise(3000));
  write("e/b", noise(500));
  ASSERT_TRUE(back_up());
  ASSERT_TRUE(restore({.select = {source_ + "/d"}}));
  EXPECT_EQ(3000u, size_);
  EXPECT_EQ(3000u, set_size_);
  const Report last = handler_->reports().back();
  EXPECT_EQ(100, last.percent);
  EXPECT_EQ(3000u, last.total);
  EXPECT_EQ(3000u, last.processed);
}

class Restore_Object : public ::testing::Test {};

TEST_F(Restore_Object, SizesWithoutARunAreAllBitsSetAndTold) {
  MTF_Restore restore(MTF::Event_Handler_var(nullptr), ACE_Log_Msg_Callback_var());
  Log_Capture log;
  EXPECT_EQ(~ACE_UINT64(0), restore.size());
  EXPECT_EQ(~ACE_UINT64(0), restore.set_size());
  EXPECT_EQ(2u, log.texts(LM_EMERGENCY).size());
  EXPECT_TRUE(log.has_containing(LM_EMERGENCY, ", restore_ is NULL:\n")) << log.all();
  EXPECT_EQ(MTF::E_OK, restore.err_code());
}

TEST_F(Restore_Object, EmptyPathConverterIsToldAndLeavesTheOldOne) {
  MTF_Restore restore(MTF::Event_Handler_var(nullptr), ACE_Log_Msg_Callback_var());
  const auto converter =
      MTF_FS::create_transform_path_converter("/", {{"/a", "/b"}}, false, MTF::IPath_Converter_var(nullptr));
  restore.path_converter(converter);
  Log_Capture log;
  restore.path_converter(MTF::IPath_Converter_var(nullptr));
  EXPECT_TRUE(log.has_containing(LM_EMERGENCY, ", val is NULL:\n")) << log.all();
  EXPECT_EQ(converter.get(), restore.settings().path_converter.get());
}

/// Restores with the path converters that a caller gave, one after the other.
class Restored_By_Converters : public Mover_Fixture {
 protected:
  Restored_By_Converters() {
    write("file", "content");
    EXPECT_TRUE(back_up());
    EXPECT_TRUE(std::filesystem::remove(source_ + "/file"));
  }

  bool restore_by(const std::vector<MTF::IPath_Converter_var>& converters, const std::string& location) {
    MTF_Restore restore(MTF::Event_Handler_var(new Test_Handler), ACE_Log_Msg_Callback_var());
    restore.target_location(location);
    restore.seq(1);
    restore.callback_factory(MTF::IRestore_Callback_Factory_var(new Posix_Restore_Factory(Hook())));
    restore.channel_factory(make_channels(nullptr));
    for (const MTF::IPath_Converter_var& converter : converters) restore.path_converter(converter);
    const bool ok = restore.restore("volume");
    code_ = restore.err_code();
    return ok;
  }
  MTF::IPath_Converter_var to_target() const {
    return MTF_FS::create_transform_path_converter("/", {{source_, target_}}, false, MTF::IPath_Converter_var());
  }
  bool went_back() const { return std::filesystem::exists(source_ + "/file"); }
  bool went_to_target() const { return std::filesystem::exists(target_ + "/file"); }

  Log_Capture log_;
};

TEST_F(Restored_By_Converters, EmptyOneIsRefusedBeforeAnythingIsRestored) {
  EXPECT_FALSE(restore_by({MTF::IPath_Converter_var()}, "/"));
  EXPECT_EQ(MTF::E_FAILED, code_);
  EXPECT_THAT(log_.texts(LM_ERROR), ::testing::ElementsAre("Failed to start the restore: no path converter.\n"));
  EXPECT_EQ(1u, log_.texts(LM_EMERGENCY).size());
  EXPECT_FALSE(went_back());
}

TEST_F(Restored_By_Converters, EmptyOneBehindAGoodOneLeavesThatInForce) {
  EXPECT_TRUE(restore_by({to_target(), MTF::IPath_Converter_var()}, "/")) << log_.all();
  EXPECT_TRUE(went_to_target());
  EXPECT_FALSE(went_back());
}

TEST_F(Restored_By_Converters, GoodOneBehindAnEmptyOneIsTaken) {
  EXPECT_TRUE(restore_by({MTF::IPath_Converter_var(), to_target()}, "/")) << log_.all();
  EXPECT_TRUE(went_to_target());
  EXPECT_FALSE(went_back());
}

TEST_F(Restored_By_Converters, NoneLeavesPathsAsTheyAreBelowTheLocation) {
  EXPECT_TRUE(restore_by({}, target_)) << log_.all();
  EXPECT_TRUE(std::filesystem::exists(target_ + source_ + "/file"));
}

}  // namespace
