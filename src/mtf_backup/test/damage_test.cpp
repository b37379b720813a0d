// Sets whose objects are damaged, cut, exchanged or lost: a restore finds all of it and puts nothing wrong in place.
//
// Every damage is looked for by reading the set as a restore does, into memory; a sample of them by restoring it.
// TESSARIN_DAMAGE_STEP=1 turns over every bit and cuts at every length, from TESSARIN_DAMAGE_FIRST on, so that several
// processes may share the work; TESSARIN_RANDOM_FLIPS=100000 hits a larger set that often. Without them a sample is
// taken.
#include <sys/stat.h>

#include <cstdio>
#include <set>

#include "client_io/encrypted_client_io.h"
#include "client_io/encrypted_layout.h"
#include "mtf_backup/set/entry_reader.h"
#include "mtf_backup/set/frame_workers.h"
#include "mtf_backup/test/chain_fixture.h"
#include "support/tree_maker.h"

using namespace mover_test;
using test_support::Log_Capture;

namespace {

namespace fs = std::filesystem;

size_t from_environment(const char* name, size_t otherwise) {
  const char* value = std::getenv(name);
  return value ? std::strtoul(value, nullptr, 10) : otherwise;
}

/// Sets in memory, restored again and again.
class Damaged_Set : public Chain_Fixture {
 protected:
  typedef std::map<std::string, std::string> Objects;

  void keep_good() {
    ASSERT_TRUE(workers_.open());
    good_ = pool_->objects;
    ASSERT_NO_FATAL_FAILURE(read_good());
    ASSERT_TRUE(restore({.threads = 1, .seq = seq_}));
    ASSERT_EQ("", differences());
    remember(whole_);
    clear_target();
  }

  /// What a look at a path tells: kind, mode, owner, size, time, and content.
  static std::string look_at(const std::string& path) {
    struct stat st;
    if (lstat(path.c_str(), &st) != 0) return "gone";
    std::string look = std::to_string(st.st_mode) + ' ' + std::to_string(st.st_uid) + ' ' + std::to_string(st.st_gid) +
                       ' ' + std::to_string(st.st_mtim.tv_sec) + '.' + std::to_string(st.st_mtim.tv_nsec) + ' ';
    if (S_ISLNK(st.st_mode)) look += fs::read_symlink(path).string();
    if (S_ISREG(st.st_mode)) look += test_support::read_file(path);
    return look;
  }
  /// All that stands in the target but directories, which get their modes and times at the very end.
  void remember(std::map<std::string, std::string>& looks) const {
    for (const auto& entry : fs::recursive_directory_iterator(target_)) {
      const bool directory = entry.symlink_status().type() == fs::file_type::directory;
      looks[entry.path().string()] = directory ? "directory" : look_at(entry.path().string());
    }
  }
  void clear_target() const {
    for (const auto& entry : fs::directory_iterator(target_)) fs::remove_all(entry.path());
  }

  /// Restores and looks at what came of it. @param key  the object that was damaged.
  /// @param at  the first byte of it that is not as it was.
  void expect_found(const std::string& key, size_t at) {
    Log_Capture log;
    const bool restored = restore({.threads = 1, .seq = seq_});
    std::map<std::string, std::string> looks;
    remember(looks);
    for (const auto& [path, look] : looks) {
      const auto whole = whole_.find(path);
      ASSERT_TRUE(whole != whole_.end()) << path << " is left over";
      ASSERT_TRUE(whole->second == look) << path << " is wrong";
    }
    if (restored) {
      ASSERT_EQ(whole_.size(), looks.size());
      ASSERT_TRUE(is_not_read(key)) << "restored, and nothing told";
    } else {
      const bool no_set = key == dir_of_set_ + "/commit" && !pool_->objects.contains(key);
      ASSERT_EQ(no_set ? MTF::E_NOT_FOUND : MTF::E_CORRUPT, code_) << log.all();
      ASSERT_TRUE(code_ == MTF::E_NOT_FOUND || tells(log, key, at)) << log.all();
    }
    clear_target();
    ++damages_;
  }

  /// Whether the log names the object, and an offset in the frame, block or record that holds the byte.
  bool tells(const Log_Capture& log, const std::string& key, size_t at) const {
    const std::string object = "Object \"" + key + "\" is ";
    const std::string base = "Set " + key.substr(0, key.rfind('/')) + ", which this one builds on, is missing.\n";
    for (const std::string& line : log.texts(LM_ERROR)) {
      if (line == object + "missing.\n" || (line == base && key.ends_with("/commit")))
        return !pool_->objects.contains(key);
      size_t offset = 0;
      if (!offset_of(line, object + "damaged at offset ", offset) &&
          !offset_of(line, "Failed to decrypt object \"" + key + "\" at offset ", offset))
        continue;
      return offset <= at && at - offset <= (1u << 20) + 4096;
    }
    return false;
  }

  static bool offset_of(const std::string& line, const std::string& begin, size_t& offset) {
    if (!line.starts_with(begin)) return false;
    offset = std::stoul(line.substr(begin.size()));
    return true;
  }

  /// What is there for the set's sake, and no restore needs: channels that got no batch, catalogs of older sets.
  bool is_not_read(const std::string& key) const {
    if (key.find("/channel-") != key.npos) return !in_use(key);
    return !key.starts_with(dir_of_set_ + "/") && key.ends_with("/catalog");
  }
  bool in_use(const std::string& key) const {
    return std::any_of(in_use_.begin(), in_use_.end(), [&](const auto& begin) { return key.starts_with(begin); });
  }
  /// An entry with its data. What stands in @a data counts where the reader came to its end only.
  struct Whole_Entry {
    MTF_BACKUP::Catalog_Entry entry;
    std::string data;
    bool operator==(const Whole_Entry&) const = default;
  };

  /// Reads the set into memory, by the same steps as a restore. Whether nothing is wrong with it; @a each gets every
  /// entry whose data came whole, and may look at the record.
  bool read_set(const std::function<void(const Whole_Entry&, const MTF_BACKUP::Commit_Record&)>& each) {
    const MTF_BACKUP::Channel_Factory_var factory = make_channels(nullptr);
    const std::shared_ptr<Client_IO_Base> client = factory->storage();
    MTF_BACKUP::Set_Id id;
    MTF_BACKUP::Commit_Record record;
    if (!MTF_BACKUP::Set_Store(client).find("volume", seq_, 0, id, record)) return false;
    const MTF_BACKUP::Stored_Object* object = record.find("catalog");
    MTF_BACKUP::Catalog_Reader catalog(*client, id.dir(), record.set_uuid, object ? object->size : 0);
    if (!catalog.open()) return false;
    MTF_BACKUP::Medium_Set media(*factory, record, id.dir(), workers_);
    MTF_BACKUP::Entry_Reader reader(media);
    Whole_Entry whole;
    bool right = true;
    int got;
    while ((got = catalog.next(whole.entry)) == 1) {
      const bool came = read_data(reader, whole);
      if (came) each(whole, record);
      right = right && came;
    }
    return got == 0 && right && catalog.seek(0, "", true);
  }
  static bool read_data(MTF_BACKUP::Entry_Reader& reader, Whole_Entry& whole) {
    whole.data.clear();
    if (!S_ISREG(whole.entry.stat.mode) || whole.entry.data_size == 0) return true;
    if (!reader.open(whole.entry)) return false;
    uint64_t at = 0;
    MTF_BACKUP::Frame_View bytes;
    int got;
    while ((got = reader.next(at, bytes)) == 1) {
      whole.data.resize(static_cast<size_t>(at));
      whole.data.append(bytes.data(), bytes.size());
    }
    return got == 0;
  }

  /// Finds the channels on which the blocks of entries lie, and what is on them.
  void read_good() {
    entries_.clear();
    ASSERT_TRUE(read_set([&](const Whole_Entry& whole, const MTF_BACKUP::Commit_Record& record) {
      entries_[whole.entry.path] = whole;
      dir_of_set_ = dir_of(record);
      const uint32_t set = whole.entry.set;
      const std::string dir = set == 0 ? dir_of_set_ : record.chain.at(set - 1).dir;
      if (whole.entry.data_size > 0) in_use_.insert(dir + "/channel-00" + std::to_string(whole.entry.channel) + ".");
    }));
  }

  /// As expect_found(), in memory.
  void expect_found_by_reading(const std::string& key, size_t at) {
    Log_Capture log;
    const bool right = read_set([&](const Whole_Entry& whole, const MTF_BACKUP::Commit_Record&) {
      const auto found = entries_.find(whole.entry.path);
      ASSERT_TRUE(found != entries_.end() && found->second == whole) << whole.entry.path << " is wrong";
    });
    ASSERT_TRUE(right ? is_not_read(key) : tells(log, key, at)) << log.all();
    ++damages_;
  }

  void flip(const std::string& key, size_t bit) {
    char& byte = pool_->objects.at(key)[bit / 8];
    byte = static_cast<char>(byte ^ (1 << bit % 8));
  }
  enum By { READING, RESTORING };

  void expect_found(const std::string& key, size_t at, By by) {
    by == READING ? expect_found_by_reading(key, at) : expect_found(key, at);
  }

  void expect_flip_found(const std::string& key, size_t bit, By by) {
    SCOPED_TRACE(key + " bit " + std::to_string(bit));
    flip(key, bit);
    expect_found(key, bit / 8, by);
    flip(key, bit);
  }

  void expect_cut_found(const std::string& key, size_t length, By by) {
    SCOPED_TRACE(key + " cut at " + std::to_string(length));
    const std::string object = pool_->objects[key];
    pool_->objects[key].resize(length);
    expect_found(key, length, by);
    pool_->objects[key] = object;
  }

  /// Calls @a damage for places of an object, in steps; at least once.
  static size_t at_places(size_t count, size_t step, const std::function<void(size_t)>& damage) {
    const size_t first = from_environment("TESSARIN_DAMAGE_FIRST", step / 2);
    size_t done = 0;
    for (size_t place = std::min(first, count / 2); place < count && !HasFatalFailure(); place += step, ++done)
      damage(place);
    return done;
  }

  void flip_every_bit(size_t step, By by) {
    size_t bits = 0;
    for (const auto& [key, object] : good_)
      bits += at_places(object.size() * 8, step, [&, &key = key](size_t bit) { expect_flip_found(key, bit, by); });
    std::printf("%zu bits of %zu objects\n", bits, good_.size());
  }
  void cut_at_every_length(size_t step, By by) {
    size_t cuts = 0;
    for (const auto& [key, object] : good_)
      cuts += at_places(object.size(), step, [&, &key = key](size_t length) { expect_cut_found(key, length, by); });
    std::printf("%zu lengths of %zu objects\n", cuts, good_.size());
  }
  /// Reading finds all, and restoring what of it is tried.
  void damage_everywhere() {
    const size_t step = from_environment("TESSARIN_DAMAGE_STEP", 499);
    flip_every_bit(step, READING);
    cut_at_every_length(step, READING);
    flip_every_bit(8 * step + 7, RESTORING);
    cut_at_every_length(8 * step + 7, RESTORING);
  }

  void miss_every_object() {
    for (const auto& [key, object] : good_) {
      SCOPED_TRACE(key);
      pool_->objects.erase(key);
      expect_found(key, 0);
      pool_->objects[key] = object;
    }
  }

  /// Entries of all kinds that take some 64 KiB in the pool.
  void back_up_small_tree(unsigned compression, size_t channels = 1) {
    test_support::make_tree(source_, {.files = 4, .bytes = 4'000});
    if (compression != COMPR_NONE) write("noise", noise(50'000));
    ASSERT_TRUE(back_up({.compression = compression, .channels = channels}));
  }
  /// Has one set, makes two more of the same tree, and puts objects of the first two in the places of the third's.
  void expect_objects_of_others_found(unsigned compression) {
    ASSERT_TRUE(back_up({.compression = compression, .seq = 1}));
    ASSERT_TRUE(back_up({.compression = compression, .seq = 1}));
    seq_ = 2;
    ASSERT_NO_FATAL_FAILURE(keep_good());
    const std::string dir = "volume/0000000002.2/";
    for (const std::string other : {"volume/0000000001.1/", "volume/0000000002.1/"}) {
      size_t exchanged = 0;
      for (const auto& [key, object] : good_) {
        if (!key.starts_with(other)) continue;
        const std::string mine = dir + key.substr(other.size());
        SCOPED_TRACE(mine + " from " + other);
        pool_->objects[mine] = object;
        expect_found(mine, object.size());
        pool_->objects[mine] = good_[mine];
        ++exchanged;
      }
      EXPECT_EQ(4u, exchanged);
    }
  }

  /// Three sets, the last of which needs the media of all.
  void back_up_small_chain() {
    back_up_small_tree(COMPR_ZSTD);
    age();
    write("second", noise(3000, 2));
    ASSERT_TRUE(back_up({.compression = COMPR_NONE, .seq = 1, .incremental = true}));
    age();
    write("third", noise(3000, 3));
    fs::remove(source_ + "/special/empty");
    ASSERT_TRUE(back_up({.compression = COMPR_ZSTD, .seq = 2, .incremental = true}));
    seq_ = 3;
    keep_good();
    ASSERT_EQ(3u, in_use_.size());
  }

  Objects good_;
  std::set<std::string> in_use_;                // what the keys of channels begin with on which entries lie
  std::map<std::string, std::string> whole_;    // looks of an undamaged restore, by path
  std::map<std::string, Whole_Entry> entries_;  // of an undamaged set, by path
  std::string dir_of_set_;
  MTF_BACKUP::Frame_Workers workers_{1};
  unsigned seq_ = 1;
  size_t damages_ = 0;
};

class Damaged_Small_Set : public Damaged_Set, public ::testing::WithParamInterface<unsigned> {};

INSTANTIATE_TEST_SUITE_P(Methods, Damaged_Small_Set, ::testing::Values(COMPR_NONE, COMPR_LZOP, COMPR_ZSTD));

TEST_P(Damaged_Small_Set, EveryFlippedBitAndEveryCutIsFound) {
  back_up_small_tree(GetParam(), 2);
  ASSERT_NO_FATAL_FAILURE(keep_good());
  damage_everywhere();
}

TEST_P(Damaged_Small_Set, MissingObjectsAreFound) {
  back_up_small_tree(GetParam(), 2);
  ASSERT_NO_FATAL_FAILURE(keep_good());
  miss_every_object();
}

TEST_P(Damaged_Small_Set, BytesBehindTheEndAreFound) {
  back_up_small_tree(GetParam());
  ASSERT_NO_FATAL_FAILURE(keep_good());
  for (const auto& [key, object] : good_) {
    SCOPED_TRACE(key);
    for (const std::string& more : {std::string(1, '\0'), std::string("\n"), object}) {
      pool_->objects[key] = object + more;
      expect_found(key, object.size() + more.size());
    }
    pool_->objects[key] = object;
  }
}

// The sets have one uuid, one tree and mostly objects of one size: what tells them apart is where they lie.
TEST_P(Damaged_Small_Set, ObjectsOfAnotherSetAreFound) {
  back_up_small_tree(GetParam());
  expect_objects_of_others_found(GetParam());
}

TEST_P(Damaged_Small_Set, WholeSetInThePlaceOfAnotherIsFound) {
  back_up_small_tree(GetParam());
  ASSERT_TRUE(back_up({.compression = GetParam(), .seq = 1}));
  ASSERT_NO_FATAL_FAILURE(keep_good());
  for (const auto& [key, object] : good_)
    if (key.starts_with("volume/0000000002.1/")) pool_->objects["volume/0000000001.1/" + key.substr(20)] = object;
  expect_found("volume/0000000001.1/commit", 0);
}

TEST_P(Damaged_Small_Set, MediumWithItsIndexOfAnotherSetIsFound) {
  back_up_small_tree(GetParam());
  ASSERT_TRUE(back_up({.compression = GetParam(), .seq = 1}));
  ASSERT_NO_FATAL_FAILURE(keep_good());
  for (const auto& [key, object] : good_)
    if (key.starts_with("volume/0000000002.1/channel"))
      pool_->objects["volume/0000000001.1/" + key.substr(20)] = object;
  expect_found("volume/0000000001.1/channel-000.index", good_["volume/0000000001.1/channel-000.index"].size());
}

/// Sets whose objects are encrypted.
class Damaged_Encrypted_Set : public Damaged_Set, public ::testing::WithParamInterface<Encryption_Algorithm> {
 protected:
  Damaged_Encrypted_Set() {
    wrap = [](std::unique_ptr<Client_IO_Base> next) {
      client_io::Pool_Encryption encryption{GetParam(), secure_string(client_io::key_size(GetParam()), 'k'), {}};
      auto client = std::make_shared<Encrypted_Client_IO>(std::move(next), std::move(encryption));
      EXPECT_TRUE(client->start());
      return client;
    };
  }
};

INSTANTIATE_TEST_SUITE_P(Ciphers, Damaged_Encrypted_Set, ::testing::Values(ENCRYPT_AES_256_GCM, ENCRYPT_AES_128_CBC));

TEST_P(Damaged_Encrypted_Set, EveryFlippedBitAndEveryCutIsFound) {
  back_up_small_tree(COMPR_ZSTD, 2);
  ASSERT_NO_FATAL_FAILURE(keep_good());
  damage_everywhere();
}

TEST_P(Damaged_Encrypted_Set, MissingObjectsAreFound) {
  back_up_small_tree(COMPR_ZSTD, 2);
  ASSERT_NO_FATAL_FAILURE(keep_good());
  miss_every_object();
}

TEST_P(Damaged_Encrypted_Set, ObjectsOfAnotherSetAreFound) {
  back_up_small_tree(COMPR_ZSTD);
  expect_objects_of_others_found(COMPR_ZSTD);
}

class Damaged_Chain : public Damaged_Set {};

TEST_F(Damaged_Chain, EveryFlippedBitAndEveryCutIsFound) {
  ASSERT_NO_FATAL_FAILURE(back_up_small_chain());
  damage_everywhere();
}

TEST_F(Damaged_Chain, MissingObjectsAreFound) {
  ASSERT_NO_FATAL_FAILURE(back_up_small_chain());
  miss_every_object();
}

TEST_F(Damaged_Chain, SetInThePlaceOfOneThatIsBuiltOnIsFound) {
  ASSERT_NO_FATAL_FAILURE(back_up_small_chain());
  for (const auto& [key, object] : good_)
    if (key.starts_with("volume/0000000001.1/")) pool_->objects["volume/0000000002.1/" + key.substr(20)] = object;
  expect_found("volume/0000000002.1/commit", 0);
}

/// Sets of several frames, with entries on two channels.
class Damaged_Large_Set : public Damaged_Set {
 protected:
  void make_set(unsigned compression) {
    test_support::make_tree(source_, {.files = 40, .bytes = 3'000'000});
    write("large", noise((2u << 20) + 4321));
    // Whoever gets the large file is held up until the other one has got something too.
    const auto wait = [](const char* operation, const std::string& path) {
      if (std::string(operation) == "open" && name_of(path) == "large")
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
      return false;
    };
    ASSERT_TRUE(back_up({.compression = compression, .channels = 2, .hook = wait}));
    keep_good();
    ASSERT_EQ(2u, in_use_.size());
  }

  void flip_anywhere(unsigned compression) {
    ASSERT_NO_FATAL_FAILURE(make_set(compression));
    size_t size = 0;
    for (const auto& [key, object] : good_) size += object.size();
    const unsigned seed = static_cast<unsigned>(from_environment("TESSARIN_DAMAGE_SEED", std::random_device()()));
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937_64 random(seed);
    const size_t flips = from_environment("TESSARIN_RANDOM_FLIPS", 200);
    for (size_t i = 0; i < flips && !HasFatalFailure(); ++i) {
      size_t at = random() % size;
      // Every tenth hits the small objects, which a fair choice would hardly see.
      auto object = good_.begin();
      if (i % 10 == 0)
        std::advance(object, random() % good_.size());
      else
        for (; at >= object->second.size(); ++object) at -= object->second.size();
      expect_flip_found(object->first, (at % object->second.size()) * 8 + random() % 8,
                        i % 100 == 0 ? RESTORING : READING);
    }
    std::printf("%zu flips in %zu bytes\n", damages_, size);
  }
};

TEST_F(Damaged_Large_Set, RandomFlipsAreFoundInAPlainSet) {
  flip_anywhere(COMPR_NONE);
}

TEST_F(Damaged_Large_Set, RandomFlipsAreFoundInACompressedSet) {
  flip_anywhere(COMPR_ZSTD);
}

TEST_F(Damaged_Large_Set, ChannelsThatChangedPlacesAreFound) {
  ASSERT_NO_FATAL_FAILURE(make_set(COMPR_NONE));
  const std::string dir = "volume/0000000001.1/channel-00";
  for (const std::string which : {".mtf", ".index"}) {
    std::swap(pool_->objects[dir + "0" + which], pool_->objects[dir + "1" + which]);
    expect_found(dir + "0" + which, pool_->objects[dir + "0" + which].size());
    pool_->objects = good_;
  }
  for (const std::string which : {".mtf", ".index"})
    std::swap(pool_->objects[dir + "0" + which], pool_->objects[dir + "1" + which]);
  expect_found(dir + "0.index", pool_->objects[dir + "0.index"].size());
}

TEST_F(Damaged_Large_Set, DamageCostsNoFileInOtherFrames) {
  ASSERT_NO_FATAL_FAILURE(make_set(COMPR_NONE));
  std::string key = "volume/0000000001.1/channel-000.mtf";
  if (good_[key].size() < 2u << 20) key = "volume/0000000001.1/channel-001.mtf";
  flip(key, ((1u << 20) + 5000) * 8);
  Log_Capture log;
  EXPECT_FALSE(restore({.threads = 1}));
  EXPECT_EQ(MTF::E_CORRUPT, code_);
  EXPECT_TRUE(
      log.has(LM_ERROR, "Object \"" + key + "\" is damaged at offset 1048576: a frame is not what was written.\n"))
      << log.all();
  std::map<std::string, std::string> looks;
  remember(looks);
  EXPECT_GT(looks.size(), whole_.size() / 4);
  EXPECT_LT(looks.size(), whole_.size());
}

}  // namespace
