#include "mtf_backup/backup/source_walker.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <filesystem>
#include <thread>

#include "kolt/test/deep_tree.h"
#include "mtf_backup/test/posix_callbacks.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace {

using namespace MTF_BACKUP;
using mover_test::Hook;

/// The stage alone, on a directory.
class Walk : public ::testing::Test {
 protected:
  /// All that was handed on.
  std::vector<Work_Batch_var> walk(const Hook& hook = Hook()) {
    std::vector<Source> sources(1);
    struct stat st = {};
    sources[0].path = "/source";
    sources[0].root = Posix_Fd(::open(dir_.path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    EXPECT_EQ(::fstat(sources[0].root.get(), &st), 0);
    sources[0].stat = MTF::entry_stat(st);
    Bounded_Queue_T<Work_Batch_var> queue(1000);
    Read_Ahead read_ahead(sources, state_, false);
    const MTF::IBackup_Callback_Factory_var factory(new mover_test::Posix_Backup_Factory(hook));
    Source_Walker walker(sources, factory, nullptr, queue, read_ahead, state_);
    std::thread([&] { walker.run(); }).join();  // it gets a working directory of its own
    queue.close();
    std::vector<Work_Batch_var> batches;
    for (Work_Batch_var batch; queue.pop(batch);) batches.push_back(batch);
    return batches;
  }

  /// By path.
  static std::map<std::string, const Work_Item*> items_of(const std::vector<Work_Batch_var>& batches) {
    std::map<std::string, const Work_Item*> items;
    for (const Work_Batch_var& batch : batches)
      for (const Work_Item& item : batch->items) items[item.path()] = &item;
    return items;
  }

  void link(const std::string& from, const std::string& to) const {
    ASSERT_EQ(::link((dir_ / from).c_str(), (dir_ / to).c_str()), 0);
  }
  ino_t inode(const std::string& name) const {
    struct stat st = {};
    EXPECT_EQ(::stat((dir_ / name).c_str(), &st), 0);
    return st.st_ino;
  }

  const test_support::Temp_Dir dir_;
  Run_State state_;
};

TEST_F(Walk, DirectoryWithTooLongAPathIsToldAndNotEntered) {
  make_deep_tree(dir_.path(), std::string(255, 'd'), 70);
  test_support::Log_Capture log;
  const auto batches = walk();
  size_t longest = 0, problems = 0;
  for (const auto& [path, item] : items_of(batches)) {
    longest = std::max(longest, path.size());
    if (item->problem.empty()) continue;
    ++problems;
    EXPECT_EQ(item->problem, "its path is too long");
    EXPECT_TRUE(S_ISDIR(item->stat.mode));
  }
  EXPECT_EQ(problems, 1u);
  EXPECT_EQ(longest, 65 * 256u - 1) << "of the first that is longer than 16 KiB";
  EXPECT_EQ(log.texts(LM_ERROR).size(), 1u);
  EXPECT_TRUE(log.has_containing(LM_ERROR, "Failed to list a directory, its path is too long: /source/ddd"));
}

TEST_F(Walk, BatchHoldsNoMoreOfLongPathsThanOfData) {
  const Posix_Fd inner = make_deep_tree(dir_.path(), std::string(255, 'd'), 60);
  for (int i = 0; i < 300; ++i)
    Posix_Fd(::openat(inner.get(), std::to_string(i).c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
  const auto batches = walk();
  EXPECT_EQ(items_of(batches).size(), 1 + 60 + 60 + 300u);
  for (const Work_Batch_var& batch : batches) {
    size_t size = 0;
    for (const Work_Item& item : batch->items) size += item.path_size();
    EXPECT_LE(size, (size_t(4) << 20) / 4);
  }
}

TEST_F(Walk, FurtherNamesOfAFileThatIsBeingWrittenAreStillItsNames) {
  dir_.write("a/one", "text");
  std::filesystem::create_directory(dir_ / "b");
  link("a/one", "b/two");
  int directories = 0;
  const auto batches = walk([&](const char* operation, const std::string&) {
    if (operation == std::string("check_directory") && ++directories == 3) dir_.write("a/one", "longer text");
    return false;
  });
  EXPECT_EQ(items_of(batches).at("b/two")->hard_link_target, "/source/a/one");
}

TEST_F(Walk, FileThatTookTheInodeOfADeletedOneIsNotTakenForIt) {
  const test_support::Temp_Dir outside;
  const std::string first = dir_.write("a/first", "text");
  std::filesystem::create_directory(dir_ / "b");
  ASSERT_EQ(::link(first.c_str(), (outside / "other").c_str()), 0);
  const ino_t old = inode("a/first");
  std::string heir;
  int directories = 0;
  const auto batches = walk([&](const char* operation, const std::string&) {
    if (operation != std::string("check_directory") || ++directories != 3) return false;
    ::unlink(first.c_str());
    ::unlink((outside / "other").c_str());
    for (int i = 0; i < 100 && heir.empty(); ++i) {
      const std::string name = "b/" + std::to_string(i);
      dir_.write(name, "other text");
      if (inode(name) == old) heir = name;
    }
    if (!heir.empty()) link(heir, "b/second");
    return false;
  });
  if (heir.empty()) GTEST_SKIP() << "this filesystem does not use an inode again";
  EXPECT_EQ(items_of(batches).at(heir)->hard_link_target, "");
  EXPECT_EQ(items_of(batches).at("b/second")->hard_link_target, "/source/" + heir);
}

TEST_F(Walk, AfterACancelNothingIsListedOnceMore) {
  dir_.write("a", "text");
  int listings = 0;
  const auto batches = walk([&](const char* operation, const std::string&) {
    if (operation != std::string("read_dirs")) return false;
    ++listings;
    state_.cancel();
    return true;
  });
  EXPECT_EQ(listings, 1);
  EXPECT_TRUE(batches.empty());
}

TEST_F(Walk, AfterACancelNothingIsListedEntryByEntryEither) {
  dir_.write("a", "text");
  int listings = 0;
  const auto batches = walk([&](const char* operation, const std::string&) {
    if (operation != std::string("read_dirs")) return false;
    if (++listings == 3) state_.cancel();  // behind the third try it goes on without the callback
    return true;
  });
  EXPECT_EQ(listings, 3);
  EXPECT_TRUE(batches.empty());
}

}  // namespace
