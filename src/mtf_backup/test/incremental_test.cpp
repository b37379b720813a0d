#include <fcntl.h>
#include <sys/mman.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "mtf_backup/set/medium_set.h"
#include "mtf_backup/test/chain_fixture.h"

namespace {

namespace fs = std::filesystem;
using mover_test::Chain_Fixture;
using mover_test::Hook;
using mover_test::name_of;
using mover_test::Test_Handler;
using MTF_BACKUP::Commit_Record;
using test_support::Log_Capture;

class Incremental : public Chain_Fixture {
 protected:
  /// A hook that fails an operation on every entry of a name.
  static Hook failing(const std::string& operation, const std::string& name, int error) {
    return [=](const char* what, const std::string& path) {
      if (what != operation || name_of(path) != name) return false;
      errno = error;
      return true;
    };
  }

  /// Expects that the next step is a full set and that its warning gives @a why.
  void expect_full(const std::string& why) {
    Log_Capture log;
    EXPECT_TRUE(step());
    const std::string line = "Set " + set_dir(last_seq_) + " is written in full and builds on no other: " + why + ".\n";
    EXPECT_TRUE(log.has(LM_WARNING, line)) << log.all();
    EXPECT_EQ(last_record().base, "");
    EXPECT_TRUE(last_record().chain.empty());
    EXPECT_EQ(restored_differences(), "");
  }
};

TEST_F(Incremental, WhatHasNotChangedIsNotReadAgain) {
  write("a", noise(100'000));
  fs::create_directory(source_ + "/d");
  write("d/b", "text");
  fs::create_symlink("a", source_ + "/link");
  ASSERT_TRUE(step());
  std::atomic<int> opened{0};
  const Hook hook = [&](const char* operation, const std::string&) {
    const std::string what = operation;
    opened += what == "open" || what == "readlink" || what == "read_xattrs";
    return false;
  };
  ASSERT_TRUE(aged_step({.hook = hook}));
  EXPECT_EQ(opened, 0);
  EXPECT_EQ(size_, 100'004u + 1);  // the link has the length of its target
  EXPECT_EQ(set_size_, 0u);
  const Commit_Record record = last_record();
  EXPECT_EQ(record.base, "volume/0000000001.1");
  ASSERT_EQ(record.chain.size(), 1u);
  EXPECT_EQ(record.chain[0], (MTF_BACKUP::Chain_Link{"volume/0000000001.1", "set-uuid"}));
  EXPECT_EQ(record.summary.file_count, 3u);
  EXPECT_EQ(record.summary.dir_count, 2u);
  EXPECT_LT(storage_size_, 20'000u);
  for (const auto& [path, entry] : catalog()) EXPECT_EQ(entry.set, 1u) << path;
  EXPECT_EQ(restored_differences(), "");
  EXPECT_EQ(size_, 100'005u);
  EXPECT_EQ(set_size_, 0u);
}

TEST_F(Incremental, TheMediumSaysThatItIsIncremental) {
  write("a", "text");
  ASSERT_TRUE(step());
  ASSERT_TRUE(step());
  const auto attributes = [&](unsigned seq) {  // of the block at 2048, SSET
    return static_cast<unsigned char>(pool_->objects[set_dir(seq) + "/channel-000.mtf"].at(2048 + 52));
  };
  EXPECT_EQ(attributes(1), 4u);
  EXPECT_EQ(attributes(2), 16u);
}

TEST_F(Incremental, WithoutBeingAskedForASetIsFull) {
  write("a", "text");
  ASSERT_TRUE(back_up());
  age();
  ASSERT_TRUE(back_up({.seq = 1}));
  EXPECT_EQ(record_of(2).base, "");
  EXPECT_EQ(set_size_, 4u);
}

TEST_F(Incremental, WhatHasChangedIsInTheSetAndTheRestIsNot) {
  write("a", "old");
  write("b", "same");
  ASSERT_TRUE(step());
  const std::string before = save("before");
  age();
  write("a", "newer");
  write("c", "fresh");
  ASSERT_TRUE(step());
  EXPECT_EQ(size_, 14u);
  EXPECT_EQ(set_size_, 10u);
  EXPECT_EQ(home("a"), 2u);
  EXPECT_EQ(home("b"), 1u);
  EXPECT_EQ(home("c"), 2u);
  EXPECT_EQ(restored_differences(), "");
  EXPECT_EQ(set_size_, 10u);
  EXPECT_EQ(restored_differences(1, before), "");
}

TEST_F(Incremental, RewriteOfTheSameSizeWithItsTimePutBackIsFound) {
  const std::string a = write("a", "old");
  ASSERT_TRUE(step());
  age();
  const timespec time = mtime(a);
  write("a", "new");
  set_mtime(a, time);
  ASSERT_TRUE(step());
  EXPECT_EQ(home("a"), 2u);
  EXPECT_EQ(restored_differences(), "");
}

TEST_F(Incremental, FileOfTheSameSizeAndTimeRenamedOverIsFound) {
  const std::string a = write("a", "old");
  ASSERT_TRUE(step());
  age();
  const timespec time = mtime(a);
  const std::string b = write("b", "new");
  set_mtime(b, time);
  fs::rename(b, a);
  ASSERT_TRUE(step());
  EXPECT_EQ(home("a"), 2u);
  EXPECT_EQ(restored_differences(), "");
}

TEST_F(Incremental, ChangeThatIsDatedBackIsFound) {
  const std::string a = write("a", "old");
  ASSERT_TRUE(step());
  age();
  write("a", "new");
  set_mtime(a, {1000, 0});
  ASSERT_TRUE(step());
  EXPECT_EQ(home("a"), 2u);
  EXPECT_EQ(restored_differences(), "");
}

TEST_F(Incremental, WhatWasYoungAtTheLastSetIsReadAgain) {
  const std::string old = write("a", "text");
  ASSERT_TRUE(step());
  ASSERT_TRUE(step());  // nothing has changed, but the file is younger than a minute
  EXPECT_EQ(home("a"), 2u);
  const auto begun = [&](int64_t after) {
    const int64_t changed = catalog().at("a").stat.ctime.sec;
    change_records([&](Commit_Record& record) { record.begin_time = changed + after; });
  };
  begun(60);
  ASSERT_TRUE(step());
  EXPECT_EQ(home("a"), 3u);
  begun(61);
  ASSERT_TRUE(step());
  EXPECT_EQ(home("a"), 3u);
  EXPECT_EQ(home(""), 3u);
}

TEST_F(Incremental, StoreToMappedMemoryThatMovesNoTimeIsFound) {
  const std::string a = write("a", std::string(4096, 'a'));
  const int file = ::open(a.c_str(), O_RDWR);
  void* const memory = ::mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  ::close(file);
  ASSERT_NE(memory, MAP_FAILED);
  const auto page = static_cast<volatile char*>(memory);
  page[0] = 'b';  // from now on the page is dirty
  ASSERT_TRUE(step());
  const int64_t changed = catalog().at("a").stat.mtime.sec;
  change_records([&](Commit_Record& record) { record.begin_time = changed + 35; });
  page[0] = 'c';
  ASSERT_TRUE(step());
  EXPECT_EQ(home("a"), 2u);
  EXPECT_EQ(restored_differences(), "");
  ::munmap(memory, 4096);
}

TEST_F(Incremental, FileFromTheFutureIsReadEveryTime) {
  const std::string a = write("a", "text");
  set_mtime(a, {std::time(nullptr) + 1000, 0});
  ASSERT_TRUE(step());
  ASSERT_TRUE(aged_step());
  EXPECT_EQ(home("a"), 2u);
}

TEST_F(Incremental, RenamedFileHasItsNewNameOnly) {
  write("a", "text");
  ASSERT_TRUE(step());
  const std::string before = save("before");
  age();
  fs::rename(source_ + "/a", source_ + "/b");
  ASSERT_TRUE(step());
  EXPECT_EQ(home("a"), 0u);
  EXPECT_EQ(home("b"), 2u);
  EXPECT_EQ(restored_differences(), "");
  EXPECT_EQ(restored_differences(1, before), "");
}

TEST_F(Incremental, RenamedDirectoryTakesAllBelowItAlong) {
  fs::create_directories(source_ + "/d/deep");
  write("d/deep/a", "text");
  write("z", "stays");
  ASSERT_TRUE(step());
  const std::string before = save("before");
  age();
  fs::rename(source_ + "/d", source_ + "/e");
  ASSERT_TRUE(step());
  EXPECT_EQ(home("d/deep/a"), 0u);
  EXPECT_EQ(home("e/deep/a"), 2u);
  EXPECT_EQ(home("z"), 1u);
  EXPECT_EQ(restored_differences(), "");
  EXPECT_EQ(restored_differences(1, before), "");
}

TEST_F(Incremental, ExchangedFilesAreFound) {
  const std::string a = write("a", "one");
  const std::string b = write("b", "two");
  set_mtime(b, mtime(a));
  ASSERT_TRUE(step());
  age();
  fs::rename(a, source_ + "/c");
  fs::rename(b, a);
  fs::rename(source_ + "/c", b);
  ASSERT_TRUE(step());
  EXPECT_EQ(restored_differences(), "");
}

TEST_F(Incremental, DeletedEntriesAreGone) {
  fs::create_directories(source_ + "/d/deep");
  write("d/deep/a", "text");
  write("first", "1");
  write("last", "2");
  ASSERT_TRUE(step());
  const std::string before = save("before");
  age();
  fs::remove_all(source_ + "/d");
  fs::remove(source_ + "/first");
  ASSERT_TRUE(step());
  EXPECT_EQ(catalog().size(), 2u);
  EXPECT_EQ(home("last"), 1u);
  EXPECT_EQ(restored_differences(), "");
  EXPECT_EQ(restored_differences(1, before), "");
}

TEST_F(Incremental, ChangeOfTypeIsFound) {
  write("a", "text");
  write("b", "text");
  fs::create_directory(source_ + "/c");
  write("c/x", "text");
  ASSERT_TRUE(step());
  age();
  for (const char* name : {"a", "b", "c"}) fs::remove_all(source_ + "/" + name);
  fs::create_symlink("text", source_ + "/a");
  fs::create_directory(source_ + "/b");
  write("b/x", "text");
  write("c", "text");
  ASSERT_TRUE(step());
  EXPECT_EQ(home("c/x"), 0u);
  EXPECT_EQ(restored_differences(), "");
}

TEST_F(Incremental, ChangeOfModeOwnerOrAttributesAloneIsFound) {
  const std::string mode = write("mode", "text");
  const std::string owner = write("owner", "text");
  const std::string attribute = write("attribute", "text");
  fs::create_directory(source_ + "/d");
  write("same", "text");
  ASSERT_TRUE(step());
  age();
  ASSERT_EQ(::chmod(mode.c_str(), 0700), 0);
  if (::geteuid() == 0) {
    ASSERT_EQ(::chown(owner.c_str(), 1001, 1002), 0);
  }
  ASSERT_EQ(::setxattr(attribute.c_str(), "user.test", "value", 5, 0), 0);
  ASSERT_EQ(::setxattr((source_ + "/d").c_str(), "user.test", "value", 5, 0), 0);
  ASSERT_TRUE(step());
  EXPECT_EQ(home("mode"), 2u);
  EXPECT_EQ(home("owner"), ::geteuid() == 0 ? 2u : 1u);
  EXPECT_EQ(home("attribute"), 2u);
  EXPECT_EQ(home("d"), 2u);
  EXPECT_EQ(home("same"), 1u);
  EXPECT_EQ(restored_differences(), "");
}

TEST_F(Incremental, AttributesOfKeptEntriesComeFromTheOlderSet) {
  const std::string a = write("a", "text");
  fs::create_directory(source_ + "/d");
  ASSERT_EQ(::setxattr(a.c_str(), "user.test", "file", 4, 0), 0);
  ASSERT_EQ(::setxattr((source_ + "/d").c_str(), "user.test", "directory", 9, 0), 0);
  ASSERT_TRUE(step());
  ASSERT_TRUE(aged_step());
  EXPECT_EQ(home("d"), 1u);
  EXPECT_EQ(restored_differences(), "");
}

TEST_F(Incremental, NumberOfTheFilesystemDoesNotMatter) {
  write("a", "text");
  ASSERT_TRUE(step());
  age();
  const uint64_t now = catalog().at("a").stat.dev;
  change_catalog([](auto& entries) { entries["a"].stat.dev += 7; });
  ASSERT_TRUE(step());
  EXPECT_EQ(home("a"), 1u);
  EXPECT_EQ(catalog().at("a").stat.dev, now);
}

TEST_F(Incremental, HardLinksAreKept) {
  write("a", "text");
  fs::create_hard_link(source_ + "/a", source_ + "/b");
  fs::create_directory(source_ + "/d");
  fs::create_hard_link(source_ + "/a", source_ + "/d/c");
  ASSERT_TRUE(step());
  ASSERT_TRUE(aged_step());
  for (const char* name : {"a", "b", "d/c"}) EXPECT_EQ(home(name), 1u) << name;
  EXPECT_EQ(restored_differences(), "");
}

TEST_F(Incremental, DataIsReadUnderTheNextNameWhenTheFirstIsGone) {
  write("a", "text");
  fs::create_hard_link(source_ + "/a", source_ + "/b");
  fs::create_hard_link(source_ + "/a", source_ + "/c");
  ASSERT_TRUE(step());
  age();
  fs::remove(source_ + "/a");
  ASSERT_TRUE(step());
  EXPECT_EQ(home("b"), 2u);
  EXPECT_EQ(catalog().at("c").hard_link_target, source_ + "/b");
  EXPECT_EQ(restored_differences(), "");
  ASSERT_TRUE(aged_step());
  EXPECT_EQ(home("b"), 2u);
  EXPECT_EQ(home("c"), 2u);
  EXPECT_EQ(restored_differences(), "");
}

TEST_F(Incremental, DataIsReadUnderANameThatSortsBeforeTheOld) {
  write("m", "text");
  fs::create_hard_link(source_ + "/m", source_ + "/n");
  ASSERT_TRUE(step());
  age();
  fs::create_hard_link(source_ + "/m", source_ + "/a");
  ASSERT_TRUE(step());
  EXPECT_EQ(home("a"), 2u);
  EXPECT_EQ(catalog().at("m").hard_link_target, source_ + "/a");
  EXPECT_EQ(catalog().at("n").hard_link_target, source_ + "/a");
  EXPECT_EQ(restored_differences(), "");
}

// Not every filesystem changes the change time of a file that gets or loses a name. The catalog of the older set is
// made to say so.
TEST_F(Incremental, LinksAreFoundWithoutAChangeOfTheirTime) {
  write("a", "text");
  fs::create_hard_link(source_ + "/a", source_ + "/b");
  fs::create_hard_link(source_ + "/a", source_ + "/c");
  fs::create_hard_link(source_ + "/a", source_ + "/d");
  fs::remove(source_ + "/a");
  ASSERT_TRUE(step());  // b holds the data; c and d are links to it
  age();
  change_catalog([&](auto& entries) {  // as if b had come later, and c had held the data
    entries["c"].hard_link_target = "";
    entries["c"].data_size = entries["b"].data_size;
    entries["d"].hard_link_target = source_ + "/c";
    entries.erase("b");
  });
  ASSERT_TRUE(step());
  for (const char* name : {"b", "c", "d"}) EXPECT_EQ(home(name), 2u) << name;
  EXPECT_EQ(restored_differences(), "");
}

TEST_F(Incremental, FurtherNameThatIsRestoredAloneBringsTheOldData) {
  write("a", "text");
  fs::create_hard_link(source_ + "/a", source_ + "/b");
  ASSERT_TRUE(step());
  ASSERT_TRUE(aged_step());
  ASSERT_TRUE(restore({.seq = 2, .select = {source_ + "/b"}}));
  std::string content(4, '\0');
  std::FILE* file = std::fopen((target_ + "/b").c_str(), "r");
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(std::fread(content.data(), 1, 4, file), 4u);
  std::fclose(file);
  EXPECT_EQ(content, "text");
}

TEST_F(Incremental, SkippedFileIsReadAgain) {
  write("a", "text");
  fs::create_hard_link(source_ + "/a", source_ + "/b");
  EXPECT_FALSE(step({.hook = failing("open", "a", EIO)}));
  EXPECT_EQ(code_, MTF::E_END_WITH_SKIPPED_FILES);
  ASSERT_TRUE(aged_step());
  EXPECT_EQ(home("a"), 2u);
  EXPECT_EQ(home("b"), 2u);
  EXPECT_EQ(restored_differences(), "");
}

TEST_F(Incremental, FileThatChangedWhileItWasReadIsReadAgain) {
  const std::string a = write("a", noise(10'000));
  const auto grow = std::make_shared<std::atomic<bool>>(false);
  const Hook hook = [=](const char* operation, const std::string& path) {
    if (std::string(operation) == "read" && name_of(path) == "a" && !grow->exchange(true)) {
      EXPECT_EQ(::truncate(a.c_str(), 20'000), 0);
    }
    return false;
  };
  EXPECT_TRUE(step({.hook = hook}));
  EXPECT_EQ(catalog().at("a").flags, MTF_BACKUP::CAT_CHANGED);
  ASSERT_TRUE(aged_step());
  EXPECT_EQ(home("a"), 2u);
  EXPECT_EQ(catalog().at("a").flags, 0u);
  EXPECT_EQ(restored_differences(), "");
}

// What the listing said is what the next one may find again: that alone must not do.
TEST_F(Incremental, FlaggedFileIsReadAgainThoughItsStatusIsTheSame) {
  const std::string a = write("a", "text");
  ASSERT_EQ(::setxattr(a.c_str(), "user.test", "value", 5, 0), 0);
  EXPECT_FALSE(step({.hook = failing("read_xattrs", "a", EIO)}));
  EXPECT_EQ(catalog().at("a").flags, MTF_BACKUP::CAT_BARE);
  ASSERT_TRUE(aged_step());
  EXPECT_EQ(home("a"), 2u);
  EXPECT_EQ(catalog().at("a").flags, 0u);
  EXPECT_EQ(restored_differences(), "");
}

TEST_F(Incremental, FileThatCannotBeReadAnyMoreIsKeptWhileItIsTheSame) {
  write("a", "text");
  ASSERT_TRUE(step());
  EXPECT_TRUE(aged_step({.hook = failing("open", "a", EIO)}));
  EXPECT_EQ(restored_differences(), "");
}

TEST_F(Incremental, ProgressCountsKeptBytes) {
  write("a", noise(1000));
  write("b", noise(2000));
  ASSERT_TRUE(step());
  ASSERT_TRUE(aged_step());
  const auto reports = handler_->reports();
  ASSERT_FALSE(reports.empty());
  EXPECT_EQ(reports.back().percent, 100);
  EXPECT_EQ(reports.back().processed, 3000u);
  EXPECT_EQ(reports.back().total, 3000u);
}

TEST_F(Incremental, EmptySourceIsToldAsEver) {
  write("a", "text");
  ASSERT_TRUE(step());
  fs::remove(source_ + "/a");
  age();
  EXPECT_FALSE(step());
  EXPECT_EQ(code_, MTF::E_NO_FILES_BACKUPED);
  EXPECT_FALSE(aged_step());
  EXPECT_EQ(code_, MTF::E_NO_FILES_BACKUPED);
  EXPECT_EQ(last_record().base, set_dir(2));
}

TEST_F(Incremental, SequenceNumberWrapsAround) {
  write("a", "text");
  ASSERT_TRUE(back_up({.seq = 0xfffffffe}));
  age();
  ASSERT_TRUE(back_up({.seq = 0xffffffff, .incremental = true}));
  const Commit_Record record = record_of(0);
  EXPECT_EQ(record.base, "volume/4294967295.1");
  ASSERT_EQ(record.chain.size(), 1u);
  EXPECT_EQ(restored_differences(0, source_), "");
}

TEST_F(Incremental, TheNewestIncarnationIsTheBase) {
  write("a", "old");
  ASSERT_TRUE(back_up());
  write("a", "newer");
  ASSERT_TRUE(back_up());
  age();
  ASSERT_TRUE(back_up({.seq = 1, .incremental = true}));
  EXPECT_EQ(record_of(2).base, "volume/0000000001.2");
  EXPECT_EQ(restored_differences(2, source_), "");
}

TEST_F(Incremental, KeptEntriesOfACompressedSetAndOfMoreChannelsAreFound) {
  for (int i = 0; i < 40; ++i) write("f" + std::to_string(i), noise(200'000, i) + std::string(100'000, 'x'));
  ASSERT_TRUE(step({.compression = COMPR_ZSTD, .channels = 4}));
  age();
  write("f7", "other");
  ASSERT_TRUE(step({.compression = COMPR_NONE, .channels = 1}));
  age();
  write("f8", "other");
  ASSERT_TRUE(step({.compression = COMPR_AUTO, .channels = 2}));
  EXPECT_EQ(last_record().chain.size(), 2u);
  EXPECT_EQ(restored_differences(), "");
}

TEST_F(Incremental, EverySetOfALongChainBringsItsMomentBack) {
  constexpr unsigned count = 24;
  std::vector<std::string> saved;
  write("always", "same");
  for (unsigned i = 0; i < count; ++i) {
    write("f" + std::to_string(i % 7), noise(100 + i, i));
    write("new" + std::to_string(i), "text");
    if (i > 2) fs::remove(source_ + "/new" + std::to_string(i - 3));
    saved.push_back(save("saved" + std::to_string(i)));
    ASSERT_TRUE(step({.compression = i % 2 ? COMPR_ZSTD : COMPR_NONE, .channels = 1 + i % 3}));
    age();
  }
  EXPECT_EQ(home("always"), 1u);
  for (unsigned i = 0; i < count; ++i) EXPECT_EQ(restored_differences(i + 1, saved[i]), "") << i;
}

TEST_F(Incremental, MediaOfALongChainAreNotAllKeptOpen) {
  constexpr unsigned count = 30;
  for (unsigned i = 0; i < count; ++i) {
    write("f" + std::to_string(i), noise(1000, i));
    ASSERT_TRUE(step());
    age();
  }
  const Commit_Record record = last_record();
  ASSERT_EQ(record.chain.size(), count - 1);
  mover_test::Memory_Channel_Factory factory(pool_);
  MTF_BACKUP::Frame_Workers workers;
  ASSERT_TRUE(workers.open());
  MTF_BACKUP::Medium_Set media(factory, record, dir_of(record), workers);
  std::vector<std::weak_ptr<MTF_BACKUP::Medium_Reader>> given;
  for (uint32_t set = 0; set < count; ++set) {
    const MTF_BACKUP::Medium_Reader_var medium = media.get(set, 0);
    ASSERT_TRUE(medium);
    given.push_back(medium);
  }
  EXPECT_EQ(std::count_if(given.begin(), given.end(), [](const auto& medium) { return !medium.expired(); }), 17);
  EXPECT_TRUE(given[0].expired());
  EXPECT_TRUE(media.get(0, 0));
  EXPECT_EQ(media.get(0, 1), nullptr);
  EXPECT_EQ(errno, EBADMSG);
  EXPECT_EQ(media.get(count, 0), nullptr);
  EXPECT_EQ(errno, EBADMSG);
  EXPECT_EQ(media.name(0, 0), set_dir(count) + "/channel-000.mtf");
  EXPECT_EQ(media.name(1, 0), record.chain[0].dir + "/channel-000.mtf");
}

TEST_F(Incremental, ChainNamesOnlySetsThatAreStillNeeded) {
  write("a", "1");
  write("b", "1");
  ASSERT_TRUE(step());
  age();
  write("a", "22");
  ASSERT_TRUE(step());
  age();
  write("b", "333");
  ASSERT_TRUE(step());
  age();
  ASSERT_EQ(::chmod(source_.c_str(), 0711), 0);
  ASSERT_TRUE(step());
  // The root lies in the newest, a in the second, b in the third; the first is not needed any more.
  const std::vector<MTF_BACKUP::Chain_Link> chain = last_record().chain;
  ASSERT_EQ(chain.size(), 2u);
  EXPECT_EQ(chain[0].dir, set_dir(2));
  EXPECT_EQ(chain[1].dir, set_dir(3));
  MTF_BACKUP::Set_Store store(std::make_shared<test_support::Memory_Client_IO>(pool_));
  ASSERT_TRUE(store.remove({{"volume", 1, 1}, {"volume", 2, 1}, {"volume", 3, 1}}) == false);
  EXPECT_EQ(errno, EBUSY);
  std::vector<MTF_BACKUP::Set_Id> dependents;
  ASSERT_TRUE(store.dependents({"volume", 1, 1}, dependents));
  ASSERT_EQ(dependents.size(), 2u);
  EXPECT_EQ(dependents[0].seq, 2u);
  EXPECT_EQ(dependents[1].seq, 3u);
}

/// A client that is cancelled while it opens one object.
class Cancelled_Client : public Client_IO_Base {
 public:
  Cancelled_Client(std::unique_ptr<Client_IO_Base> next, const std::string& key, std::atomic<bool>& reached)
      : next_(std::move(next)), key_(key), reached_(reached) {}
  std::unique_ptr<Writer> create(const std::string& key) override { return next_->create(key); }
  std::unique_ptr<Reader> open(const std::string& key) override {
    if (key != key_) return next_->open(key);
    reached_ = true;
    cancelled_.wait(false);
    errno = ECANCELED;
    return nullptr;
  }
  bool list(const std::string& prefix, const List_Callback& each) override { return next_->list(prefix, each); }
  bool remove(const std::string& key) override { return next_->remove(key); }
  bool sweep(const std::string& prefix) override { return next_->sweep(prefix); }
  void cancel() override {
    cancelled_ = true;
    cancelled_.notify_all();
    next_->cancel();
  }

 private:
  const std::unique_ptr<Client_IO_Base> next_;
  const std::string key_;
  std::atomic<bool>& reached_;
  std::atomic<bool> cancelled_{false};
};

TEST_F(Incremental, CancelledRestoreCallsNoSetUnreadable) {
  write("a", "text");
  ASSERT_TRUE(step());
  ASSERT_TRUE(aged_step());
  ASSERT_EQ(home("a"), 1u);
  std::atomic<bool> reached{false};
  wrap = [&](std::unique_ptr<Client_IO_Base> next) {
    return std::make_shared<Cancelled_Client>(std::move(next), set_dir(1) + "/commit", reached);
  };
  prepare = [&](Test_Handler& handler) { handler.cancel_when = [&] { return reached.load(); }; };
  Log_Capture log;
  EXPECT_FALSE(restore({.seq = 2}));
  EXPECT_EQ(code_, MTF::E_FAILED);
  EXPECT_TRUE(reached);
  EXPECT_EQ(log.all(), "");
}

TEST_F(Incremental, CancelledRunLeavesTheOlderSets) {
  write("a", "text");
  ASSERT_TRUE(step());
  age();
  write("b", noise(100'000));
  const size_t objects = pool_->objects.size();
  prepare = [](Test_Handler& handler) { handler.cancel = true; };
  EXPECT_FALSE(step());
  EXPECT_EQ(code_, MTF::E_FAILED);
  EXPECT_EQ(pool_->objects.size(), objects);
  prepare = [](Test_Handler&) {};
  ASSERT_TRUE(step());
  EXPECT_EQ(last_seq_, 2u);
  EXPECT_EQ(restored_differences(), "");
}

TEST_F(Incremental, WithoutASetBeforeItIsFull) {
  write("a", "text");
  last_seq_ = 41;
  expect_full("the set with number 41 does not exist");
}

TEST_F(Incremental, OnADamagedCommitRecordItIsFull) {
  write("a", "text");
  ASSERT_TRUE(step());
  pool_->objects[set_dir(1) + "/commit"][70] ^= 1;
  Log_Capture log;
  EXPECT_TRUE(step());
  EXPECT_TRUE(
      log.has(LM_WARNING,
              "Set " + set_dir(2) +
                  " is written in full and builds on no other: the set with number 1 has a damaged commit record.\n"))
      << log.all();
}

TEST_F(Incremental, WithoutAnObjectOfTheBaseItIsFull) {
  write("a", "text");
  ASSERT_TRUE(step());
  age();
  pool_->objects.erase(set_dir(1) + "/channel-000.mtf");
  expect_full("of set " + set_dir(1) + " object " + set_dir(1) + "/channel-000.mtf is missing");
}

TEST_F(Incremental, OnACutObjectOfTheChainItIsFull) {
  write("a", "text");
  ASSERT_TRUE(step());
  ASSERT_TRUE(aged_step());
  age();
  pool_->objects[set_dir(1) + "/channel-000.index"].pop_back();
  expect_full("of set " + set_dir(2) + " object " + set_dir(1) + "/channel-000.index has another size");
}

TEST_F(Incremental, WithoutASetOfTheChainItIsFull) {
  write("a", "text");
  ASSERT_TRUE(step());
  ASSERT_TRUE(aged_step());
  age();
  pool_->objects.erase(set_dir(1) + "/commit");
  expect_full("of set " + set_dir(2) + " set " + set_dir(1) + ", on which it builds, is missing");
}

TEST_F(Incremental, OnAnotherSetInThePlaceOfOneOfTheChainItIsFull) {
  write("a", "text");
  ASSERT_TRUE(step());
  ASSERT_TRUE(aged_step());
  change_records([](Commit_Record& record) {
    if (record.seq == 1) record.set_uuid = "other";
  });
  expect_full("of set " + set_dir(2) + " set " + set_dir(1) + ", on which it builds, was replaced by another one");
}

TEST_F(Incremental, WithOtherSourcesItIsFull) {
  write("a", "text");
  ASSERT_TRUE(step());
  age();
  fs::create_directory(dir_ / "second");
  Log_Capture log;
  EXPECT_TRUE(step({.sources = {source_, dir_ / "second"}}));
  EXPECT_TRUE(log.has(LM_WARNING, "Set " + set_dir(2) + " is written in full and builds on no other: set " +
                                      set_dir(1) + " has other sources.\n"))
      << log.all();
  EXPECT_EQ(last_record().base, "");
}

TEST_F(Incremental, SeveralSourcesAreKeptEachInItsPlace) {
  const std::string second = dir_ / "second";
  fs::create_directory(second);
  write("a", "first");
  dir_.write("second/a", "second");
  ASSERT_TRUE(step({.sources = {source_, second}}));
  ASSERT_TRUE(aged_step({.sources = {source_, second}}));
  EXPECT_EQ(set_size_, 0u);
  const std::string copy = dir_ / "copy";
  fs::create_directory(copy);
  ASSERT_TRUE(restore({.seq = 2, .select = {source_, second}, .rules = {{source_, target_}, {second, copy}}}));
  EXPECT_EQ(differences(), "");
  EXPECT_EQ(joined(test_support::compare_trees(second, copy).differences), "");
}

TEST_F(Incremental, OnACatalogWithoutItsEndItIsFull) {
  write("a", "text");
  ASSERT_TRUE(step());
  age();
  pool_->objects[set_dir(1) + "/catalog"].back() ^= 1;
  expect_full("the catalog of set " + set_dir(1) + " cannot be read");
}

TEST_F(Incremental, BehindADamageOfTheCatalogEverythingIsRead) {
  const auto name_of = [](int i) { return std::to_string(10'000 + i) + std::string(200, 'x'); };
  for (int i = 0; i < 2500; ++i) write(name_of(i), "");
  ASSERT_TRUE(step());
  age();
  std::string& catalog_bytes = pool_->objects[set_dir(1) + "/catalog"];
  catalog_bytes[catalog_bytes.size() * 3 / 4] ^= 1;
  Log_Capture log;
  EXPECT_TRUE(step());
  EXPECT_TRUE(log.has(LM_WARNING,
                      "The catalog of set " + set_dir(1) + " cannot be read any further: all that follows is read.\n"))
      << log.all();
  const auto entries = catalog();
  EXPECT_EQ(entries.size(), 2501u);
  EXPECT_EQ(entries.at("").set, 1u);
  EXPECT_EQ(entries.at(name_of(2499)).set, 0u);
  EXPECT_EQ(restored_differences(), "");
}

TEST_F(Incremental, DamageAnywhereInTheCatalogOfTheBaseDoesNotGetIntoTheNext) {
  for (int i = 0; i < 20; ++i) write("f" + std::to_string(i), std::to_string(i));
  ASSERT_TRUE(step());
  age();
  const std::string key = set_dir(1) + "/catalog";
  const std::string good = pool_->objects[key];
  for (size_t at = 0; at < good.size(); at += 1 + good.size() / 15) {
    pool_->objects[key][at] ^= 0x10;
    last_seq_ = 1;
    Log_Capture log;
    ASSERT_TRUE(step()) << at;
    EXPECT_LE(log.texts(LM_WARNING).size(), 1u) << at << log.all();
    EXPECT_EQ(restored_differences(), "") << at;
    pool_->objects[key] = good;
  }
}

TEST_F(Incremental, EveryFailureOfTheStorageGivesAWholeSetOrNone) {
  for (int i = 0; i < 5; ++i) write("f" + std::to_string(i), noise(1000, i));
  ASSERT_TRUE(step());
  age();
  write("f3", noise(1000, 9));
  for (int nth = 0;; ++nth) {
    last_seq_ = 1;
    test_support::Fault_Plan plan(test_support::Fault_Plan::ALL, nth, EIO);
    const size_t before = sets().size();
    const size_t objects = pool_->objects.size();
    Log_Capture log;
    const bool done = step({.plan = &plan});
    if (!plan.struck()) {
      EXPECT_TRUE(done);
      break;
    }
    EXPECT_FALSE(log.texts(LM_ERROR).empty()) << nth;
    if (done) {
      EXPECT_EQ(restored_differences(), "") << nth;
    } else {
      EXPECT_EQ(sets().size(), before) << nth;
      EXPECT_EQ(pool_->objects.size(), objects) << nth;
    }
  }
}

TEST_F(Incremental, DamageOfAnOlderSetCostsOnlyWhatLiesThere) {
  write("a", noise(1000, 1));
  write("b", noise(1000, 2));
  ASSERT_TRUE(step());
  age();
  write("b", noise(1500, 3));
  ASSERT_TRUE(step());
  std::string& medium = pool_->objects[set_dir(1) + "/channel-000.mtf"];
  medium[medium.size() / 2] ^= 1;
  Log_Capture log;
  EXPECT_FALSE(restore({.seq = 2}));
  EXPECT_EQ(code_, MTF::E_CORRUPT);
  EXPECT_TRUE(log.has(LM_ERROR, "Failed to restore " + target_ + "/a: its data in the set is damaged\n")) << log.all();
  EXPECT_TRUE(fs::exists(target_ + "/b"));
  EXPECT_FALSE(fs::exists(target_ + "/a"));
}

TEST_F(Incremental, MissingMediumOfAnOlderSetCostsOnlyWhatLiesThere) {
  write("a", "old");
  ASSERT_TRUE(step());
  age();
  write("b", "new");
  ASSERT_TRUE(step());
  pool_->objects.erase(set_dir(1) + "/channel-000.mtf");
  Log_Capture log;
  EXPECT_FALSE(restore({.seq = 2}));
  EXPECT_EQ(code_, MTF::E_CORRUPT);
  EXPECT_TRUE(log.has(LM_ERROR, "Failed to restore " + target_ + "/a: its data in the set is damaged\n")) << log.all();
  EXPECT_TRUE(fs::exists(target_ + "/b"));
}

TEST_F(Incremental, MissingOlderSetCostsOnlyWhatLiesThere) {
  write("a", "old");
  write("a2", "old");
  ASSERT_TRUE(step());
  age();
  write("b", "new");
  ASSERT_TRUE(step());
  pool_->objects.erase(set_dir(1) + "/commit");
  Log_Capture log;
  EXPECT_FALSE(restore({.seq = 2}));
  EXPECT_EQ(code_, MTF::E_CORRUPT);
  const std::string line = "Set " + set_dir(1) + ", which this one builds on, is missing.\n";
  EXPECT_TRUE(log.has(LM_ERROR, line)) << log.all();
  const std::vector<std::string> errors = log.texts(LM_ERROR);
  EXPECT_EQ(std::count(errors.begin(), errors.end(), line), 1);
  for (const char* name : {"a", "a2"})
    EXPECT_TRUE(log.has(LM_ERROR, "Failed to restore " + target_ + "/" + name + ": its data in the set is damaged\n"))
        << log.all();
  EXPECT_TRUE(fs::exists(target_ + "/b"));
}

TEST_F(Incremental, AnotherSetInThePlaceOfAnOlderOneIsNotRead) {
  write("a", "old");
  ASSERT_TRUE(step());
  age();
  ASSERT_TRUE(step());
  change_records([](Commit_Record& record) {
    if (record.seq == 1) record.set_uuid = "other";
  });
  EXPECT_FALSE(restore({.seq = 2}));
  EXPECT_EQ(code_, MTF::E_CORRUPT);
  EXPECT_FALSE(fs::exists(target_ + "/a"));
}

}  // namespace
