#include <cerrno>
#include <optional>

#include "mtf_backup/set/catalog_reader.h"
#include "mtf_backup/set/catalog_writer.h"
#include "mtf_backup/test/store_fixture.h"

namespace {

using MTF_BACKUP::Catalog_Entry;
using MTF_BACKUP::catalog_order;
using MTF_BACKUP::Catalog_Reader;
using MTF_BACKUP::Catalog_Writer;
using test_support::Fault_Plan;
using test_support::Faulty_Client_IO;
using test_support::Log_Capture;

constexpr char dir_key[] = "set/0000000001.1";
const std::string catalog_key = std::string(dir_key) + "/catalog";

Catalog_Entry entry(const std::string& path, bool directory, uint32_t source = 0) {
  Catalog_Entry made;
  made.source = source;
  made.path = path;
  made.stat.mode = directory ? 0040755 : 0100644;
  return made;
}

// An entry in which every field has a value of its own.
Catalog_Entry full_entry(const std::string& path) {
  Catalog_Entry made = entry(path, false, 3);
  made.stat = {0120777, 1, 2, 3, 4, 5, 6, UINT64_MAX, {-7, 8}, {9, 999999999}, {INT64_MAX, 11}};
  made.flags = MTF_BACKUP::CAT_CORRUPT | MTF_BACKUP::CAT_CHANGED;
  made.reason = "changed while it was read";
  made.link_target = "../\xff\n";
  made.hard_link_target = "/vol/other";
  made.xattr_hash = 12;
  made.set = 12;
  made.channel = 13;
  made.offset = 14;
  made.data_size = 15;
  made.data_hash = 16;
  return made;
}

class Catalog : public Store_Fixture {
 protected:
  bool write(const std::vector<Catalog_Entry>& entries, Client_IO_Base* client = nullptr) {
    Catalog_Writer writer(client != nullptr ? *client : client_, dir_key, "uuid");
    if (!writer.open()) return false;
    for (const Catalog_Entry& each : entries)
      if (!writer.append(each)) return false;
    return writer.finish();
  }

  std::unique_ptr<Catalog_Reader> open(uint64_t size, Client_IO_Base* client = nullptr) {
    auto reader = std::make_unique<Catalog_Reader>(client != nullptr ? *client : client_, dir_key, "uuid", size);
    return reader->open() ? std::move(reader) : nullptr;
  }
  std::unique_ptr<Catalog_Reader> open() { return open(stored_size(catalog_key)); }

  // All entries from where the reader stands; without value after a failure.
  static std::optional<std::vector<Catalog_Entry>> rest(Catalog_Reader* reader) {
    if (reader == nullptr) return std::nullopt;
    std::vector<Catalog_Entry> entries;
    Catalog_Entry next;
    int got;
    while ((got = reader->next(next)) == 1) entries.push_back(next);
    if (got < 0) return std::nullopt;
    return entries;
  }

  // Directories with files, enough for several blocks.
  static std::vector<Catalog_Entry> large_tree() {
    std::vector<Catalog_Entry> entries{entry("", true)};
    char name[64];
    for (int d = 0; d < 100; ++d) {
      snprintf(name, sizeof name, "directory-%04d", d);
      const std::string dir = name;
      entries.push_back(entry(dir, true));
      for (int f = 0; f < 100; ++f) {
        snprintf(name, sizeof name, "/file-%04d", f);
        entries.push_back(entry(dir + name, false));
        entries.back().stat.ino = static_cast<uint64_t>(d * 1000 + f);
      }
    }
    return entries;
  }
};

TEST(Catalog_Order, InADirectoryItsFilesComeBeforeItsSubdirectories) {
  const std::vector<Catalog_Entry> ordered = {
      entry("", true),      entry("z", false),     entry("a", true),     entry("a/x", false), entry("a/y", false),
      entry("a/b", true),   entry("a/b/c", false), entry("a/b-", true),  entry("a.b", true),  entry("b", true),
      entry("b\xff", true), entry("", true, 1),    entry("a", false, 1), entry("", true, 2)};
  for (size_t i = 0; i < ordered.size(); ++i)
    for (size_t j = 0; j < ordered.size(); ++j) {
      const int order = catalog_order(ordered[i], ordered[j]);
      EXPECT_EQ(i < j   ? -1
                : i > j ? 1
                        : 0,
                order < 0   ? -1
                : order > 0 ? 1
                            : 0)
          << ordered[i].path << " " << ordered[j].path;
    }
}

TEST_F(Catalog, EveryFieldComesBack) {
  const std::vector<Catalog_Entry> entries = {entry("", true), full_entry("name"), full_entry("name2")};
  ASSERT_TRUE(write(entries));
  EXPECT_EQ(rest(open().get()), entries);
}

TEST_F(Catalog, AnEmptyOneHasNoEntries) {
  ASSERT_TRUE(write({}));
  const auto reader = open();
  EXPECT_EQ(reader->entries(), 0u);
  EXPECT_EQ(rest(reader.get()), std::vector<Catalog_Entry>{});
  EXPECT_TRUE(reader->seek(0, "a", false));
  EXPECT_EQ(rest(reader.get()), std::vector<Catalog_Entry>{});
}

TEST_F(Catalog, ManyBlocksReadAsTheyWereWritten) {
  const auto entries = large_tree();
  ASSERT_TRUE(write(entries));
  const auto reader = open();
  EXPECT_EQ(reader->entries(), entries.size());
  EXPECT_EQ(rest(reader.get()), entries);
  EXPECT_LT(stored_size(catalog_key), entries.size() * 40);
}

TEST_F(Catalog, TheWriterTellsItsObject) {
  Catalog_Writer writer(client_, dir_key, "uuid");
  ASSERT_TRUE(writer.open() && writer.append(entry("a", false)));
  EXPECT_EQ(writer.entries(), 1u);
  EXPECT_EQ(writer.object().name, "");
  ASSERT_TRUE(writer.finish());
  EXPECT_EQ(writer.object().name, "catalog");
  EXPECT_EQ(writer.object().size, stored_size(catalog_key));
}

TEST_F(Catalog, SeekFindsTheFirstEntryThatIsNotBefore) {
  const auto entries = large_tree();
  ASSERT_TRUE(write(entries));
  const auto reader = open();
  for (size_t i = 0; i < entries.size(); i += 97) {
    ASSERT_TRUE(reader->seek(0, entries[i].path, entries[i].is_directory()));
    Catalog_Entry found;
    ASSERT_EQ(reader->next(found), 1);
    EXPECT_EQ(found, entries[i]);
    if (i + 1 < entries.size()) {
      ASSERT_EQ(reader->next(found), 1);
      EXPECT_EQ(found, entries[i + 1]);
    }
  }
  ASSERT_TRUE(reader->seek(0, "directory-0042/file-0007x", false));
  Catalog_Entry found;
  ASSERT_EQ(reader->next(found), 1);
  EXPECT_EQ(found.path, "directory-0042/file-0008");
  ASSERT_TRUE(reader->seek(0, "zzz", true));
  EXPECT_EQ(reader->next(found), 0);
  ASSERT_TRUE(reader->seek(0, "", true));
  EXPECT_EQ(rest(reader.get()), entries);
}

TEST_F(Catalog, FindWantsTheExactPathOfWhateverKind) {
  ASSERT_TRUE(write(large_tree()));
  const auto reader = open();
  Catalog_Entry found;
  EXPECT_EQ(reader->find(0, "directory-0042/file-0007", found), 1);
  EXPECT_EQ(found.stat.ino, 42007u);
  EXPECT_EQ(reader->find(0, "directory-0042", found), 1);
  EXPECT_TRUE(found.is_directory());
  EXPECT_EQ(reader->find(0, "", found), 1);
  EXPECT_EQ(found.path, "");
  EXPECT_EQ(reader->find(0, "directory-0042/file-00", found), 0);
  EXPECT_EQ(reader->find(1, "directory-0042", found), 0);
}

TEST_F(Catalog, EntriesOutOfOrderAreRefused) {
  const std::vector<std::pair<Catalog_Entry, Catalog_Entry>> pairs = {{entry("b", false), entry("a", false)},
                                                                      {entry("a", false), entry("a", false)},
                                                                      {entry("a", true), entry("b", false)},
                                                                      {entry("", true, 1), entry("x", false, 0)}};
  for (const auto& [first, second] : pairs) {
    Log_Capture log;
    Catalog_Writer writer(client_, dir_key, "uuid");
    ASSERT_TRUE(writer.open() && writer.append(first));
    EXPECT_FALSE(writer.append(second));
    EXPECT_EQ(errno, EINVAL);
    EXPECT_TRUE(
        log.has(LM_ERROR, "Failed to add an entry to the catalog, it is out of order: \"" + second.path + "\".\n"))
        << log.all();
    EXPECT_FALSE(writer.append(entry("zzz", true, 9)));  // the first failure stays
    EXPECT_FALSE(writer.finish());
    EXPECT_EQ(log.lines().size(), 1u);
  }
  EXPECT_TRUE(pool_->objects.empty());
}

TEST_F(Catalog, AnEntryThatIsTooLongIsRefused) {
  Log_Capture log;
  EXPECT_FALSE(write({entry(std::string(2 << 20, 'x'), false)}));
  EXPECT_EQ(errno, EINVAL);
  EXPECT_TRUE(log.has_containing(LM_ERROR, "Failed to add an entry to the catalog, it is too long: \"xxx"));
}

TEST_F(Catalog, PathThatIsTooLongIsRefusedAlsoWhereItGoesOnFromTheOneBefore) {
  const std::string longest((1 << 20) - 1000, 'x');
  Log_Capture log;
  EXPECT_FALSE(write({entry(longest, true), entry(longest + "/" + std::string(2000, 'y'), false)}));
  EXPECT_TRUE(log.has_containing(LM_ERROR, "Failed to add an entry to the catalog, it is too long: \"xxx"));
}

TEST_F(Catalog, IndexOfBlocksThatNoReaderWouldTakeIsRefused) {
  Catalog_Writer writer(client_, dir_key, "uuid");
  ASSERT_TRUE(writer.open());
  Log_Capture log;
  Catalog_Entry next = entry(std::string((1 << 20) - 1000, 'x'), false);
  int blocks = 0;
  for (; blocks < 300; ++blocks) {
    next.path.replace(0, 3, std::to_string(100 + blocks));
    if (!writer.append(next)) break;
  }
  EXPECT_EQ(blocks, 256);
  EXPECT_TRUE(log.has_containing(LM_ERROR, "Failed to add an entry to the catalog, its index of blocks is full: "));
  EXPECT_FALSE(writer.finish());
}

TEST_F(Catalog, TheLongestPathsAreKept) {
  std::string path;
  for (int i = 0; i < 300; ++i) path += (i == 0 ? "" : "/") + std::string(255, 'x');
  ASSERT_TRUE(write({entry(path, true), entry(path + "/" + std::string(255, 'y'), false)}));
  EXPECT_EQ(rest(open().get())->at(1).path.size(), 300 * 256u + 255);
}

TEST_F(Catalog, EveryDamageIsFoundAndNamed) {
  ASSERT_TRUE(write({entry("", true), full_entry("name"), full_entry("name2")}));
  const uint64_t size = stored_size(catalog_key);
  damage_everywhere(catalog_key, [&](const std::string& what) {
    Log_Capture log;
    const auto reader = open(size);
    // A reader that streams does not look at the index of blocks; one that seeks does.
    const bool found = !rest(reader.get()) || !reader->seek(0, "", true);
    EXPECT_TRUE(found) << what;
    EXPECT_EQ(errno, EBADMSG) << what;
    EXPECT_EQ(log.lines().size(), 1u) << log.all();
    EXPECT_TRUE(log.has_containing(LM_ERROR, "Object \"" + catalog_key + "\" is damaged at offset ")) << log.all();
  });
}

TEST_F(Catalog, OneOfAnotherSetIsFound) {
  ASSERT_TRUE(write({entry("", true)}));
  pool_->objects["set/0000000001.2/catalog"] = pool_->objects[catalog_key];
  Log_Capture log;
  Catalog_Reader other(client_, "set/0000000001.2", "uuid", stored_size(catalog_key));
  EXPECT_FALSE(other.open());
  EXPECT_EQ(errno, EBADMSG);
  Catalog_Reader uuid(client_, dir_key, "another uuid", stored_size(catalog_key));
  EXPECT_FALSE(uuid.open());
}

TEST_F(Catalog, EveryFailureOfTheStorageFailsTheCatalogAndLeavesNothing) {
  const auto entries = large_tree();
  for (int nth = 0;; ++nth) {
    Log_Capture log;
    Fault_Plan plan(Fault_Plan::CREATE | Fault_Plan::WRITE | Fault_Plan::COMMIT, nth, EDQUOT);
    Faulty_Client_IO faulty(client_, plan);
    const bool written = write(entries, &faulty);
    if (!plan.struck()) {
      EXPECT_TRUE(written);
      EXPECT_GE(nth, 10);
      break;
    }
    EXPECT_FALSE(written) << nth;
    EXPECT_EQ(errno, EDQUOT);
    EXPECT_EQ(log.lines().size(), 1u) << log.all();
    EXPECT_TRUE(pool_->objects.empty());
  }
}

TEST_F(Catalog, EveryFailureOfAReadIsAnErrorThatSeekMends) {
  const auto entries = large_tree();
  ASSERT_TRUE(write(entries));
  for (int nth = 0;; ++nth) {
    Log_Capture log;
    Fault_Plan plan(Fault_Plan::OPEN | Fault_Plan::READ, nth);
    Faulty_Client_IO faulty(client_, plan);
    const auto reader = open(stored_size(catalog_key), &faulty);
    const auto read = rest(reader.get());
    if (!plan.struck()) {
      EXPECT_GE(nth, 3);
      break;
    }
    EXPECT_FALSE(read) << nth;
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(log.lines().size(), 1u) << log.all();
    if (reader) {
      Catalog_Entry next;
      EXPECT_EQ(reader->next(next), -1);
      EXPECT_TRUE(reader->seek(0, "", true));
      EXPECT_EQ(rest(reader.get()), entries);
    }
  }
}

}  // namespace
