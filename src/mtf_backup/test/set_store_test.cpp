#include "mtf_backup/set/set_store.h"

#include <cerrno>

#include "kolt/pool_info.h"
#include "mtf_backup/channel_factory.h"
#include "mtf_backup/set/hash.h"
#include "mtf_backup/test/store_fixture.h"
#include "support/temp_dir.h"

namespace {

using MTF_BACKUP::Commit_Record;
using MTF_BACKUP::encode_name;
using MTF_BACKUP::Set_Id;
using MTF_BACKUP::Set_Store;
using MTF_BACKUP::Stored_Object;
using test_support::Fault_Plan;
using test_support::Faulty_Client_IO;
using test_support::Log_Capture;
using test_support::Memory_Client_IO;

Commit_Record full_record() {
  Commit_Record record;
  record.set_uuid = "set";
  record.pool_uuid = "pool";
  record.host_uuid = "host";
  record.minor_resource_id = "minor";
  record.name = "name % \xff\n\"";
  record.seq = 4294967295u;
  record.incarnation = 7;
  record.base = "name/0000000001.1";
  record.begin_time = -5;
  record.end_time = 1700000000;
  record.compression = COMPR_ZSTD;
  record.channels = 2;
  record.sources = {"/vol/a", "/vol/\xff%41"};
  record.chain = {{"name/0000000001.1", "older"}, {"name/0000000000.3", "\xff"}};
  record.summary = {1, 2, 3, 4, 5, 6, UINT64_MAX};
  record.objects = {{"channel-000.mtf.zst", UINT64_MAX, std::string(32, 'a')}, {"catalog", 0, std::string(32, '0')}};
  return record;
}

TEST(Commit_Record_Text, EveryFieldComesBack) {
  const Commit_Record record = full_record();
  Commit_Record back;
  ASSERT_TRUE(back.from_text(record.to_text(), "where"));
  EXPECT_EQ(back.to_text(), record.to_text());
  EXPECT_EQ(back.name, record.name);
  EXPECT_EQ(back.seq, record.seq);
  EXPECT_EQ(back.begin_time, -5);
  EXPECT_EQ(back.sources, record.sources);
  EXPECT_EQ(back.base, record.base);
  EXPECT_EQ(back.chain, record.chain);
  EXPECT_EQ(back.summary.corrupt_count, UINT64_MAX);
  ASSERT_NE(back.find("catalog"), nullptr);
  EXPECT_EQ(back.find("channel-000.mtf.zst")->size, UINT64_MAX);
  EXPECT_EQ(back.find("nothing"), nullptr);
}

TEST(Commit_Record_Text, EveryDamageIsFoundAndLeavesTheRecordAlone) {
  const std::string good = full_record().to_text();
  Commit_Record record;
  record.set_uuid = "untouched";
  const auto expect_refused = [&](const std::string& text) {
    Log_Capture log;
    EXPECT_FALSE(record.from_text(text, "dir/commit")) << text;
    EXPECT_EQ(errno, EBADMSG);
    EXPECT_EQ(record.set_uuid, "untouched");
    EXPECT_TRUE(log.has(LM_ERROR, "Object \"dir/commit\" is damaged at offset 0: its checksum does not fit.\n"))
        << log.all();
  };
  for (size_t bit = 0; bit < good.size() * 8; ++bit) {
    std::string bad = good;
    bad[bit / 8] = static_cast<char>(bad[bit / 8] ^ (1 << bit % 8));
    expect_refused(bad);
  }
  for (size_t length = 0; length < good.size(); ++length) expect_refused(good.substr(0, length));
  expect_refused(good + " ");
}

// Puts a changed record under a checksum that fits.
std::string forged(const std::string& from, const std::string& to) {
  const std::string text = full_record().to_text();
  std::string body = text.substr(56, text.size() - 58);
  const size_t at = body.find(from);
  EXPECT_NE(at, std::string::npos) << from;
  body.replace(at, from.size(), to);
  return "{\"checksum\":\"" + MTF_BACKUP::hash_text(XXH3_128bits(body.data(), body.size())) + "\",\"record\":" + body +
         "}\n";
}

TEST(Commit_Record_Text, AContentThatCannotBeIsRefused) {
  const std::pair<const char*, const char*> changes[] = {
      {"\"seq\":4294967295", "\"seq\":4294967296"},
      {"\"seq\":4294967295", "\"seq\":-1"},
      {"\"seq\":4294967295", "\"seq\":\"1\""},
      {"\"seq\":4294967295", "\"seq\":1.0"},
      {"\"seq\":4294967295,", ""},
      {"\"seq\":4294967295", "\"seq\":1,\"zzz\":1"},
      {"\"incarnation\":7", "\"incarnation\":0"},
      {"\"compression\":3", "\"compression\":4"},
      {"\"channels\":2", "\"channels\":20000"},
      {"\"name\":\"catalog\"", "\"name\":\"../catalog\""},
      {"\"name\":\"catalog\"", "\"name\":\"channel-000.mtf.zst\""},
      {"\"hash\":\"aaaa", "\"hash\":\"aaaA"},
      {"%FF%2541", "%F"},
      {"\"dir\":\"name/0000000000.3\"", "\"dir\":\"name/0000000001.1\""},
      {"\"dir\":\"name/0000000000.3\"", "\"dir\":\"../0000000000.3\""},
      {"\"dir\":\"name/0000000000.3\",", ""},
      {"\"base\":\"name/0000000001.1\"", "\"base\":\"\""},
      {"\"summary\":{", "\"summary\":{\"a\":0,"},
  };
  for (const auto& [from, to] : changes) {
    Log_Capture log;
    Commit_Record record;
    EXPECT_FALSE(record.from_text(forged(from, to), "where")) << to;
    EXPECT_EQ(errno, EBADMSG);
    EXPECT_EQ(log.lines().size(), 1u) << log.all();
  }
  Commit_Record record;
  EXPECT_TRUE(record.from_text(forged("\"seq\":4294967295", "\"seq\":0"), "where"));
}

TEST(Commit_Record_Text, ANewerFormatIsNotCalledDamage) {
  Log_Capture log;
  Commit_Record record;
  EXPECT_FALSE(record.from_text(forged("\"format\":1", "\"format\":2"), "where"));
  EXPECT_EQ(errno, ENOTSUP);
  EXPECT_TRUE(log.has(LM_ERROR, "Object \"where\" has a format that is newer than this program.\n")) << log.all();
}

TEST(Encode_Name, KeepsPlainNamesAndEscapesTheRest) {
  EXPECT_EQ(encode_name("pvc-1_a.b"), "pvc-1_a.b");
  EXPECT_EQ(encode_name("/ns/pod data"), "%2Fns%2Fpod%20data");
  EXPECT_EQ(encode_name("100%"), "100%25");
  EXPECT_EQ(encode_name(".."), "%2E.");
  EXPECT_EQ(encode_name("\xff\n"), "%FF%0A");
}

TEST(Encode_Name, LongNamesStayApartAndFit) {
  const std::string one = encode_name(std::string(1000, '/') + "1");
  const std::string two = encode_name(std::string(1000, '/') + "2");
  EXPECT_EQ(one.size(), 255u);
  EXPECT_EQ(two.size(), 255u);
  EXPECT_NE(one, two);
  EXPECT_EQ(encode_name(std::string(255, 'x')), std::string(255, 'x'));
}

TEST(Set_Id_Dir, HasTheSequenceNumberInTenDigits) {
  EXPECT_EQ((Set_Id{"a b", 7, 12}).dir(), "a%20b/0000000007.12");
  EXPECT_EQ((Set_Id{"a", 4294967295u, 1}).dir(), "a/4294967295.1");
}

class Sets : public Store_Fixture {
 protected:
  // Writes one object and the commit record.
  bool make_set(const std::string& name, uint32_t seq, Set_Id* made = nullptr) {
    Set_Id id;
    if (!store_.begin(name, seq, id) || !put(id.dir() + "/catalog")) return false;
    if (made != nullptr) *made = id;
    return store_.commit(id, record());
  }
  bool put(const std::string& key) {
    const auto writer = storage_->create(key);
    return writer && writer->write("bytes", 5) && writer->commit();
  }
  static Commit_Record record() {
    Commit_Record made;
    made.objects = {{"catalog", 5, std::string(32, '0')}};
    return made;
  }
  std::vector<std::string> listed() {
    std::vector<std::string> dirs;
    all_listed_ = store_.list([&](const Set_Id& id, const Commit_Record& found) {
      EXPECT_EQ(id.name, found.name);
      dirs.push_back(id.dir());
      return true;
    });
    return dirs;
  }
  std::vector<std::string> keys() {
    std::vector<std::string> found;
    for (const auto& [key, bytes] : pool_->objects) found.push_back(key);
    return found;
  }
  typedef std::vector<std::string> Strings;

  const std::shared_ptr<Memory_Client_IO> storage_ = std::make_shared<Memory_Client_IO>(pool_);
  Set_Store store_{storage_};
  bool all_listed_ = false;
};

TEST_F(Sets, AreListedByNameSequenceAndIncarnationAsNumbers) {
  for (int i = 0; i < 11; ++i) ASSERT_TRUE(make_set("a", 1));
  ASSERT_TRUE(make_set("a", 10) && make_set("a", 2) && make_set("a/b", 1) && make_set("B", 1));
  const Strings dirs = listed();
  EXPECT_TRUE(all_listed_);
  ASSERT_EQ(dirs.size(), 15u);
  EXPECT_EQ(dirs[0], "B/0000000001.1");
  EXPECT_EQ(dirs[1], "a/0000000001.1");
  EXPECT_EQ(dirs[2], "a/0000000001.2");
  EXPECT_EQ(dirs[11], "a/0000000001.11");
  EXPECT_EQ(dirs[12], "a/0000000002.1");
  EXPECT_EQ(dirs[13], "a/0000000010.1");
  EXPECT_EQ(dirs[14], "a%2Fb/0000000001.1");
}

TEST_F(Sets, WithoutACommitRecordThereIsNoSet) {
  ASSERT_TRUE(put("a/0000000001.1/catalog"));
  EXPECT_EQ(listed(), Strings{});
  Set_Id id;
  Commit_Record found;
  EXPECT_FALSE(store_.find("a", 1, 0, id, found));
  EXPECT_EQ(errno, ENOENT);
}

TEST_F(Sets, FindGivesTheNewestOrTheExactOne) {
  ASSERT_TRUE(make_set("a", 1) && make_set("a", 1) && make_set("a", 11));
  Set_Id id;
  Commit_Record found;
  ASSERT_TRUE(store_.find("a", 1, 0, id, found));
  EXPECT_EQ(id.incarnation, 2u);
  EXPECT_EQ(found.incarnation, 2u);
  ASSERT_TRUE(store_.find("a", 1, 1, id, found));
  EXPECT_EQ(id.dir(), "a/0000000001.1");
  Log_Capture log;
  EXPECT_FALSE(store_.find("a", 1, 3, id, found));
  EXPECT_EQ(errno, ENOENT);
  EXPECT_FALSE(store_.find("a", 2, 0, id, found));
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(id.dir(), "a/0000000001.1");
  EXPECT_EQ(log.all(), "");
}

TEST_F(Sets, ReadGivesTheOneInADirectory) {
  ASSERT_TRUE(make_set("a", 1) && make_set("a", 1));
  Commit_Record found;
  ASSERT_TRUE(store_.read("a/0000000001.2", found));
  EXPECT_EQ(found.incarnation, 2u);
  Log_Capture log;
  for (const char* dir : {"a/0000000001.3", "a/1.1", "", "../a/0000000001.1", "a"}) {
    errno = 0;
    EXPECT_FALSE(store_.read(dir, found)) << dir;
    EXPECT_EQ(errno, ENOENT) << dir;
  }
  EXPECT_EQ(found.incarnation, 2u);
  EXPECT_EQ(log.all(), "");
  pool_->objects["a/0000000001.2/commit"] += " ";
  EXPECT_FALSE(store_.read("a/0000000001.2", found));
  EXPECT_EQ(errno, EBADMSG);
}

TEST_F(Sets, ANewIncarnationPassesOverLeftovers) {
  ASSERT_TRUE(make_set("a", 1) && put("a/0000000001.9/catalog") && put("a/0000000001.10/channel-000.mtf"));
  Set_Id id;
  ASSERT_TRUE(store_.begin("a", 1, id));
  EXPECT_EQ(id.incarnation, 11u);
  ASSERT_TRUE(store_.begin("a", 2, id));
  EXPECT_EQ(id.incarnation, 1u);
}

TEST_F(Sets, AfterTheLastIncarnationThereIsNone) {
  ASSERT_TRUE(put("a/0000000001.4294967295/catalog"));
  Set_Id id;
  Log_Capture log;
  EXPECT_FALSE(store_.begin("a", 1, id));
  EXPECT_EQ(errno, EOVERFLOW);
  EXPECT_TRUE(log.has(LM_ERROR, "There is no incarnation after the last one of set a with number 1.\n")) << log.all();
}

TEST_F(Sets, ASetIsNotCommittedTwice) {
  Set_Id id;
  ASSERT_TRUE(make_set("a", 1, &id));
  Log_Capture log;
  EXPECT_FALSE(store_.commit(id, record()));
  EXPECT_EQ(errno, EEXIST);
  EXPECT_TRUE(log.has(LM_ERROR, "Object \"a/0000000001.1/commit\" exists already.\n")) << log.all();
}

TEST_F(Sets, ASetWithAMissingOrOtherObjectIsNotCommitted) {
  Set_Id id;
  ASSERT_TRUE(store_.begin("a", 1, id));
  Log_Capture log;
  EXPECT_FALSE(store_.commit(id, record()));
  EXPECT_EQ(errno, ENOENT);
  EXPECT_TRUE(log.has(LM_ERROR, "Object \"a/0000000001.1/catalog\" is missing.\n")) << log.all();
  ASSERT_TRUE(put(id.dir() + "/catalog"));
  Commit_Record other = record();
  other.objects[0].size = 6;
  EXPECT_FALSE(store_.commit(id, other));
  EXPECT_EQ(errno, EBADMSG);
  EXPECT_EQ(listed(), Strings{});
}

TEST_F(Sets, ADamagedRecordIsToldAndTheOthersAreStillListed) {
  ASSERT_TRUE(make_set("a", 1) && make_set("b", 1) && make_set("c", 1));
  pool_->objects["b/0000000001.1/commit"][20] ^= 1;
  Log_Capture log;
  EXPECT_EQ(listed(), (Strings{"a/0000000001.1", "c/0000000001.1"}));
  EXPECT_FALSE(all_listed_);
  EXPECT_EQ(errno, EBADMSG);
  EXPECT_EQ(log.lines().size(), 1u);
  Set_Id id;
  Commit_Record found;
  EXPECT_FALSE(store_.find("b", 1, 0, id, found));
  EXPECT_EQ(errno, EBADMSG);
}

TEST_F(Sets, ARecordInThePlaceOfAnotherIsFound) {
  ASSERT_TRUE(make_set("a", 1) && make_set("a", 1));
  pool_->objects["a/0000000001.1/commit"] = pool_->objects["a/0000000001.2/commit"];
  Log_Capture log;
  EXPECT_EQ(listed(), Strings{"a/0000000001.2"});
  EXPECT_TRUE(
      log.has(LM_ERROR, "Object \"a/0000000001.1/commit\" is damaged at offset 0: it is that of another set.\n"))
      << log.all();
}

TEST_F(Sets, TheCallbackEndsAListing) {
  ASSERT_TRUE(make_set("a", 1) && make_set("b", 1));
  int calls = 0;
  EXPECT_FALSE(store_.list([&](const Set_Id&, const Commit_Record&) { return ++calls < 1; }));
  EXPECT_EQ(errno, ECANCELED);
  EXPECT_EQ(calls, 1);
}

TEST_F(Sets, RemovingTakesTheRecordFirst) {
  Set_Id id;
  ASSERT_TRUE(make_set("a", 1, &id) && make_set("b", 1));
  Fault_Plan plan(Fault_Plan::REMOVE, 1);
  Set_Store failing(std::make_shared<Faulty_Client_IO>(*storage_, plan));
  Log_Capture log;
  EXPECT_FALSE(failing.remove(id));
  EXPECT_THAT(keys(),
              ::testing::ElementsAre("a/0000000001.1/catalog", ::testing::StartsWith("a/0000000001.1/condemned-"),
                                     "b/0000000001.1/catalog", "b/0000000001.1/commit"));
  EXPECT_TRUE(store_.remove(id));
  EXPECT_TRUE(store_.remove(id));
  EXPECT_EQ(keys(), (Strings{"b/0000000001.1/catalog", "b/0000000001.1/commit"}));
}

TEST_F(Sets, ASweepTakesWhatHasNoRecordAndNothingElse) {
  ASSERT_TRUE(make_set("a", 1) && put("a/0000000001.2/catalog") && put("b/0000000001.1/channel-000.mtf"));
  ASSERT_TRUE(make_set("c", 1));
  pool_->objects["c/0000000001.1/commit"] = "damaged";
  const Strings foreign = {"README",  "a/notes",          "a/0000000001.2/deeper/file",
                           "a/1.1/x", "a/0000000001.0/x", "a/0000000001.01/x"};
  for (const std::string& key : foreign) ASSERT_TRUE(put(key));
  ASSERT_TRUE(store_.sweep());
  Strings expected = foreign;
  for (const char* key :
       {"a/0000000001.1/catalog", "a/0000000001.1/commit", "c/0000000001.1/catalog", "c/0000000001.1/commit"})
    expected.push_back(key);
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(keys(), expected);
}

TEST_F(Sets, EveryFailureOfTheStorageMakesNoSetOrAWholeOne) {
  for (int nth = 0;; ++nth) {
    pool_->objects.clear();
    Fault_Plan plan(Fault_Plan::ALL, nth, EIO);
    Set_Store failing(std::make_shared<Faulty_Client_IO>(*storage_, plan));
    ASSERT_TRUE(put("a/0000000001.1/catalog"));
    Log_Capture log;
    const bool committed = failing.commit({"a", 1, 1}, record());
    if (!plan.struck()) {
      EXPECT_TRUE(committed);
      EXPECT_GE(nth, 3);  // the record is created, written and committed
      break;
    }
    EXPECT_FALSE(committed) << nth;
    EXPECT_EQ(errno, EIO);
    EXPECT_TRUE(log.lines().size() == 1 || log.has_containing(LM_ERROR, "Set a/0000000001.1 is given up: "))
        << log.all();
    EXPECT_EQ(listed(), Strings{});
    EXPECT_TRUE(store_.sweep());
    EXPECT_TRUE(pool_->objects.empty());
  }
}

TEST_F(Sets, ARecordThatCannotBeTakenBackIsTold) {
  for (const int error : {EROFS, ECANCELED}) {
    size_t stood = 0;
    for (int nth = 0;; ++nth) {
      pool_->objects.clear();
      Fault_Plan plan(Fault_Plan::ALL, nth, error, true);
      Set_Store failing(std::make_shared<Faulty_Client_IO>(*storage_, plan));
      ASSERT_TRUE(put("a/0000000001.1/catalog"));
      Log_Capture log;
      const bool committed = failing.commit({"a", 1, 1}, record());
      if (!plan.struck()) break;
      EXPECT_FALSE(committed) << nth;
      EXPECT_EQ(errno, error);
      const bool stands = !listed().empty();
      EXPECT_EQ(stands, log.has(LM_ERROR, "Set a/0000000001.1 cannot be taken back and stands.\n")) << log.all();
      stood += stands;
    }
    EXPECT_GT(stood, 0u);
  }
}

TEST_F(Sets, ASetWithANameOfAnyLengthAndBytesIsFoundAgain) {
  const std::string name = std::string(1000, '/') + "\xff\n";
  ASSERT_TRUE(make_set(name, 1));
  Set_Id id;
  Commit_Record found;
  ASSERT_TRUE(store_.find(name, 1, 0, id, found));
  EXPECT_EQ(found.name, name);
  EXPECT_EQ(listed().size(), 1u);
}

class Make_Channel_Factory : public ::testing::Test {
 protected:
  const test_support::Temp_Dir dir_;
  Pool_Info pool_;
};

TEST_F(Make_Channel_Factory, GivesANewClientForEachChannel) {
  pool_.url = "file://" + dir_.path();
  Client_IO_Base::Options options;
  options.set_extra_option("name", "value");
  const auto factory = MTF_BACKUP::make_channel_factory(pool_, "host/minor", options);
  ASSERT_TRUE(factory);
  EXPECT_EQ(factory->options().extra_options.at("name"), "value");
  const auto one = factory->storage();
  const auto two = factory->storage();
  ASSERT_TRUE(one && two);
  EXPECT_NE(one, two);
  const auto writer = one->create("object");
  ASSERT_TRUE(writer && writer->write("x", 1) && writer->commit());
  EXPECT_TRUE(two->open("object"));
  EXPECT_EQ(test_support::read_file(dir_ / "host/minor/object"), "x");
}

TEST_F(Make_Channel_Factory, IsEmptyWithOneLineWhereThePoolIsRefused) {
  for (const char* url :
       {"dedup://x", "dedups://x", "ws://x", "wss://x", "s3://bucket/prefix", "ftp://x", "", "/dir"}) {
    pool_.url = url;
    Log_Capture log;
    EXPECT_EQ(MTF_BACKUP::make_channel_factory(pool_, "host/minor", {}), nullptr) << url;
    EXPECT_EQ(log.texts(LM_ERROR).size(), 1u) << log.all();
    EXPECT_EQ(log.lines().size(), 1u) << log.all();
  }
  pool_.url = "file://" + dir_.path();
  pool_.cipher = ENCRYPT_AES_256_GCM;
  Log_Capture log;
  EXPECT_EQ(MTF_BACKUP::make_channel_factory(pool_, "host/minor", {}), nullptr);
  EXPECT_EQ(log.texts(LM_ERROR).size(), 1u) << log.all();
}

TEST_F(Make_Channel_Factory, AnEmptyHostIsNotRefused) {
  pool_.url = "file://" + dir_.path();
  EXPECT_TRUE(MTF_BACKUP::make_channel_factory(pool_, "/minor", {}));
}

}  // namespace
