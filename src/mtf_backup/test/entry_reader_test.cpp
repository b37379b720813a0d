#include "mtf_backup/set/entry_reader.h"

#include "mtf/core/little_endian.h"
#include "mtf/core/set_writer.h"
#include "mtf/test/memory_medium.h"
#include "mtf_backup/set/medium_writer.h"
#include "mtf_backup/test/mover_fixture.h"

using namespace MTF_BACKUP;
using test_support::Log_Capture;

namespace {

typedef std::vector<std::pair<uint64_t, std::string>> Extents;

/// One file on a medium that a test may change before it is stored, and the catalog's word about it.
class Entry : public ::testing::Test {
 protected:
  Entry() {
    EXPECT_TRUE(workers_.open());
    file_.path = "file";
    file_.stat.mode = S_IFREG | 0640;
    file_.xattrs = {{"user.one", "1"}};
    writer_.begin({});
    writer_.volume({"/source", "host", 0});
    writer_.directory(MTF::Entry());
  }

  void write_dense(const std::string& bytes) {
    file_.stat.size = bytes.size();
    EXPECT_TRUE(writer_.begin_file(file_, bytes.size()));
    fill(bytes);
    end(bytes.size());
  }
  void write_sparse(uint64_t size, const Extents& extents) {
    file_.stat.size = size;
    uint64_t data_size = 0;
    EXPECT_TRUE(writer_.begin_sparse_file(file_, size));
    for (const auto& [at, bytes] : extents) {
      EXPECT_TRUE(writer_.begin_extent(at, bytes.size()));
      hash_.update(&at, sizeof at);
      fill(bytes);
      data_size += bytes.size();
    }
    end(data_size);
  }

  /// The place of the @a n-th extent, from 0, in the medium.
  void move_extent(size_t n, uint64_t at) {
    size_t found = sink_.bytes.find("SPAR");
    for (; n > 0; --n) found = sink_.bytes.find("SPAR", found + 1);
    MTF::put_le(&sink_.bytes[found + 22], at);
  }

  /// All pieces put together, holes as dots; "(failed)" or "(not opened)".
  std::string read() {
    store();
    Mover_Factory factory(pool_);
    Medium_Set media(factory, record_, "set/0000000001.1", workers_);
    Entry_Reader reader(media);
    if (!reader.open(entry_)) return errno == EBADMSG ? "(not opened)" : "(other error)";
    EXPECT_EQ(file_.xattrs, reader.block().xattrs);
    std::string all;
    uint64_t at = 0;
    Frame_View piece;
    int got;
    while ((got = reader.next(at, piece)) > 0) {
      EXPECT_GE(at, all.size());
      EXPECT_GT(piece.size(), 0u);
      all.resize(at, '.');
      all.append(piece.data(), piece.size());
    }
    if (got < 0) return errno == EBADMSG ? "(failed)" : "(other error)";
    EXPECT_EQ(0, reader.next(at, piece));
    all.resize(reader.file_size(), '.');
    return all;
  }

  MTF::Entry file_;
  Catalog_Entry entry_;
  Memory_Sink sink_;

 private:
  typedef mover_test::Memory_Channel_Factory Mover_Factory;

  void fill(std::string_view bytes) {
    while (!bytes.empty()) {
      char* at = nullptr;
      size_t room = 0;
      ASSERT_TRUE(writer_.room(at, room));
      room = std::min(room, bytes.size());
      std::memcpy(at, bytes.data(), room);
      hash_.update(at, room);
      ASSERT_TRUE(writer_.filled(room));
      bytes.remove_prefix(room);
    }
  }
  void end(uint64_t data_size) {
    EXPECT_TRUE(writer_.end_file());
    entry_.path = file_.path;
    entry_.stat = file_.stat;
    entry_.offset = writer_.offset();
    entry_.xattr_hash = xattr_hash(file_.xattrs);
    entry_.data_size = data_size;
    entry_.data_hash = hash_.value();
    EXPECT_TRUE(writer_.end());
  }
  void store() {
    pool_->objects.clear();
    record_.set_uuid = "uuid";
    record_.channels = 1;
    test_support::Memory_Client_IO client(pool_);
    Medium_Writer medium(client, {"set/0000000001.1", "uuid", 0, COMPR_NONE}, 0, workers_);
    ASSERT_TRUE(medium.open());
    for (size_t done = 0; done < sink_.bytes.size();) {
      char* at = nullptr;
      size_t room = 0;
      ASSERT_TRUE(medium.space(at, room));
      room = std::min(room, sink_.bytes.size() - done);
      std::memcpy(at, &sink_.bytes[done], room);
      ASSERT_TRUE(medium.advance(room));
      done += room;
    }
    ASSERT_TRUE(medium.finish());
    record_.objects = medium.objects();
  }

  const std::shared_ptr<test_support::Memory_Pool> pool_ = std::make_shared<test_support::Memory_Pool>();
  Frame_Workers workers_;
  MTF::Set_Writer writer_{sink_};
  Data_Hash hash_;
  Commit_Record record_;
};

TEST_F(Entry, DataComesInPiecesOfFrames) {
  const std::string bytes(3 << 20, 'x');
  write_dense(bytes);
  EXPECT_EQ(bytes, read());
}

TEST_F(Entry, HolesAreNotGiven) {
  write_sparse(20, {{2, "abc"}, {10, "de"}});
  EXPECT_EQ("..abc.....de........", read());
}

TEST_F(Entry, NothingButAHoleHasNoPieces) {
  write_sparse(5, {});
  EXPECT_EQ(".....", read());
}

TEST_F(Entry, BlockOfAnotherTypeIsDamage) {
  write_dense("text");
  entry_.stat.mode = S_IFLNK | 0777;
  Log_Capture log;
  EXPECT_EQ("(not opened)", read());
  EXPECT_TRUE(log.has(LM_ERROR, "Object \"set/0000000001.1/channel-000.mtf\" is damaged at offset " +
                                    std::to_string(entry_.offset) +
                                    ": the block there is another one than the catalog tells.\n"))
      << log.all();
}

TEST_F(Entry, AnotherSizeIsDamage) {
  write_dense("text");
  entry_.data_size = 5;
  Log_Capture log;
  EXPECT_EQ("(not opened)", read());
}

TEST_F(Entry, AnotherSizeWithHolesIsDamage) {
  write_sparse(20, {{2, "abc"}});
  entry_.stat.size = 21;
  Log_Capture log;
  EXPECT_EQ("(not opened)", read());
}

TEST_F(Entry, OtherAttributesAreDamage) {
  write_dense("text");
  entry_.xattr_hash ^= 1;
  Log_Capture log;
  EXPECT_EQ("(not opened)", read());
}

TEST_F(Entry, AnotherHashIsDamageAndTheLastPieceIsNotGiven) {
  write_dense("text");
  entry_.data_hash ^= 1;
  Log_Capture log;
  EXPECT_EQ("(failed)", read());
  EXPECT_EQ(1u, log.texts(LM_ERROR).size()) << log.all();
  EXPECT_TRUE(log.has_containing(LM_ERROR, "the data is not what was backed up")) << log.all();
}

TEST_F(Entry, AnotherHashOfNothingButAHoleIsDamage) {
  write_sparse(5, {});
  entry_.data_hash ^= 1;
  Log_Capture log;
  EXPECT_EQ("(failed)", read());
}

TEST_F(Entry, AnExtentInAnotherPlaceIsDamage) {
  write_sparse(20, {{2, "abc"}, {10, "de"}});
  move_extent(1, 11);
  Log_Capture log;
  EXPECT_EQ("(failed)", read());
}

TEST_F(Entry, ExtentsThatOverlapAreDamage) {
  write_sparse(20, {{2, "abc"}, {10, "de"}});
  move_extent(1, 4);
  Log_Capture log;
  EXPECT_EQ("(failed)", read());
  EXPECT_TRUE(log.has_containing(LM_ERROR, "outside of its file")) << log.all();
}

TEST_F(Entry, AnExtentOutsideOfTheFileIsDamage) {
  write_sparse(20, {{2, "abc"}});
  for (const uint64_t at : {uint64_t(18), uint64_t(1) << 62, ~uint64_t(0)}) {
    move_extent(0, at);
    Log_Capture log;
    EXPECT_EQ("(not opened)", read());
    EXPECT_EQ(1u, log.texts(LM_ERROR).size()) << log.all();
  }
}

TEST_F(Entry, FewerOrMoreExtentsThanTheCatalogTellsAreDamage) {
  write_sparse(20, {{2, "abc"}, {10, "de"}});
  for (const uint64_t size : {3, 4, 6}) {
    entry_.data_size = size;
    Log_Capture log;
    EXPECT_EQ("(failed)", read()) << size;
    EXPECT_TRUE(log.has_containing(LM_ERROR, "the data is not as long as the catalog tells")) << log.all();
  }
}

TEST_F(Entry, ALengthThatTheMediumDoesNotHoldIsDamageBeforeAnythingIsGiven) {
  write_dense("text");
  char* stream = &sink_.bytes[sink_.bytes.find("STAN")];
  entry_.data_size = entry_.stat.size = uint64_t(1) << 60;
  MTF::put_le(stream + 8, entry_.data_size);
  uint16_t sum = 0;
  for (int i = 0; i < 20; i += 2) sum = static_cast<uint16_t>(sum ^ MTF::get_le<uint16_t>(stream + i));
  MTF::put_le(stream + 20, sum);
  Log_Capture log;
  EXPECT_EQ("(not opened)", read());
  EXPECT_TRUE(log.has_containing(LM_ERROR, "the medium ends in the data")) << log.all();
}

}  // namespace
