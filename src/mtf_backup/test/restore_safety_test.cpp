#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/xattr.h>

#include "kolt/posix_fd.h"
#include "mtf_backup/mtf_export.h"
#include "mtf_backup/set/catalog_reader.h"
#include "mtf_backup/set/catalog_writer.h"
#include "mtf_backup/test/mover_fixture.h"
#include "support/attributes.h"

using namespace mover_test;
using test_support::Log_Capture;

namespace {

/// Targets and sets that somebody has prepared.
class Hostile : public Mover_Fixture {
 protected:
  Hostile() {
    std::filesystem::create_directory(outside_);
    dir_.write("outside/canary", "canary");
  }
  ~Hostile() override {
    EXPECT_EQ("canary", test_support::read_file(outside_ + "/canary"));
    size_t entries = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(outside_)) ++entries;
    EXPECT_EQ(1u, entries) << "something was written outside the target";
  }

  /// Takes the set's catalog away and puts another one in its place.
  void replace_catalog(const std::function<void(std::vector<MTF_BACKUP::Catalog_Entry>&)>& change);

  static void expect_link_to_nothing(const Log_Capture& log, const std::string& path) {
    EXPECT_TRUE(log.has(LM_ERROR, "Failed to restore " + path + ": it is a link to nothing that could be restored\n"))
        << log.all();
    EXPECT_FALSE(std::filesystem::exists(path));
  }

  const std::string outside_ = dir_ / "outside";
};

void Hostile::replace_catalog(const std::function<void(std::vector<MTF_BACKUP::Catalog_Entry>&)>& change) {
  MTF_BACKUP::Commit_Record record = sets().at(0);
  const MTF_BACKUP::Set_Id id{record.name, record.seq, record.incarnation};
  auto client = std::make_shared<test_support::Memory_Client_IO>(pool_);
  std::vector<MTF_BACKUP::Catalog_Entry> entries;
  {
    MTF_BACKUP::Catalog_Reader reader(*client, id.dir(), record.set_uuid, record.find("catalog")->size);
    ASSERT_TRUE(reader.open());
    MTF_BACKUP::Catalog_Entry entry;
    while (reader.next(entry) == 1) entries.push_back(entry);
  }
  change(entries);
  std::sort(entries.begin(), entries.end(), [](const auto& a, const auto& b) { return catalog_order(a, b) < 0; });
  pool_->objects.erase(id.dir() + "/catalog");
  pool_->objects.erase(id.dir() + "/commit");
  MTF_BACKUP::Catalog_Writer writer(*client, id.dir(), record.set_uuid);
  ASSERT_TRUE(writer.open());
  for (const auto& entry : entries) ASSERT_TRUE(writer.append(entry)) << entry.path;
  ASSERT_TRUE(writer.finish());
  record.objects.back() = writer.object();
  ASSERT_TRUE(MTF_BACKUP::Set_Store(client).commit(id, record));
}

TEST_F(Hostile, LinkPlantedInTheTargetIsNotFollowed) {
  write("d/a", "text");
  write("e/b", "text");
  ASSERT_TRUE(back_up());
  ASSERT_EQ(0, symlink(outside_.c_str(), (target_ + "/d").c_str()));
  Log_Capture log;
  EXPECT_FALSE(restore());
  EXPECT_EQ(MTF::E_END_WITH_SKIPPED_FILES, code_);
  EXPECT_TRUE(log.has(LM_ERROR, "Failed to make directory " + target_ +
                                    "/d, all below it is left out: a link or a file is in the way\n"))
      << log.all();
  EXPECT_EQ(1u, log.texts(LM_ERROR).size()) << log.all();
  EXPECT_EQ("text", test_support::read_file(target_ + "/e/b"));
}

TEST_F(Hostile, LinkPlantedAboveAnUnselectedDirectoryIsNotFollowed) {
  write("d/e/a", "text");
  ASSERT_TRUE(back_up());
  ASSERT_EQ(0, symlink(outside_.c_str(), (target_ + "/d").c_str()));
  Log_Capture log;
  EXPECT_FALSE(restore({.select = {source_ + "/d/e/a"}}));
  EXPECT_EQ(MTF::E_END_WITH_SKIPPED_FILES, code_);
}

TEST_F(Hostile, LinkUnderAFilesNameIsReplacedAndNotFollowed) {
  write("a", "text");
  ASSERT_TRUE(back_up());
  ASSERT_EQ(0, symlink((outside_ + "/canary").c_str(), (target_ + "/a").c_str()));
  ASSERT_TRUE(restore());
  EXPECT_FALSE(std::filesystem::is_symlink(target_ + "/a"));
  EXPECT_EQ("text", test_support::read_file(target_ + "/a"));
}

TEST_F(Hostile, TargetItselfMayBeReachedThroughALink) {
  write("a", "text");
  ASSERT_TRUE(back_up());
  ASSERT_EQ(0, symlink(target_.c_str(), (dir_ / "way").c_str()));
  ASSERT_TRUE(restore({.rules = {{source_, dir_ / "way"}}}));
  EXPECT_EQ("text", test_support::read_file(target_ + "/a"));
}

TEST_F(Hostile, DirectoriesExchangedForLinksDuringTheRestore) {
  // Everything that a restore does with a name: files, links, FIFOs, further names, modes, times, attributes.
  for (int i = 0; i < 30; ++i) {
    write("d/f" + std::to_string(i), noise(2000, i));
    write("d/e/g" + std::to_string(i), noise(100, i));
  }
  write("d/canary", "overwritten");
  write("d/e/canary", "overwritten");
  ASSERT_EQ(0, chmod((source_ + "/d/canary").c_str(), 06777));
  ASSERT_EQ(0, chmod((source_ + "/d/e").c_str(), 0777));
  ASSERT_EQ(0, symlink("/etc", (source_ + "/d/link").c_str()));
  ASSERT_EQ(0, mkfifo((source_ + "/d/fifo").c_str(), 0640));
  std::filesystem::create_hard_link(source_ + "/d/f1", source_ + "/d/again");
  std::filesystem::create_hard_link(source_ + "/d/e/canary", source_ + "/d/e/other");
  ASSERT_TRUE(back_up());
  std::filesystem::create_directories(target_ + "/d/e");
  ASSERT_EQ(0, symlink(outside_.c_str(), (target_ + "/to-outside").c_str()));
  ASSERT_EQ(0, symlink(outside_.c_str(), (target_ + "/d/to-outside").c_str()));
  ASSERT_EQ(0, symlink((outside_ + "/canary").c_str(), (target_ + "/d/to-canary").c_str()));
  struct stat before;
  struct stat directory_before;
  ASSERT_EQ(0, stat((outside_ + "/canary").c_str(), &before));
  ASSERT_EQ(0, stat(outside_.c_str(), &directory_before));
  std::atomic<bool> stop{false};
  // By descriptor, so that the attack itself never goes through its links.
  const Posix_Fd top(open(target_.c_str(), O_PATH | O_DIRECTORY));
  const Posix_Fd d(open((target_ + "/d").c_str(), O_PATH | O_DIRECTORY));
  const auto exchange = [](const Posix_Fd& dir, const char* a, const char* b) {
    syscall(SYS_renameat2, dir.get(), a, dir.get(), b, RENAME_EXCHANGE);
  };
  std::thread attacker([&] {
    while (!stop) {
      exchange(top, "d", "to-outside");
      exchange(d, "e", "to-outside");
      exchange(d, "canary", "to-canary");
    }
  });
  Log_Capture log;
  for (int i = 0; i < 20; ++i) (void)restore({.threads = 4});
  stop = true;
  attacker.join();
  struct stat after;
  ASSERT_EQ(0, stat((outside_ + "/canary").c_str(), &after));
  EXPECT_EQ(before.st_ino, after.st_ino);
  EXPECT_EQ(before.st_mode, after.st_mode);
  EXPECT_EQ(before.st_nlink, after.st_nlink);
  EXPECT_EQ(before.st_mtim.tv_nsec, after.st_mtim.tv_nsec);
  ASSERT_EQ(0, stat(outside_.c_str(), &after));
  EXPECT_EQ(directory_before.st_mode, after.st_mode);
  EXPECT_EQ(directory_before.st_mtim.tv_nsec, after.st_mtim.tv_nsec);
}

TEST_F(Hostile, NamesThatLeadOutAreRefusedAndTheRestIsRestored) {
  write("a", "text");
  ASSERT_TRUE(back_up());
  replace_catalog([](std::vector<MTF_BACKUP::Catalog_Entry>& entries) {
    const MTF_BACKUP::Catalog_Entry file = entries.back();
    const std::vector<std::string> paths = {
        "../outside/x", "..", "b/../../outside/y", "/etc/x", "c//d", ".", "e/.", std::string("n\0ul", 4)};
    for (const std::string& path : paths) {
      MTF_BACKUP::Catalog_Entry bad = file;
      bad.path = path;
      entries.push_back(bad);
    }
  });
  Log_Capture log;
  EXPECT_FALSE(restore());
  EXPECT_EQ(MTF::E_END_WITH_SKIPPED_FILES, code_) << log.all();
  EXPECT_EQ(8u, log.texts(LM_ERROR).size()) << log.all();
  EXPECT_TRUE(log.has(LM_ERROR, "Refused to restore " + source_ + "/../outside/x: not a plain path.\n")) << log.all();
  EXPECT_EQ("text", test_support::read_file(target_ + "/a"));
}

TEST_F(Hostile, NamesThatLeadOutAreLeftOutOfAnExport) {
  write("a", "text");
  ASSERT_TRUE(back_up());
  replace_catalog([this](std::vector<MTF_BACKUP::Catalog_Entry>& entries) {
    const MTF_BACKUP::Catalog_Entry file = entries.back();
    for (const std::string& path :
         {std::string("../x"), std::string("/etc/x"), std::string("c//d"), std::string("n\0ul", 4)}) {
      entries.push_back(file);
      entries.back().path = path;
    }
    entries.push_back(file);
    entries.back().path = "link";
    entries.back().hard_link_target = source_ + "/../outside/canary";
  });
  for (const auto form : {MTF_BACKUP::EXPORT_TAR, MTF_BACKUP::EXPORT_MTF}) {
    const std::string file = dir_ / ("exported" + std::to_string(form));
    const Posix_Fd out(open(file.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
    MTF_Export run{MTF::Event_Handler_var(nullptr)};
    run.channel_factory(make_channels(nullptr));
    run.form(form);
    run.output(out.get());
    Log_Capture log;
    EXPECT_EQ(MTF::E_END_WITH_SKIPPED_FILES, run.run("volume/0000000001.1"));
    EXPECT_TRUE(run.complete());
    EXPECT_EQ(2u, run.entries()) << "the root and a file";
    EXPECT_EQ(5u, run.left_out());
    EXPECT_TRUE(log.has(LM_WARNING, source_ + "/../x is left out: not a plain path.\n")) << log.all();
    EXPECT_TRUE(log.has(LM_WARNING, source_ + "/link is left out: its other name is not a plain path.\n")) << log.all();
    EXPECT_EQ(std::string::npos, test_support::read_file(file).find("..")) << form;
  }
}

TEST_F(Hostile, EntriesThatCannotBeMadeAsToldAreRefused) {
  write("a", "text");
  ASSERT_EQ(0, symlink("nowhere", (source_ + "/link").c_str()));
  ASSERT_TRUE(back_up());
  dir_.write("target/link", "old");
  dir_.write("target/odd", "old");
  replace_catalog([](std::vector<MTF_BACKUP::Catalog_Entry>& entries) {
    for (MTF_BACKUP::Catalog_Entry& entry : entries)
      if (entry.path == "link") entry.link_target = std::string("/etc\0/never", 11);
    MTF_BACKUP::Catalog_Entry odd = entries[1];
    ASSERT_EQ("a", odd.path);
    odd.path = "odd";
    odd.stat.mode = 0644;
    entries.push_back(odd);
  });
  Log_Capture log;
  EXPECT_FALSE(restore());
  EXPECT_EQ(MTF::E_CORRUPT, code_) << log.all();
  for (const char* name : {"/link", "/odd"}) {
    EXPECT_TRUE(log.has(LM_ERROR, "Failed to restore " + target_ + name + ": its data in the set is damaged\n"))
        << log.all();
    EXPECT_EQ("old", test_support::read_file(target_ + name));
  }
  EXPECT_EQ(2u, log.texts(LM_ERROR).size()) << log.all();
  EXPECT_EQ("text", test_support::read_file(target_ + "/a"));
}

TEST_F(Hostile, HardLinkToAPathOutsideTheSetIsRefused) {
  write("a", "text");
  ASSERT_TRUE(back_up());
  replace_catalog([this](std::vector<MTF_BACKUP::Catalog_Entry>& entries) {
    MTF_BACKUP::Catalog_Entry bad = entries.back();
    bad.path = "b";
    bad.hard_link_target = outside_ + "/canary";
    entries.push_back(bad);
  });
  Log_Capture log;
  EXPECT_FALSE(restore());
  EXPECT_EQ(MTF::E_END_WITH_SKIPPED_FILES, code_);
  expect_link_to_nothing(log, target_ + "/b");
}

TEST_F(Hostile, HardLinkToAFileThatTellsOfNoFurtherNamesIsRefused) {
  write("a", "text");
  ASSERT_TRUE(back_up());
  dir_.write("target/a", "what stood there before");
  replace_catalog([this](std::vector<MTF_BACKUP::Catalog_Entry>& entries) {
    MTF_BACKUP::Catalog_Entry bad = entries.back();
    ASSERT_EQ("a", bad.path);
    entries.back().data_hash ^= 1;  // so that it fails
    bad.path = "b";
    bad.hard_link_target = source_ + "/a";
    entries.push_back(bad);
  });
  Log_Capture log;
  EXPECT_FALSE(restore());
  EXPECT_EQ(MTF::E_CORRUPT, code_);
  expect_link_to_nothing(log, target_ + "/b");
  EXPECT_EQ("what stood there before", test_support::read_file(target_ + "/a"));
}

TEST_F(Hostile, WhatStoodInTheWayOfADamagedStandInGetsNoFurtherName) {
  write("a/f", "text");
  write("b/g", "text");
  write("b/h", "text");
  ASSERT_TRUE(back_up());
  dir_.write("target/b/g", "what stood there before");
  replace_catalog([this](std::vector<MTF_BACKUP::Catalog_Entry>& entries) {
    for (MTF_BACKUP::Catalog_Entry& entry : entries) {
      if (entry.path == "a/f") entry.stat.nlink = 3;
      if (entry.path == "a/f") entry.data_hash ^= 1;
      if (entry.path == "b/g" || entry.path == "b/h") entry.hard_link_target = source_ + "/a/f";
    }
  });
  Log_Capture log;
  EXPECT_FALSE(restore({.select = {source_ + "/b"}}));
  EXPECT_EQ(MTF::E_CORRUPT, code_);
  EXPECT_TRUE(log.has(LM_ERROR, "Failed to restore " + target_ + "/b/h: its other name could not be restored\n"))
      << log.all();
  EXPECT_EQ("what stood there before", test_support::read_file(target_ + "/b/g"));
  EXPECT_FALSE(std::filesystem::exists(target_ + "/b/h"));
}

// The mode's bits of the group were the mask of the list.
TEST_F(Hostile, DirectoryWhoseAccessListIsDamagedGivesItsGroupNothing) {
  const std::string path = source_ + "/d";
  write("d/f", "text");
  if (setxattr(path.c_str(), "system.posix_acl_access", test_support::access_list.data(),
               test_support::access_list.size(), 0) != 0)
    GTEST_SKIP() << "no access lists here";
  ASSERT_TRUE(back_up());
  ASSERT_EQ(060u, entry("d").stat.mode & 070);
  replace_catalog([](std::vector<MTF_BACKUP::Catalog_Entry>& entries) {
    for (MTF_BACKUP::Catalog_Entry& entry : entries)
      if (entry.path == "d") entry.xattr_hash ^= 1;
  });
  Log_Capture log;
  EXPECT_FALSE(restore());
  EXPECT_EQ(MTF::E_CORRUPT, code_);
  EXPECT_TRUE(log.has_containing(LM_ERROR, "Failed to restore the extended attributes of " + target_ + "/d: "))
      << log.all();
  struct stat st;
  ASSERT_EQ(0, stat((target_ + "/d").c_str(), &st));
  EXPECT_EQ(0600u, st.st_mode & 07777);
}

TEST_F(Hostile, PrivateDirectoryThatIsTakenAwayCostsOneEntryAtMost) {
  for (int i = 0; i < 8; ++i) ASSERT_EQ(0, symlink("x", (source_ + "/l" + std::to_string(i)).c_str()));
  ASSERT_TRUE(back_up());
  Log_Capture log;
  std::atomic<int> links{0};
  EXPECT_FALSE(restore({.threads = 1, .hook = [&](const char* what, const std::string&) {
                          if (std::string(what) == "symlink" && ++links == 3)
                            for (const auto& entry : std::filesystem::directory_iterator(target_))
                              if (name_of(entry.path()).starts_with(".tessarin-")) rmdir(entry.path().c_str());
                          return false;
                        }}));
  EXPECT_EQ(MTF::E_END_WITH_SKIPPED_FILES, code_);
  EXPECT_EQ(1u, log.texts(LM_ERROR).size()) << log.all();
  EXPECT_EQ(7, std::distance(std::filesystem::directory_iterator(target_), {}));
}

TEST_F(Hostile, HardLinkToALinkIsRefused) {
  write("a", "text");
  ASSERT_EQ(0, symlink((outside_ + "/canary").c_str(), (source_ + "/link").c_str()));
  ASSERT_TRUE(back_up());
  replace_catalog([this](std::vector<MTF_BACKUP::Catalog_Entry>& entries) {
    MTF_BACKUP::Catalog_Entry bad = entries[1];
    ASSERT_EQ("a", bad.path);
    bad.path = "z";
    bad.hard_link_target = source_ + "/link";
    entries.push_back(bad);
  });
  Log_Capture log;
  EXPECT_FALSE(restore());
  EXPECT_EQ(MTF::E_END_WITH_SKIPPED_FILES, code_);
  EXPECT_FALSE(std::filesystem::exists(target_ + "/z"));
}

TEST_F(Hostile, LinkAndThenAChildThroughIt) {
  ASSERT_EQ(0, symlink(outside_.c_str(), (source_ + "/l").c_str()));
  write("file", "evil");
  ASSERT_TRUE(back_up());
  replace_catalog([](std::vector<MTF_BACKUP::Catalog_Entry>& entries) {
    MTF_BACKUP::Catalog_Entry directory = entries[0];
    MTF_BACKUP::Catalog_Entry child = entries[1];
    ASSERT_EQ("file", child.path);
    directory.path = "l";
    child.path = "l/canary";
    entries.push_back(directory);
    entries.push_back(child);
    child.path = "l/more";
    entries.push_back(child);
  });
  Log_Capture log;
  for (int i = 0; i < 5; ++i) {
    EXPECT_FALSE(restore({.threads = 3}));
    EXPECT_EQ(MTF::E_END_WITH_SKIPPED_FILES, code_) << log.all();
  }
  EXPECT_EQ("evil", test_support::read_file(target_ + "/file"));
}

TEST_F(Hostile, ChildThroughALinkWithoutADirectoryOfItsOwn) {
  ASSERT_EQ(0, symlink(outside_.c_str(), (source_ + "/l").c_str()));
  write("file", "evil");
  ASSERT_TRUE(back_up());
  replace_catalog([](std::vector<MTF_BACKUP::Catalog_Entry>& entries) {
    MTF_BACKUP::Catalog_Entry child = entries[1];
    child.path = "l/canary";
    entries.push_back(child);
  });
  Log_Capture log;
  for (int i = 0; i < 5; ++i) EXPECT_FALSE(restore({.threads = 3}));
}

TEST_F(Hostile, HardLinkThroughALinkIsRefused) {
  ASSERT_EQ(0, symlink(outside_.c_str(), (source_ + "/l").c_str()));
  write("a", "text");
  ASSERT_TRUE(back_up());
  replace_catalog([this](std::vector<MTF_BACKUP::Catalog_Entry>& entries) {
    MTF_BACKUP::Catalog_Entry first = entries[1];
    ASSERT_EQ("a", first.path);
    first.path = "l/canary";
    entries.push_back(first);
    for (const char* name : {"m/z", "z"}) {
      MTF_BACKUP::Catalog_Entry further = first;
      further.path = name;
      further.hard_link_target = source_ + (std::string(name) == "z" ? "/l/canary" : "/../outside/canary");
      entries.push_back(further);
    }
  });
  Log_Capture log;
  for (int i = 0; i < 5; ++i) EXPECT_FALSE(restore());
  struct stat canary;
  ASSERT_EQ(0, stat((outside_ + "/canary").c_str(), &canary));
  EXPECT_EQ(1u, canary.st_nlink);
}

TEST_F(Hostile, HardLinksInACircleAreRefused) {
  write("a", "text");
  ASSERT_TRUE(back_up());
  replace_catalog([this](std::vector<MTF_BACKUP::Catalog_Entry>& entries) {
    for (const auto& [name, target] : {std::pair("x", "/y"), std::pair("y", "/x"), std::pair("z", "/z")}) {
      MTF_BACKUP::Catalog_Entry further = entries[1];
      further.path = name;
      further.hard_link_target = source_ + target;
      entries.push_back(further);
    }
  });
  Log_Capture log;
  EXPECT_FALSE(restore());
  EXPECT_EQ(MTF::E_END_WITH_SKIPPED_FILES, code_);
  EXPECT_EQ(3u, log.texts(LM_ERROR).size()) << log.all();
  EXPECT_EQ("text", test_support::read_file(target_ + "/a"));
}

TEST_F(Hostile, FirstNameExchangedForALinkGetsNoFurtherName) {
  write("a", "text");
  std::filesystem::create_hard_link(source_ + "/a", source_ + "/b");
  write("c", "text");
  ASSERT_TRUE(back_up());
  Log_Capture log;
  EXPECT_FALSE(restore({.threads = 1, .hook = [this](const char* what, const std::string& path) {
                          if (std::string(what) != "rename" || name_of(path) != "c") return false;
                          EXPECT_EQ(0, unlink((target_ + "/a").c_str()));
                          EXPECT_EQ(0, symlink((outside_ + "/canary").c_str(), (target_ + "/a").c_str()));
                          return false;
                        }}));
  EXPECT_EQ(MTF::E_END_WITH_SKIPPED_FILES, code_);
  EXPECT_FALSE(std::filesystem::exists(std::filesystem::symlink_status(target_ + "/b")));
}

TEST_F(Hostile, DamagedFrameIsNamedAndTheOtherFilesAreRestored) {
  for (int i = 0; i < 8; ++i) write("f" + std::to_string(i), noise(1 << 20, i + 1));
  ASSERT_TRUE(back_up());
  const std::string key = "volume/0000000001.1/channel-000.mtf";
  pool_->objects[key][(4 << 20) + 77] ^= 1;
  Log_Capture log;
  EXPECT_FALSE(restore());
  EXPECT_EQ(MTF::E_CORRUPT, code_);
  EXPECT_TRUE(log.has_containing(LM_ERROR, key)) << log.all();
  EXPECT_TRUE(log.has_containing(LM_ERROR, "its data in the set is damaged")) << log.all();
  int whole = 0;
  for (int i = 0; i < 8; ++i) {
    const std::string path = target_ + "/f" + std::to_string(i);
    if (!std::filesystem::exists(path)) continue;
    ++whole;
    EXPECT_EQ(noise(1 << 20, i + 1), test_support::read_file(path));
  }
  EXPECT_GE(whole, 6);
  EXPECT_LT(whole, 8);
}

TEST_F(Hostile, DataThatIsNotWhatTheCatalogTellsIsNotRestored) {
  write("a", "text");
  ASSERT_TRUE(back_up());
  replace_catalog([](std::vector<MTF_BACKUP::Catalog_Entry>& entries) { entries.back().data_hash ^= 1; });
  Log_Capture log;
  EXPECT_FALSE(restore());
  EXPECT_EQ(MTF::E_CORRUPT, code_);
  EXPECT_TRUE(log.has_containing(LM_ERROR, "the data is not what was backed up")) << log.all();
  EXPECT_FALSE(std::filesystem::exists(target_ + "/a"));
}

TEST_F(Hostile, BlockOfAnotherFileIsNotRestored) {
  write("a", "text");
  write("b", "longer");
  ASSERT_TRUE(back_up());
  replace_catalog([](std::vector<MTF_BACKUP::Catalog_Entry>& entries) { entries[1].offset = entries[2].offset; });
  Log_Capture log;
  EXPECT_FALSE(restore());
  EXPECT_EQ(MTF::E_CORRUPT, code_);
  EXPECT_FALSE(std::filesystem::exists(target_ + "/a"));
  EXPECT_EQ("longer", test_support::read_file(target_ + "/b"));
}

TEST_F(Hostile, DamagedCatalogEndsTheRestore) {
  write("a", "text");
  ASSERT_TRUE(back_up());
  std::string& catalog = pool_->objects["volume/0000000001.1/catalog"];
  catalog[catalog.size() / 2] ^= 1;
  Log_Capture log;
  EXPECT_FALSE(restore());
  EXPECT_EQ(MTF::E_CORRUPT, code_);
}

TEST_F(Hostile, OwnerThatCannotBeSetIsToldAndTakesTheSetUserBit) {
  const std::string path = write("a", "text");
  if (lchown(path.c_str(), 12345, 12345) != 0) GTEST_SKIP() << "needs the right to give files away";
  ASSERT_EQ(0, chmod(path.c_str(), 06755));
  ASSERT_TRUE(back_up());
  Log_Capture log;
  // Says yes and does nothing.
  EXPECT_TRUE(restore({.hook = [](const char* what, const std::string&) {
    errno = 0;
    return std::string(what) == "set_owner";
  }}));
  EXPECT_TRUE(log.has(
      LM_ERROR,
      "Restored " + target_ + "/a, but not as it was: owner 0:0 instead of 12345:12345, mode 0755 instead of 6755\n"))
      << log.all();
  EXPECT_EQ(1u, log.texts(LM_ERROR).size()) << log.all();
  struct stat st;
  ASSERT_EQ(0, stat((target_ + "/a").c_str(), &st));
  EXPECT_EQ(0755u, st.st_mode & 07777);
}

TEST_F(Hostile, FilesPutInPlaceOfThoseThatAreMadeGetNothingOfThem) {
  constexpr uid_t attacker_id = 12345;
  for (int i = 0; i < 30; ++i) ASSERT_EQ(0, chmod(write("f" + std::to_string(i), "text").c_str(), 04755));
  ASSERT_TRUE(back_up());
  const std::string own = dir_ / "own";
  std::filesystem::create_directory(own);
  if (lchown(own.c_str(), attacker_id, attacker_id) != 0) GTEST_SKIP() << "needs the right to give files away";
  std::atomic<bool> stop{false};
  int made = 0;
  // What the owner of the target can do to names in it: his files and directories take the place of what is there.
  std::thread attacker([&] {
    const std::string evil = own + "/evil";
    const std::string evil_dir = own + "/dir";
    while (!stop)
      for (const Directory_Entry& found : iterate_directory(target_.c_str())) {
        const std::string& path = S_ISDIR(found.stat.st_mode) ? evil_dir : evil;
        if (!std::filesystem::exists(path)) {
          if (&path == &evil)
            // He keeps another name of each, to see what becomes of it.
            std::filesystem::create_hard_link(dir_.write("own/kept-" + std::to_string(++made), "evil"), evil);
          else
            std::filesystem::create_directory(path);
          EXPECT_EQ(0, lchown(path.c_str(), attacker_id, attacker_id));
        }
        if (&path == &evil)
          ::rename(path.c_str(), (target_ + "/" + found.name).c_str());
        else
          ::renameat2(AT_FDCWD, path.c_str(), AT_FDCWD, (target_ + "/" + found.name).c_str(), RENAME_EXCHANGE);
      }
  });
  Log_Capture log;
  for (int i = 0; i < 30; ++i) (void)restore({.threads = 4});
  stop = true;
  attacker.join();
  int evil = 0;
  for (const auto& file : std::filesystem::recursive_directory_iterator(dir_.path())) {
    if (!file.is_regular_file() || test_support::read_file(file.path()) != "evil") continue;
    ++evil;
    struct stat st;
    ASSERT_EQ(0, lstat(file.path().c_str(), &st));
    EXPECT_EQ(attacker_id, st.st_uid) << file.path();
    EXPECT_EQ(0u, st.st_mode & S_ISUID) << file.path();
  }
  EXPECT_GT(evil, 0);
}

TEST_F(Hostile, SetUserBitNeverStandsWithAWrongOwner) {
  for (int i = 0; i < 40; ++i) {
    const std::string path = write("f" + std::to_string(i), "text");
    if (lchown(path.c_str(), 12345, 12345) != 0) GTEST_SKIP() << "needs the right to give files away";
    ASSERT_EQ(0, chmod(path.c_str(), 04755));
  }
  ASSERT_TRUE(back_up());
  std::atomic<bool> stop{false};
  std::atomic<int> wrong{0};
  // In the private directories too, which root alone can enter.
  const std::function<void(const std::string&)> watch = [&](const std::string& dir) {
    for (const Directory_Entry& entry : iterate_directory(dir.c_str())) {
      if (S_ISDIR(entry.stat.st_mode)) watch(dir + "/" + entry.name);
      if ((entry.stat.st_mode & S_ISUID) && entry.stat.st_uid != 12345) ++wrong;
    }
  };
  std::thread watcher([&] {
    while (!stop) watch(target_);
  });
  for (int i = 0; i < 10; ++i) EXPECT_TRUE(restore());
  stop = true;
  watcher.join();
  EXPECT_EQ(0, wrong);
}

}  // namespace
