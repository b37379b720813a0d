#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <random>

#include "memory_medium.h"
#include "mtf/core/block_reader.h"
#include "mtf/core/checksum.h"
#include "mtf/core/layout.h"
#include "mtf/core/own_streams.h"
#include "mtf/core/set_reader.h"
#include "mtf/core/set_writer.h"
#include "set_builder.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace {

using namespace MTF;

/// A set with one entry of each kind.
struct Built {
  std::vector<Entry> entries;
  std::vector<std::string> data;
  std::vector<uint64_t> offsets;
  std::string bytes;
};

Entry device(const std::string& path) {
  Entry entry = make_entry(path, S_IFBLK);
  entry.stat.rdev = makedev(0x12345, 0x6789a);
  return entry;
}

Entry link(const std::string& path) {
  Entry entry = make_entry(path, S_IFLNK);
  entry.link_target = "../where\xff/ever";
  return entry;
}

Entry hard_link(const std::string& path) {
  Entry entry = make_entry(path);
  entry.hard_link_target = "/srv/top.txt";
  return entry;
}

Entry with_xattrs(const std::string& path) {
  Entry entry = make_entry(path);
  entry.xattrs = {
      {"security.capability", std::string("\0\1\2", 3)}, {"user.empty", ""}, {"user.long", std::string(70000, 'v')}};
  return entry;
}

std::vector<std::pair<Entry, std::string>> all_kinds() {
  return {{make_entry("", S_IFDIR), ""},
          {make_entry("top.txt"), "top"},
          {make_entry("empty"), ""},
          {make_entry("dir", S_IFDIR), ""},
          {device("dir/block device"), ""},
          {make_entry("dir/fifo", S_IFIFO), ""},
          {make_entry("dir/socket", S_IFSOCK), ""},
          {hard_link("dir/hard link"), ""},
          {link("dir/link"), ""},
          {with_xattrs("dir/xattrs"), std::string(3000, 'x')},
          {make_entry("dir/\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80"), "utf-8"},
          {make_entry("dir/not \xff utf-8\n"), "raw"},
          {make_entry("dir/" + std::string(255, 'n')), "long name"},
          {make_entry("dir/sub", S_IFDIR), ""},
          {make_entry("dir/sub/large"), std::string(100000, 'l')}};
}

bool put_entry(Set_Writer& writer, const Entry& entry, const std::string& data) {
  return S_ISDIR(entry.stat.mode) ? writer.directory(entry) : put_file(writer, entry, data);
}

Built build(const std::vector<std::pair<Entry, std::string>>& entries, size_t piece_size = 1 << 20) {
  Built built;
  Memory_Sink sink(piece_size);
  Set_Writer writer(sink);
  EXPECT_TRUE(writer.begin(make_header()));
  EXPECT_TRUE(writer.volume({"/srv", "host", 1700000001}));
  for (const auto& [entry, data] : entries) {
    EXPECT_TRUE(put_entry(writer, entry, data)) << entry.path;
    built.entries.push_back(entry);
    built.data.push_back(data);
    built.offsets.push_back(writer.offset());
  }
  EXPECT_TRUE(writer.end());
  built.bytes = sink.bytes;
  return built;
}

void expect_all_read_back(const Built& built) {
  Memory_Source source(built.bytes);
  Set_Reader reader(source);
  Set_Header header;
  ASSERT_TRUE(reader.read_header(header)) << reader.error();
  EXPECT_EQ(header, make_header());
  Set_Item item;
  ASSERT_TRUE(reader.next(item)) << reader.error();
  EXPECT_EQ(item.type, Set_Item::VOLUME);
  EXPECT_EQ(item.volume, (Volume{"/srv", "host", 1700000001}));
  for (size_t i = 0; i < built.entries.size(); ++i) {
    ASSERT_TRUE(reader.next(item)) << reader.error();
    const Entry& entry = built.entries[i];
    ASSERT_EQ(item.type, S_ISDIR(entry.stat.mode) ? Set_Item::DIRECTORY : Set_Item::FILE) << entry.path;
    EXPECT_EQ(item.entry, entry) << entry.path;
    EXPECT_FALSE(item.bad_name);
    EXPECT_EQ(item.offset, built.offsets[i]);
    EXPECT_EQ(built.bytes.substr(item.data.offset, item.data.size), built.data[i]);
  }
  ASSERT_TRUE(reader.next(item)) << reader.error();
  EXPECT_EQ(item.type, Set_Item::END);
  EXPECT_FALSE(reader.next(item));
}

TEST(SetRoundTrip, EveryKindOfEntryComesBackEqual) {
  expect_all_read_back(build(all_kinds()));
}

TEST(SetRoundTrip, TheBytesDoNotDependOnTheSinksPieces) {
  const std::string whole = build(all_kinds()).bytes;
  for (size_t piece : {1, 3, 22, 1000, 1024, 4097}) EXPECT_EQ(build(all_kinds(), piece).bytes, whole) << piece;
}

TEST(SetRoundTrip, OneEntryIsReadAtItsOffset) {
  const Built built = build(all_kinds());
  Memory_Source source(built.bytes);
  Set_Reader reader(source);
  for (size_t i = built.entries.size(); i-- > 0;) {
    Entry entry;
    File_Data data;
    ASSERT_TRUE(reader.read_entry(built.offsets[i], entry, data)) << reader.error();
    Entry expected = built.entries[i];
    if (!S_ISDIR(expected.stat.mode)) expected.path = expected.path.substr(expected.path.rfind('/') + 1);
    EXPECT_EQ(entry, expected);
    EXPECT_EQ(data.present, S_ISREG(expected.stat.mode) && expected.hard_link_target.empty());
    EXPECT_EQ(built.bytes.substr(data.offset, data.size), built.data[i]);

    File_End end;
    ASSERT_TRUE(reader.read_end(data, end)) << reader.error();
    EXPECT_EQ(end.has_checksum, data.present);
    EXPECT_FALSE(end.corrupt);
    Xor_Checksum sum;
    sum.add(built.data[i].data(), built.data[i].size());
    EXPECT_EQ(end.checksum, sum.value());
    if (i + 1 < built.offsets.size()) {
      EXPECT_EQ(end.next_offset, built.offsets[i + 1]);
    }
  }
}

TEST(SetRoundTrip, ReadingOneEntryLeavesTheWayThroughTheSetAlone) {
  const Built built = build(all_kinds());
  Memory_Source source(built.bytes);
  Set_Reader reader(source);
  Set_Header header;
  Set_Item item;
  ASSERT_TRUE(reader.read_header(header) && reader.next(item) && reader.next(item) && reader.next(item));
  EXPECT_EQ(item.entry.path, "top.txt");
  Entry entry;
  File_Data data;
  ASSERT_TRUE(reader.read_entry(built.offsets.back(), entry, data));
  ASSERT_TRUE(reader.next(item)) << reader.error();
  EXPECT_EQ(item.entry.path, "empty");
}

TEST(SetRoundTrip, AnEmptySetHasABeginningAndAnEnd) {
  Memory_Sink sink;
  Set_Writer writer(sink);
  ASSERT_TRUE(writer.begin(make_header()) && writer.end());
  Memory_Source source(sink.bytes);
  Set_Reader reader(source);
  Set_Header header;
  Set_Item item;
  ASSERT_TRUE(reader.read_header(header)) << reader.error();
  ASSERT_TRUE(reader.next(item)) << reader.error();
  EXPECT_EQ(item.type, Set_Item::END);
}

TEST(SetRoundTrip, PathsTooLongForABlockGoIntoAStream) {
  std::string deep = "d";
  while (deep.size() < 6000) deep += "/" + std::string(99, 'd');
  const std::string raw_deep = deep + "/\xff";
  const std::string long_name(2000, 'f');
  expect_all_read_back(build({{make_entry(deep, S_IFDIR), ""},
                              {make_entry(deep + "/" + long_name), "long"},
                              {make_entry(deep + "/short"), "short"},
                              {make_entry(raw_deep, S_IFDIR), ""},
                              {make_entry(raw_deep + "/\xfe" + long_name), "raw"}}));
}

/// Every length of a name around the one that just fits.
TEST(SetRoundTrip, NamesOfEveryLengthComeBack) {
  for (size_t size = 455; size < 480; ++size)
    expect_all_read_back(build({{make_entry(std::string(size, 'd'), S_IFDIR), ""},
                                {make_entry(std::string(size, 'd') + "/" + std::string(size, 'f')), "x"}}));
  for (size_t size = 925; size < 945; ++size)
    expect_all_read_back(
        build({{make_entry("\xff" + std::string(size, 'd'), S_IFDIR), ""},
               {make_entry("\xff" + std::string(size, 'd') + "/\xff" + std::string(size, 'f')), "x"}}));
}

TEST(SetRoundTrip, EntriesAsLargeAsTheyMayBeComeBack) {
  const std::string longest(entry_text_max, 'l');
  Entry target = make_entry("link", S_IFLNK);
  target.link_target = longest;
  Entry other = make_entry("other");
  other.hard_link_target = longest;
  Entry attributes = make_entry("attributes");
  attributes.xattrs = {{"user.a", ""}};
  attributes.xattrs[0].second.assign(entry_xattrs_max - xattrs_size(attributes.xattrs), 'v');
  expect_all_read_back(build({{make_entry("", S_IFDIR), ""},
                              {attributes, "x"},
                              {target, ""},
                              {make_entry(longest), "x"},
                              {other, ""},
                              {make_entry(longest, S_IFDIR), ""}}));
}

TEST(SetRoundTrip, LargerEntriesAreRefusedByTheWriter) {
  const std::string longer(entry_text_max + 1, 'l');
  std::vector<Entry> entries{make_entry(longer), make_entry(longer, S_IFDIR), make_entry("link", S_IFLNK),
                             make_entry("other"), make_entry("attributes")};
  entries[2].link_target = longer;
  entries[3].hard_link_target = longer;
  entries[4].xattrs = {{"user.a", std::string(entry_xattrs_max, 'v')}};
  for (const Entry& entry : entries) {
    Memory_Sink sink;
    Set_Writer writer(sink);
    ASSERT_TRUE(writer.begin(make_header()) && writer.volume({"/srv", "host", 0}));
    test_support::Log_Capture log;
    EXPECT_FALSE(put_entry(writer, entry, ""));
    EXPECT_EQ(errno, EINVAL);
    EXPECT_TRUE(log.has(LM_ERROR, "Set writer: an entry of that size makes no sense here.\n")) << log.all();
  }
}

/// The data ends at every distance from a block boundary.
TEST(SetRoundTrip, DataOfEveryLengthComesBack) {
  std::vector<std::pair<Entry, std::string>> entries = {{make_entry("", S_IFDIR), ""}};
  for (size_t size = 0; size < 1100; ++size)
    entries.emplace_back(make_entry(std::to_string(size)), std::string(size, 'x'));
  expect_all_read_back(build(entries, 5000));
}

TEST(SetRoundTrip, AFileBehindAnotherDirectoryBringsItsOwn) {
  Memory_Sink sink;
  Set_Writer writer(sink);
  ASSERT_TRUE(writer.begin(make_header()) && writer.volume({"/srv", "host", 0}));
  ASSERT_TRUE(put_file(writer, make_entry("a/one"), "1"));
  ASSERT_TRUE(put_file(writer, make_entry("a/two"), "2"));
  ASSERT_TRUE(put_file(writer, make_entry("b/three"), "3"));
  ASSERT_TRUE(put_file(writer, make_entry("four"), "4"));
  ASSERT_TRUE(writer.volume({"/other", "host", 0}));
  ASSERT_TRUE(put_file(writer, make_entry("five"), "5"));
  ASSERT_TRUE(writer.end());

  Memory_Source source(sink.bytes);
  Set_Reader reader(source);
  Set_Header header;
  ASSERT_TRUE(reader.read_header(header)) << reader.error();
  std::vector<std::string> met;
  for (Set_Item item; reader.next(item) && item.type != Set_Item::END;) {
    met.push_back(item.type == Set_Item::VOLUME ? item.volume.source_path : item.entry.path);
    if (item.type == Set_Item::DIRECTORY) {
      EXPECT_FALSE(item.entry.has_stat);
    }
  }
  EXPECT_EQ(
      met, (std::vector<std::string>{"/srv", "a", "a/one", "a/two", "b", "b/three", "", "four", "/other", "", "five"}));
}

TEST(SetRoundTrip, SourcePathsOfAnyKindComeBackWhole) {
  for (const std::string& path :
       {std::string("/"), "/" + std::string(299, 'p'), "/" + std::string(300, 'p'), "/" + std::string(4000, 'p'),
        "/\xff" + std::string(598, 'p'), "/\xff" + std::string(4000, 'p'), std::string("/\xf0\x9f\x98\x80")}) {
    Memory_Sink sink;
    Set_Writer writer(sink);
    ASSERT_TRUE(writer.begin(make_header()) && writer.volume({path, "host", 5}) && writer.end());
    Memory_Source source(sink.bytes);
    Set_Reader reader(source);
    Set_Header header;
    Set_Item item;
    ASSERT_TRUE(reader.read_header(header) && reader.next(item)) << reader.error();
    EXPECT_EQ(item.volume, (Volume{path, "host", 5}));
  }
}

TEST(SetRoundTrip, LongTextsOfTheHeaderAreCutBetweenCharacters) {
  Set_Header header = make_header();
  header.set_name.clear();
  for (int i = 0; i < 1000; ++i) header.set_name += "\xf0\x9f\x98\x80";
  header.user = std::string(5000, 'u');
  header.media_name = "\xff" + std::string(5000, 'm');
  header.incremental = true;
  Memory_Sink sink;
  Set_Writer writer(sink);
  ASSERT_TRUE(writer.begin(header) && writer.end());
  Memory_Source source(sink.bytes);
  Set_Reader reader(source);
  Set_Header read;
  ASSERT_TRUE(reader.read_header(read)) << reader.error();
  EXPECT_EQ(header.set_name.substr(0, read.set_name.size()), read.set_name);
  EXPECT_EQ(read.set_name.size() % 4, 0u);
  EXPECT_GE(read.set_name.size(), 200u);
  EXPECT_GE(read.user.size(), 100u);
  EXPECT_EQ(header.media_name.substr(0, read.media_name.size()), read.media_name);
  EXPECT_TRUE(read.incremental);
}

TEST(SetRoundTrip, ASparseFileIsItsExtents) {
  Memory_Sink sink(100);
  Set_Writer writer(sink);
  const uint64_t tib = 1ull << 40;
  ASSERT_TRUE(writer.begin(make_header()) && writer.volume({"/srv", "host", 0}));
  ASSERT_TRUE(writer.begin_sparse_file(make_entry("sparse"), tib));
  const uint64_t offset = writer.offset();
  ASSERT_TRUE(writer.begin_extent(4096, 5) && fill(writer, "first"));
  ASSERT_TRUE(writer.begin_extent(tib - 2000, 2000) && fill(writer, std::string(2000, 'l')));
  ASSERT_TRUE(writer.end_file());
  ASSERT_TRUE(writer.begin_sparse_file(make_entry("hole"), tib) && writer.end_file());
  ASSERT_TRUE(put_file(writer, make_entry("behind"), "behind") && writer.end());
  EXPECT_LT(sink.bytes.size(), 20000u);

  Memory_Source source(sink.bytes);
  Set_Reader reader(source);
  Entry entry;
  File_Data data;
  File_Extent extent;
  ASSERT_TRUE(reader.read_entry(offset, entry, data)) << reader.error();
  EXPECT_TRUE(data.present && data.sparse);
  EXPECT_EQ(data.file_size, tib);
  ASSERT_TRUE(reader.read_extent(data, extent)) << reader.error();
  EXPECT_EQ(extent.at, 4096u);
  EXPECT_EQ(sink.bytes.substr(extent.offset, extent.size), "first");
  ASSERT_TRUE(reader.read_extent(data, extent)) << reader.error();
  EXPECT_EQ(extent.at, tib - 2000);
  EXPECT_EQ(sink.bytes.substr(extent.offset, extent.size), std::string(2000, 'l'));
  ASSERT_TRUE(reader.read_extent(data, extent)) << reader.error();
  EXPECT_EQ(extent.size, 0u);

  Set_Header header;
  Set_Item item;
  std::string met;
  ASSERT_TRUE(reader.read_header(header)) << reader.error();
  while (reader.next(item) && item.type != Set_Item::END) met += item.entry.path + (item.data.sparse ? "~ " : " ");
  EXPECT_EQ(met, "  sparse~ hole~ behind ");
  EXPECT_EQ(item.type, Set_Item::END) << reader.error();
}

TEST(SetRoundTrip, ADamagedFileKeepsItsLengthAndIsFollowedByANote) {
  Memory_Sink sink;
  Set_Writer writer(sink);
  ASSERT_TRUE(writer.begin(make_header()) && writer.volume({"/srv", "host", 0}));
  ASSERT_TRUE(writer.begin_file(make_entry("short"), 10) && fill(writer, std::string("abcd\0\0\0\0\0\0", 10)));
  ASSERT_TRUE(writer.end_file(FD_LENGTH_CHANGED, 4));
  const uint64_t short_offset = writer.offset();
  ASSERT_TRUE(writer.begin_file(make_entry("bad"), 3) && fill(writer, std::string(3, '\0')));
  ASSERT_TRUE(writer.end_file(FD_UNREADABLE, 0));
  ASSERT_TRUE(put_file(writer, make_entry("good"), "good"));
  EXPECT_EQ(writer.corrupt_files(), 2u);
  ASSERT_TRUE(writer.end());

  Memory_Source source(sink.bytes);
  Set_Reader reader(source);
  Set_Header header;
  std::vector<Set_Item> items;
  ASSERT_TRUE(reader.read_header(header)) << reader.error();
  for (Set_Item item; items.size() < 20 && reader.next(item);) items.push_back(item);
  ASSERT_EQ(items.size(), 8u) << reader.error();
  EXPECT_EQ(items[2].offset, short_offset);
  EXPECT_EQ(items[2].data.size, 10u);
  EXPECT_EQ(items[3].type, Set_Item::DAMAGE);
  EXPECT_EQ(items[3].damage, FD_LENGTH_CHANGED);
  EXPECT_EQ(items[3].valid_size, 4u);
  EXPECT_EQ(items[5].type, Set_Item::DAMAGE);
  EXPECT_EQ(items[5].damage, FD_UNREADABLE);
  EXPECT_EQ(items[7].type, Set_Item::END);
  EXPECT_EQ(items[7].corrupt_files, 2u);

  Entry entry;
  File_Data data;
  File_End end;
  ASSERT_TRUE(reader.read_entry(short_offset, entry, data) && reader.read_end(data, end)) << reader.error();
  EXPECT_TRUE(end.corrupt);
  File_Damage damage = FD_NONE;
  uint64_t valid_size = 0;
  ASSERT_TRUE(reader.read_damage(end, damage, valid_size)) << reader.error();
  EXPECT_EQ(damage, FD_LENGTH_CHANGED);
  EXPECT_EQ(valid_size, 4u);
  ASSERT_TRUE(reader.read_end(items[6].data, end)) << reader.error();
  EXPECT_FALSE(end.corrupt);
  ASSERT_TRUE(reader.read_damage(end, damage, valid_size)) << reader.error();
  EXPECT_EQ(damage, FD_NONE);
  end.corrupt = true;
  EXPECT_FALSE(reader.read_damage(end, damage, valid_size)) << "no note follows";
}

TEST(SetRoundTrip, BlocksAreNumberedAsTheFormatAsks) {
  const Built built = build(all_kinds());
  Memory_Source source(built.bytes);
  Block_Reader blocks(source);
  Set_Reader reader(source);
  uint32_t number = 0;
  for (size_t i = 0; i < built.offsets.size(); ++i) {
    ASSERT_TRUE(blocks.block(built.offsets[i])) << blocks.error();
    EXPECT_EQ(built.offsets[i] % 1024, 0u);
    EXPECT_EQ(blocks.get64(at_logical_address), built.offsets[i] / 1024 - 2) << "blocks from the set's start";
    EXPECT_GT(blocks.get32(at_control_block_id), number);
    number = blocks.get32(at_control_block_id);
  }
  EXPECT_EQ(built.bytes.size() % 1024, 0u);
  ASSERT_TRUE(blocks.block(built.bytes.size() - 1024));
  EXPECT_EQ(blocks.type(), block_sfmb);
  EXPECT_EQ(blocks.get64(at_logical_address), built.bytes.size() / 1024 - 1);
  EXPECT_EQ(blocks.get32(at_control_block_id), 3u);
  EXPECT_EQ(blocks.get32(60), built.bytes.size() / 1024 - 3) << "the filemark before the end of the set";
  EXPECT_EQ(blocks.get32(64), 1u) << "the first filemark";
}

TEST(SetRoundTrip, DirectoriesAndFilesAreCountedFrom1) {
  const Built built = build(all_kinds());
  Memory_Source source(built.bytes);
  Block_Reader blocks(source);
  uint32_t directories = 0;
  uint32_t files = 0;
  for (size_t i = 0; i < built.offsets.size(); ++i) {
    ASSERT_TRUE(blocks.block(built.offsets[i]));
    if (S_ISDIR(built.entries[i].stat.mode)) {
      EXPECT_EQ(blocks.get32(76), ++directories);
    } else {
      EXPECT_EQ(blocks.get32(76), directories);
      EXPECT_EQ(blocks.get32(80), ++files);
    }
  }
}

/// A source of endless zeros with a real beginning, so that no test writes 5 TiB.
TEST(SetRoundTrip, AFileOfManyTerabytesIsAnnouncedAndPassedOver) {
  class Counting_Sink : public Byte_Sink {
   public:
    bool space(char*& at, size_t& avail) override {
      at = piece_.data();
      avail = piece_.size();
      return true;
    }
    bool advance(size_t n) override {
      if (kept.size() < 65536) kept.append(piece_, 0, n);
      offset_ += n;
      return true;
    }
    uint64_t offset() const override { return offset_; }
    std::string kept;

   private:
    std::string piece_ = std::string(65536, '\0');
    uint64_t offset_ = 0;
  } sink;
  const uint64_t size = 5ull << 40;
  Set_Writer writer(sink);
  ASSERT_TRUE(writer.begin(make_header()) && writer.volume({"/srv", "host", 0}));
  ASSERT_TRUE(writer.begin_file(make_entry("huge"), size));
  const uint64_t offset = writer.offset();
  char* at;
  size_t avail;
  ASSERT_TRUE(writer.room(at, avail) && writer.filled(avail));
  Memory_Source source(sink.kept);
  Set_Reader reader(source);
  Entry entry;
  File_Data data;
  ASSERT_TRUE(reader.read_entry(offset, entry, data)) << reader.error();
  EXPECT_EQ(data.size, size);
  File_End end;
  EXPECT_FALSE(reader.read_end(data, end));
  EXPECT_THAT(reader.error(), testing::HasSubstr("the medium ends"));
}

TEST(SetRoundTrip, OurMediaAreRecognisedByTheFileTool) {
  if (std::system("file --version > /dev/null 2>&1") != 0) GTEST_SKIP() << "no file(1) here";
  test_support::Temp_Dir dir;
  const std::string path = dir.write("medium", build(all_kinds()).bytes);
  ASSERT_EQ(std::system(("file -b " + path + " > " + (dir / "says")).c_str()), 0);
  EXPECT_EQ(test_support::read_file(dir / "says").rfind("Windows NTbackup archive", 0), 0u)
      << test_support::read_file(dir / "says");
}

TEST(SetWriter, StopsWhereTheSinkIsFull) {
  for (uint64_t capacity = 0; capacity < 12000; capacity += 100) {
    Memory_Sink sink(100, capacity);
    Set_Writer writer(sink);
    errno = 0;
    EXPECT_FALSE(writer.begin(make_header()) && writer.volume({"/srv", "host", 0}) &&
                 put_file(writer, make_entry("file"), std::string(10000, 'x')) && writer.end());
    EXPECT_EQ(errno, ENOSPC);
  }
}

class SetWriterMisuse : public ::testing::Test {
 protected:
  SetWriterMisuse() : writer_(sink_) {}

  void expect_refused(bool result) {
    EXPECT_FALSE(result);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(log_.texts(LM_ERROR).size(), 1u) << log_.all();
  }
  void begin() { ASSERT_TRUE(writer_.begin(make_header()) && writer_.volume({"/srv", "host", 0})); }

  test_support::Log_Capture log_;
  Memory_Sink sink_;
  Set_Writer writer_;
};

TEST_F(SetWriterMisuse, AVolumeBeforeTheBeginningIsRefused) {
  expect_refused(writer_.volume({"/srv", "host", 0}));
}
TEST_F(SetWriterMisuse, AFileBeforeAVolumeIsRefused) {
  ASSERT_TRUE(writer_.begin(make_header()));
  expect_refused(writer_.begin_file(make_entry("file"), 0));
}
TEST_F(SetWriterMisuse, ASecondBeginningIsRefused) {
  begin();
  expect_refused(writer_.begin(make_header()));
}
TEST_F(SetWriterMisuse, AnEndOfAFileThatLacksDataIsRefused) {
  begin();
  ASSERT_TRUE(writer_.begin_file(make_entry("file"), 5) && fill(writer_, "four"));
  expect_refused(writer_.end_file());
}
TEST_F(SetWriterMisuse, MoreDataThanAnnouncedIsRefused) {
  begin();
  ASSERT_TRUE(writer_.begin_file(make_entry("file"), 5));
  char* at;
  size_t avail;
  ASSERT_TRUE(writer_.room(at, avail));
  EXPECT_EQ(avail, 5u);
  expect_refused(writer_.filled(6));
}
TEST_F(SetWriterMisuse, ExtentsOutOfOrderAreRefused) {
  begin();
  ASSERT_TRUE(writer_.begin_sparse_file(make_entry("file"), 100) && writer_.begin_extent(50, 5) &&
              fill(writer_, "12345"));
  expect_refused(writer_.begin_extent(54, 5));
}
TEST_F(SetWriterMisuse, ExtentsBehindTheEndAreRefused) {
  begin();
  ASSERT_TRUE(writer_.begin_sparse_file(make_entry("file"), 100));
  expect_refused(writer_.begin_extent(96, 5));
}
TEST_F(SetWriterMisuse, ExtentsOfAFileWithoutHolesAreRefused) {
  begin();
  ASSERT_TRUE(writer_.begin_file(make_entry("file"), 0));
  expect_refused(writer_.begin_extent(0, 1));
}
TEST_F(SetWriterMisuse, ADirectoryInsideAFileIsRefused) {
  begin();
  ASSERT_TRUE(writer_.begin_file(make_entry("file"), 5));
  expect_refused(writer_.directory(make_entry("dir", S_IFDIR)));
}
TEST_F(SetWriterMisuse, NothingFollowsTheEnd) {
  begin();
  ASSERT_TRUE(writer_.end());
  expect_refused(writer_.directory(make_entry("dir", S_IFDIR)));
}
TEST_F(SetWriterMisuse, ACompleteFileGivesNoMoreRoom) {
  begin();
  ASSERT_TRUE(writer_.begin_file(make_entry("file"), 4) && fill(writer_, "four"));
  char* at;
  size_t avail;
  EXPECT_TRUE(writer_.room(at, avail));
  EXPECT_EQ(avail, 0u);
  EXPECT_TRUE(writer_.end_file());
}

std::string random_bytes(std::mt19937& random, size_t size) {
  std::string bytes(size, '\0');
  for (char& byte : bytes) byte = static_cast<char>(random());
  return bytes;
}

/// Any bytes but '/' and NUL, and no "." or "..".
std::string random_name(std::mt19937& random) {
  std::string name = random_bytes(random, 1 + random() % (random() % 10 == 0 ? 1500 : 60));
  if (random() % 2 == 0)
    for (char& byte : name) byte = static_cast<char>('a' + static_cast<unsigned char>(byte) % 26);
  for (char& byte : name)
    if (byte == '/' || byte == '\0' || byte == '.') byte = '_';
  return name;
}

Timestamp random_time(std::mt19937& random) {
  const int64_t sec = static_cast<int64_t>(static_cast<uint64_t>(random()) << 32 | random()) >> random() % 40;
  return {sec, static_cast<uint32_t>(random() % 1000000000)};
}

Entry random_entry(std::mt19937& random, const std::string& path, uint32_t type) {
  Entry entry;
  entry.path = path;
  entry.stat.mode = type | (random() & 07777);
  entry.stat.uid = random();
  entry.stat.gid = random();
  entry.stat.dev = static_cast<uint64_t>(random()) << 32 | random();
  entry.stat.ino = static_cast<uint64_t>(random()) << 32 | random();
  entry.stat.nlink = random();
  entry.stat.rdev = makedev(random(), random());
  entry.stat.size = static_cast<uint64_t>(random()) << 32 | random();
  entry.stat.atime = random_time(random);
  entry.stat.mtime = random_time(random);
  entry.stat.ctime = random_time(random);
  if (type == S_IFLNK) entry.link_target = random_name(random);
  if (type == S_IFREG && random() % 8 == 0) entry.hard_link_target = random_name(random);
  for (size_t n = random() % 4; n > 0; --n)
    entry.xattrs.emplace_back("user." + std::to_string(n), random_bytes(random, random() % 300));
  return entry;
}

TEST(SetRoundTrip, RandomEntriesComeBackEqual) {
  constexpr uint32_t types[] = {S_IFREG, S_IFREG, S_IFREG, S_IFLNK, S_IFIFO, S_IFCHR};
  for (unsigned seed = 0; seed < 60; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    std::vector<std::pair<Entry, std::string>> entries = {{random_entry(random, "", S_IFDIR), ""}};
    std::string directory;
    for (int i = 0; i < 40; ++i) {
      const std::string path = directory + (directory.empty() ? "" : "/") + random_name(random);
      if (random() % 6 == 0) {
        directory = path;
        entries.emplace_back(random_entry(random, path, S_IFDIR), "");
        continue;
      }
      const Entry entry = random_entry(random, path, types[random() % std::size(types)]);
      const bool has_data = S_ISREG(entry.stat.mode) && entry.hard_link_target.empty();
      entries.emplace_back(entry, has_data ? random_bytes(random, random() % 5000) : std::string());
    }
    expect_all_read_back(build(entries, 1 + random() % 3000));
  }
}

}  // namespace
