#include <random>
#include <set>

#include "mtf_backup/mtf_verify.h"
#include "mtf_backup/test/counting_factory.h"
#include "mtf_backup/test/mover_fixture.h"
#include "mtf_backup/verify/object_hash.h"

namespace {

using mover_test::Memory_Channel_Factory;
using MTF_BACKUP::Finding;
using MTF_BACKUP::Object_Hash;
using test_support::Fault_Plan;
using test_support::Log_Capture;

constexpr char verify_dir[] = "volume/0000000001.1";

class Verify : public mover_test::Mover_Fixture {
 protected:
  MTF::Error_Code verify(bool with_data, const std::string& dir = verify_dir, Fault_Plan* plan = nullptr) {
    findings_.clear();
    notes_.clear();
    handler_ = new mover_test::Test_Handler;
    kept_handler_ = MTF::Event_Handler_var(handler_);
    prepare(*handler_);
    MTF_Verify verify(kept_handler_);
    verify.channel_factory(std::make_shared<Memory_Channel_Factory>(pool_, plan));
    verify.with_data(with_data);
    verify.on_finding([this](const Finding& finding) { findings_.push_back(finding); });
    verify.on_note([this](const MTF_BACKUP::Verify_Note& note) { notes_.insert(note.path + ": " + note.what); });
    return verify.verify(dir);
  }

  /// Objects in which something was found.
  std::set<std::string> objects() const {
    std::set<std::string> names;
    for (const Finding& finding : findings_)
      if (finding.path.empty()) names.insert(finding.object.substr(finding.object.rfind('/') + 1));
    return names;
  }
  /// Files that are hit.
  std::set<std::string> files() const {
    std::set<std::string> names;
    for (const Finding& finding : findings_)
      if (!finding.path.empty()) names.insert(finding.path.substr(source_.size()));
    return names;
  }
  std::string& object(const std::string& name) { return pool_->objects.at(std::string(verify_dir) + "/" + name); }
  static void flip(std::string& bytes, size_t at, int bit = 0) { bytes[at] = static_cast<char>(bytes[at] ^ 1 << bit); }

  /// Several frames on two media.
  void make_set(unsigned compression = COMPR_ZSTD) {
    for (int i = 0; i < 6; ++i) write("file" + std::to_string(i), noise(900000, static_cast<unsigned>(i) + 1));
    write("dir/small", "small");
    ASSERT_TRUE(back_up({.compression = compression, .channels = 2}));
  }

  typedef std::set<std::string> Names;
  std::vector<Finding> findings_;
  Names notes_;
};

TEST_F(Verify, A_set_as_it_was_written_has_no_findings) {
  for (const unsigned compression : {COMPR_NONE, COMPR_AUTO, COMPR_ZSTD}) {
    pool_->objects.clear();
    make_set(compression);
    for (const bool with_data : {false, true}) {
      EXPECT_EQ(verify(with_data), MTF::E_OK) << compression << with_data;
      EXPECT_EQ(findings_.size(), 0u);
    }
  }
}

TEST_F(Verify, What_the_backup_could_not_read_is_noted_and_no_damage) {
  write("bad", "secret");
  write("bare", "text");
  write("good", "text");
  const std::string cut = write("cut", "some text");
  Log_Capture log;
  EXPECT_FALSE(back_up({.hook = [&](const char* what, const std::string& path) {
    const std::string operation = what + (" " + mover_test::name_of(path));
    if (operation == "read cut") {
      EXPECT_EQ(0, truncate(cut.c_str(), 4));
    }
    errno = EACCES;
    return operation == "open bad" || operation == "read_xattrs bare";
  }}));
  for (const bool with_data : {false, true}) {
    EXPECT_EQ(verify(with_data), MTF::E_OK);
    EXPECT_EQ(findings_.size(), 0u);
    EXPECT_EQ(notes_,
              (Names{source_ + "/bad: it is not in the set (Permission denied)",
                     source_ + "/bare: its extended attributes are not in the set (its extended attributes could not "
                               "be read)",
                     source_ + "/cut: some of its data is not in the set (became shorter while it was read)"}));
  }
}

TEST_F(Verify, A_set_that_is_not_there_is_told) {
  EXPECT_EQ(verify(false), MTF::E_NOT_FOUND);
  EXPECT_EQ(verify(false, "nonsense"), MTF::E_NOT_FOUND);
}

TEST_F(Verify, A_flipped_bit_is_found_in_each_kind_of_object) {
  Log_Capture log;
  make_set();
  std::minstd_rand random(7);
  for (auto& [key, bytes] : pool_->objects) {
    const std::string name = key.substr(key.rfind('/') + 1);
    const bool medium = name.find(".mtf") != std::string::npos;
    for (int i = 0; i < 8; ++i) {
      const size_t at = random() % bytes.size();
      flip(bytes, at, i);
      EXPECT_EQ(verify(true), MTF::E_CORRUPT) << key << " at " << at;
      EXPECT_EQ(objects(), Names{name}) << key << " at " << at;
      EXPECT_EQ(verify(false), medium ? MTF::E_OK : MTF::E_CORRUPT) << key << " at " << at;
      flip(bytes, at, i);
    }
  }
  EXPECT_EQ(verify(true), MTF::E_OK);
  EXPECT_EQ(log.all(), "");
}

TEST_F(Verify, A_damaged_frame_is_told_with_its_offset_and_the_files_in_it) {
  write("a", noise(1500000, 1));
  write("b", noise(1500000, 2));
  write("c", noise(1500000, 3));
  ASSERT_TRUE(back_up());
  // The second frame holds the end of the first file and the beginning of the second.
  flip(object("channel-000.mtf"), (1 << 20) + 5);
  EXPECT_EQ(verify(true), MTF::E_CORRUPT);
  EXPECT_EQ(files(), (Names{"/a", "/b"}));
  ASSERT_EQ(objects().size(), 1u);
  for (const Finding& finding : findings_)
    if (finding.path.empty()) {
      EXPECT_EQ(finding.object, std::string(verify_dir) + "/channel-000.mtf");
      EXPECT_EQ(finding.offset, size_t(1) << 20);
      EXPECT_EQ(finding.reason, "a frame is not what was written");
    }
}

TEST_F(Verify, Further_names_of_a_file_that_is_hit_are_hit) {
  write("bad", noise(1000));
  write("c", noise(3 << 20));  // what is below lies in another frame
  write("sub/good", "good");
  std::filesystem::create_hard_link(source_ + "/bad", source_ + "/sub/other");
  ASSERT_TRUE(back_up());
  flip(object("channel-000.mtf"), 1000);
  EXPECT_EQ(verify(true), MTF::E_CORRUPT);
  EXPECT_EQ(files(), (Names{"", "/bad", "/c", "/sub/other"}));
  const auto named = [](const Finding& finding) { return !finding.path.empty(); };
  EXPECT_EQ(std::count_if(findings_.begin(), findings_.end(), named), 4) << "each is told once";
}

TEST_F(Verify, Every_damaged_object_is_named_not_only_the_first) {
  make_set();
  flip(object("channel-000.mtf.zst"), 100);
  flip(object("channel-001.mtf.zst"), object("channel-001.mtf.zst").size() - 100);
  flip(object("channel-001.index"), 40);
  flip(object("catalog"), object("catalog").size() - 45);
  EXPECT_EQ(verify(true), MTF::E_CORRUPT);
  EXPECT_EQ(objects(), (Names{"channel-000.mtf.zst", "channel-001.mtf.zst", "channel-001.index", "catalog"}));
}

TEST_F(Verify, A_frame_that_holds_no_entry_is_read_too) {
  write("a", noise(100, 1));
  ASSERT_TRUE(back_up());
  std::string& medium = object("channel-000.mtf");
  flip(medium, medium.size() - 1);
  EXPECT_EQ(verify(true), MTF::E_CORRUPT);
  EXPECT_EQ(objects(), Names{"channel-000.mtf"});
}

TEST_F(Verify, Missing_and_cut_objects_are_found_without_reading_the_data) {
  make_set();
  const auto whole = pool_->objects;
  for (const auto& [key, bytes] : whole) {
    const std::string name = key.substr(key.rfind('/') + 1);
    if (name == "commit") continue;
    pool_->objects.erase(key);
    EXPECT_EQ(verify(false), MTF::E_CORRUPT) << key;
    EXPECT_EQ(objects(), Names{name});
    ASSERT_FALSE(findings_.empty());
    EXPECT_EQ(findings_.front().reason, "it is missing");
    EXPECT_EQ(verify(true), MTF::E_CORRUPT) << key;
    for (const size_t size : {size_t(0), size_t(1), bytes.size() / 2, bytes.size() - 1, bytes.size() + 1}) {
      pool_->objects[key] = (bytes + "x").substr(0, size);
      EXPECT_EQ(verify(false), MTF::E_CORRUPT) << key << size;
      EXPECT_EQ(objects(), Names{name});
      EXPECT_EQ(verify(true), MTF::E_CORRUPT) << key << size;
    }
    pool_->objects[key] = bytes;
  }
}

TEST_F(Verify, Media_that_were_exchanged_are_found) {
  for (int i = 0; i < 2; ++i) write("file" + std::to_string(i), noise(900000, static_cast<unsigned>(i) + 1));
  ASSERT_TRUE(back_up({.seq = 0}) && back_up({.seq = 1}));
  std::swap(pool_->objects["volume/0000000001.1/channel-000.index"],
            pool_->objects["volume/0000000002.1/channel-000.index"]);
  EXPECT_EQ(verify(false), MTF::E_CORRUPT);
  EXPECT_EQ(objects(), Names{"channel-000.index"});
}

TEST_F(Verify, What_cannot_be_read_is_a_finding_and_the_rest_goes_on) {
  Log_Capture log;
  make_set();
  // A read that fails once is repeated where it was for a frame ahead.
  for (const int nth : {1, 2, 5, 10, 15, 20}) {
    Fault_Plan plan(Fault_Plan::READ, nth, EIO, true);
    EXPECT_EQ(verify(true, verify_dir, &plan), MTF::E_CORRUPT) << nth;
    EXPECT_FALSE(objects().empty()) << nth;
  }
}

TEST_F(Verify, A_storage_that_is_away_ends_it) {
  Log_Capture log;
  make_set();
  for (const int nth : {0, 1, 3, 9}) {
    Fault_Plan plan(Fault_Plan::ALL, nth, ETIMEDOUT, true);
    EXPECT_EQ(verify(true, verify_dir, &plan), MTF::E_OPEN_MEDIA) << nth;
  }
}

TEST_F(Verify, It_can_be_cancelled) {
  make_set();
  prepare = [](mover_test::Test_Handler& handler) { handler.cancel = true; };
  EXPECT_EQ(verify(true), MTF::E_FAILED);
}

TEST_F(Verify, It_reports_how_far_it_is) {
  make_set();
  ASSERT_EQ(verify(true), MTF::E_OK);
  const auto reports = handler_->reports();
  ASSERT_FALSE(reports.empty());
  EXPECT_EQ(reports.back().percent, 100);
}

TEST_F(Verify, Data_is_read_once) {
  make_set();
  uint64_t size = 0;
  for (const auto& [key, bytes] : pool_->objects) size += bytes.size();
  const auto factory = std::make_shared<mover_test::Counting_Factory>(pool_);
  MTF_Verify verify{MTF::Event_Handler_var()};
  verify.channel_factory(factory);
  verify.with_data(true);
  EXPECT_EQ(verify.verify(verify_dir), MTF::E_OK);
  EXPECT_LT(factory->counting.bytes_read(), size + size / 10);
}

class Object_Hash_Test : public ::testing::Test {
 protected:
  Object_Hash_Test() {
    pool_->objects["key"] = bytes_;
    reader_ = client_.open("key");
  }
  static std::string hash_of(const std::string& bytes) {
    const XXH128_hash_t hash = XXH3_128bits(bytes.data(), bytes.size());
    char text[33];
    snprintf(text, sizeof text, "%016llx%016llx", static_cast<unsigned long long>(hash.high64),
             static_cast<unsigned long long>(hash.low64));
    return text;
  }
  void add(Object_Hash& hash, size_t offset, size_t n) { hash.add(offset, bytes_.data() + offset, n, *reader_); }

  const std::string bytes_ = [] {
    std::minstd_rand random(3);
    std::string bytes(20 << 20, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random() >> 8);
    return bytes;
  }();
  const std::shared_ptr<test_support::Memory_Pool> pool_ = std::make_shared<test_support::Memory_Pool>();
  test_support::Memory_Client_IO memory_{pool_};
  test_support::Counting_Client_IO client_{memory_};
  std::unique_ptr<Client_IO_Base::Reader> reader_;
};

TEST_F(Object_Hash_Test, Pieces_in_any_order_and_more_than_once_give_the_hash) {
  std::minstd_rand random(5);
  for (int round = 0; round < 5; ++round) {
    std::vector<size_t> places;
    for (size_t at = 0; at < bytes_.size(); at += 1 << 20) places.push_back(at);
    places.push_back(3 << 20);
    std::shuffle(places.begin(), places.end(), random);
    Object_Hash hash(bytes_.size());
    for (const size_t at : places) add(hash, at, 1 << 20);
    uint64_t offset = 0;
    ASSERT_TRUE(hash.finish(*reader_, offset));
    EXPECT_EQ(hash.text(), hash_of(bytes_));
  }
}

TEST_F(Object_Hash_Test, What_does_not_come_is_read) {
  Object_Hash hash(bytes_.size());
  add(hash, 10, 100);
  add(hash, 1000, 1000);
  add(hash, 50, 500);
  client_.reset();
  uint64_t offset = 0;
  ASSERT_TRUE(hash.finish(*reader_, offset));
  EXPECT_EQ(hash.text(), hash_of(bytes_));
  EXPECT_EQ(client_.bytes_read(), bytes_.size() - 540 - 1000);
}

TEST_F(Object_Hash_Test, What_came_too_early_is_held_within_bounds) {
  Object_Hash hash(bytes_.size());
  for (size_t at = 1 << 20; at < bytes_.size(); at += 1 << 20) add(hash, at, 1 << 20);
  EXPECT_EQ(client_.bytes_read(), uint64_t(1) << 20);
  uint64_t offset = 0;
  ASSERT_TRUE(hash.finish(*reader_, offset));
  EXPECT_EQ(hash.text(), hash_of(bytes_));
}

TEST_F(Object_Hash_Test, An_object_that_ends_early_fails_it_with_the_place) {
  pool_->objects["key"].resize(1000);
  reader_ = client_.open("key");
  Object_Hash hash(bytes_.size());
  uint64_t offset = 0;
  EXPECT_FALSE(hash.finish(*reader_, offset));
  EXPECT_EQ(errno, EBADMSG);
  EXPECT_EQ(offset, 1000u);
}

TEST_F(Object_Hash_Test, An_empty_object_has_a_hash) {
  Object_Hash hash(0);
  uint64_t offset = 0;
  ASSERT_TRUE(hash.finish(*reader_, offset));
  EXPECT_EQ(hash.text(), hash_of(""));
}

}  // namespace
