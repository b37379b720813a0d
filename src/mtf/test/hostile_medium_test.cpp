// Media that are damaged or made to harm.
#include <sys/stat.h>

#include "memory_medium.h"
#include "mtf/core/block.h"
#include "mtf/core/block_writer.h"
#include "mtf/core/checksum.h"
#include "mtf/core/little_endian.h"
#include "mtf/core/set_reader.h"
#include "set_builder.h"

namespace {

using namespace MTF;

/// What a reader makes of a medium, to be compared: every field that it tells, or the error.
struct Reading {
  std::string text;
  bool whole = false;
};

void note(std::string& text, const Set_Item& item, const std::string& bytes) {
  text += std::to_string(item.type) + "@" + std::to_string(item.offset) + " " + item.volume.source_path + " " +
          item.entry.path + " " + item.entry.link_target + " " + std::to_string(item.entry.stat.mode) + " " +
          std::to_string(item.data.size) + "\n";
  if (item.data.offset <= bytes.size())
    text += bytes.substr(item.data.offset, std::min<uint64_t>(item.data.size, 100)) + "\n";
}

Reading read_all(const std::string& bytes) {
  Reading reading;
  Memory_Source source(bytes);
  Set_Reader reader(source);
  Set_Header header;
  if (!reader.read_header(header)) {
    reading.text = reader.error();
    return reading;
  }
  Set_Item item;
  // No medium holds more blocks than it has bytes: a reader that does not end is caught here.
  for (size_t steps = 0; steps < bytes.size() + 10; ++steps) {
    if (!reader.next(item)) {
      reading.text += reader.error();
      return reading;
    }
    note(reading.text, item, bytes);
    if (item.type == Set_Item::END) {
      reading.whole = true;
      return reading;
    }
  }
  ADD_FAILURE() << "the reader does not end";
  return reading;
}

std::string small_image() {
  Memory_Sink sink;
  Set_Writer writer(sink);
  writer.begin(make_header());
  writer.volume({"/srv", "host", 5});
  writer.directory(make_entry("dir", S_IFDIR));
  put_file(writer, make_entry("dir/file"), "some data");
  Entry link = make_entry("dir/link", S_IFLNK);
  link.link_target = "target";
  link.xattrs = {{"user.a", "b"}};
  put_file(writer, link, "");
  writer.begin_file(make_entry("dir/bad"), 4);
  fill(writer, std::string(4, '\0'));
  writer.end_file(FD_UNREADABLE, 0);
  writer.end();
  return sink.bytes;
}

bool is_offset_error(const std::string& text) {
  return text.find("offset ") != std::string::npos;
}

TEST(HostileMedium, EveryTruncationIsToldWithItsOffset) {
  const std::string image = small_image();
  // The last two blocks, the rest of ESET's and the filemark, are not needed to know that the set is whole.
  for (size_t size = 0; size < image.size() - 1024; ++size) {
    const Reading reading = read_all(image.substr(0, size));
    if (reading.whole) {
      EXPECT_GE(size, image.size() - 2048 + 110) << "ESET is complete";
      continue;
    }
    EXPECT_TRUE(is_offset_error(reading.text)) << size << ": " << reading.text;
  }
}

/// Headers of blocks and streams carry checksums.
TEST(HostileMedium, EveryFlippedBitOfAHeaderIsFound) {
  const std::string image = small_image();
  std::vector<size_t> header_bytes;
  for (size_t block = 0; block + 1024 < image.size(); block += 1024)
    for (size_t at = 0; at < 52; ++at) header_bytes.push_back(block + at);
  for (const char* id : {"SPAD", "STAN", "UXST", "UXLN", "UXXA", "CSUM", "CRPT"})
    for (size_t at = image.find(id); at != image.npos; at = image.find(id, at + 1))
      for (size_t i = 0; i < 22; ++i) header_bytes.push_back(at + i);
  ASSERT_GT(header_bytes.size(), 1000u);
  for (size_t at : header_bytes)
    for (int bit = 0; bit < 8; ++bit) {
      std::string broken = image;
      broken[at] = static_cast<char>(broken[at] ^ 1 << bit);
      const Reading reading = read_all(broken);
      EXPECT_FALSE(reading.whole) << "byte " << at << " bit " << bit;
      EXPECT_TRUE(is_offset_error(reading.text)) << reading.text;
    }
}

TEST(HostileMedium, AnyFlippedBitElsewhereEndsInAnAnswer) {
  const std::string image = small_image();
  for (size_t at = 0; at < image.size(); ++at) {
    std::string broken = image;
    broken[at] = static_cast<char>(broken[at] ^ 1 << at % 8);
    const Reading reading = read_all(broken);
    EXPECT_TRUE(reading.whole || is_offset_error(reading.text)) << at;
  }
}

TEST(HostileMedium, AReadErrorIsToldAsSuch) {
  const std::string image = small_image();
  Memory_Source source(image);
  source.fails_from = 0;
  Set_Reader reader(source);
  Set_Header header;
  EXPECT_FALSE(reader.read_header(header));
  EXPECT_EQ(reader.error(), "offset 0: Input/output error");
}

TEST(HostileMedium, NoMediumAtAllIsToldAsSuch) {
  EXPECT_EQ(read_all("").text, "offset 0: the medium ends");
  EXPECT_EQ(read_all("x" + std::string(4096, 'y')).text, "offset 0: wrong checksum of a block header");
  EXPECT_EQ(read_all(std::string(4096, 'x')).text, "offset 0: no medium of this format");
  EXPECT_EQ(read_all(std::string(4096, '\0')).text, "offset 0: block too short for its type");
}

class Hand_Made : public ::testing::Test {
 protected:
  Hand_Made() : out_(sink_) {
    Set_Writer writer(sink_);
    EXPECT_TRUE(writer.begin(make_header()) && writer.volume({"/srv", "host", 0}) && writer.end());
    sink_.bytes.resize(sink_.bytes.size() - 3 * 1024);  // the end of the set
  }

  uint64_t begin(Block& block) {
    const uint64_t offset = sink_.bytes.size();
    out_.put(block.finish());
    return offset;
  }

  uint64_t put_named(uint32_t type, std::string_view name, String_Type string_type = STR_BYTES) {
    const bool directory = type == block_dirb;
    Block block(type, directory ? dirb_end : file_end);
    block.string_type(string_type);
    block.text(directory ? 80 : 84, name);
    const uint64_t offset = begin(block);
    finish();
    return offset;
  }

  void finish() {
    out_.pad();
    out_.flush();
  }

  void put_end() {
    Block block(block_eset, eset_end);
    begin(block);
    finish();
  }

  /// Fails to read the entry at @a offset, for this reason.
  void expect_refused(uint64_t offset, const std::string& reason) {
    Memory_Source source(sink_.bytes);
    Set_Reader reader(source);
    Entry entry;
    File_Data data;
    EXPECT_FALSE(reader.read_entry(offset, entry, data));
    EXPECT_THAT(reader.error(), testing::HasSubstr(reason));
  }

  Memory_Sink sink_;
  Block_Writer out_;
};

TEST_F(Hand_Made, NamesThatLeadElsewhereAreRefused) {
  using std::string_literals::operator""s;
  for (const std::string& name : {""s, "."s, ".."s, "a/b"s, "/"s, "../x"s, "a\0b"s})
    expect_refused(put_named(block_file, name), "a name that could lead elsewhere");
  for (const std::string& name :
       {""s, "a"s, "..\0"s, "a\0..\0"s, "a\0.\0b\0"s, "\0\0"s, "a\0\0"s, "\0a\0"s, "a/b\0"s, "/\0"s})
    expect_refused(put_named(block_dirb, name), "a name that could lead elsewhere");
}

TEST_F(Hand_Made, NamesThatLeadElsewhereAreMarkedAndTheRestGoesOn) {
  put_named(block_dirb, std::string_view("good\0", 5));
  put_named(block_file, "..");
  put_named(block_file, "fine");
  put_named(block_dirb, std::string_view("..\0", 3));
  put_named(block_file, "below");
  put_named(block_dirb, std::string_view("\0", 1));
  put_named(block_file, "last");
  put_end();
  Memory_Source source(sink_.bytes);
  Set_Reader reader(source);
  Set_Header header;
  Set_Item item;
  ASSERT_TRUE(reader.read_header(header) && reader.next(item)) << reader.error();
  std::string met;
  while (reader.next(item) && item.type != Set_Item::END) met += item.entry.path + (item.bad_name ? "! " : " ");
  EXPECT_EQ(met, "good good/..! good/fine ..! ../below!  last ");
  EXPECT_EQ(item.type, Set_Item::END) << reader.error();
}

TEST_F(Hand_Made, UnknownBlocksAndStreamsArePassedOver) {
  Block odd(type_code("ODD!"), header_size);
  begin(odd);
  out_.stream(type_code("WHAT"), 0xffff, 3000);
  out_.zeros(3000);
  finish();
  Block file(block_file, file_end);
  file.text(84, "name");
  file.string_type(STR_BYTES);
  begin(file);
  out_.stream(type_code("NACL"), 0, 5);
  out_.put("12345");
  out_.stream(stream_data, 0, 3);
  out_.put("abc");
  out_.stream(type_code("ADAT"), 0, 7);
  out_.put("1234567");
  finish();
  put_end();
  Memory_Source source(sink_.bytes);
  Set_Reader reader(source);
  Set_Header header;
  Set_Item item;
  ASSERT_TRUE(reader.read_header(header) && reader.next(item) && reader.next(item)) << reader.error();
  EXPECT_EQ(item.entry.path, "name");
  EXPECT_EQ(sink_.bytes.substr(item.data.offset, item.data.size), "abc");
  ASSERT_TRUE(reader.next(item)) << reader.error();
  EXPECT_EQ(item.type, Set_Item::END);
}

TEST_F(Hand_Made, StreamLengthsThatWrapAreRefused) {
  for (uint64_t length : {~0ull, ~0ull - 21, 1ull << 63, (1ull << 63) - 1}) {
    Block file(block_file, file_end);
    const uint64_t offset = begin(file);
    out_.stream(type_code("WHAT"), 0, length);
    out_.zeros(40);
    finish();
    expect_refused(offset, "impossible stream length");
  }
}

TEST_F(Hand_Made, LongStreamsOfOurOwnTakeNoMemory) {
  for (uint32_t id :
       {stream_file_name, stream_unix_stat, stream_unix_link, stream_unix_hard_link, stream_unix_xattrs}) {
    Block file(block_file, file_end);
    const uint64_t offset = begin(file);
    out_.stream(id, 0, 1ull << 40);
    finish();
    expect_refused(offset, "stream too long for its kind");
  }
}

TEST_F(Hand_Made, DataInFormsThatWeDoNotWriteIsRefusedNotMisread) {
  for (uint16_t attributes : {1u << 0, 1u << 1, 1u << 3, 1u << 4}) {
    Block file(block_file, file_end);
    const uint64_t offset = begin(file);
    out_.stream(stream_data, attributes, 0);
    finish();
    expect_refused(offset, "data in a form that is not read here");
  }
}

TEST_F(Hand_Made, ExtentsWithoutAPlaceOrAtAnImpossibleOneAreRefused) {
  for (const auto& [length, reason] :
       {std::pair<uint64_t, const char*>{4, "extent without a place"}, {9, "impossible place of an extent"}}) {
    Block file(block_file, file_end);
    file.string_type(STR_BYTES);
    file.text(84, "name");
    const uint64_t offset = begin(file);
    out_.stream(stream_data, 0, 0, stream_sparse);
    out_.stream(stream_extent, 0, length);
    out_.put(std::string(length, '\xff'));
    finish();
    Memory_Source source(sink_.bytes);
    Set_Reader reader(source);
    Entry entry;
    File_Data data;
    File_Extent extent;
    ASSERT_TRUE(reader.read_entry(offset, entry, data)) << reader.error();
    EXPECT_FALSE(reader.read_extent(data, extent));
    EXPECT_THAT(reader.error(), testing::HasSubstr(reason));
  }
}

TEST_F(Hand_Made, TextsOutsideTheirBlockAreRefused) {
  for (const auto& [size, start] : {std::pair{100, 88}, {1, 1024}, {0xffff, 0xffff}, {2, 0xffff}}) {
    Block file(block_file, file_end);
    file.set16(84, static_cast<uint16_t>(size));
    file.set16(86, static_cast<uint16_t>(start));
    const uint64_t offset = begin(file);
    finish();
    expect_refused(offset, "text outside its block");
  }
}

TEST_F(Hand_Made, BlocksTooShortForTheirTypeAreRefused) {
  for (uint32_t type : {block_file, block_dirb}) {
    Block block(type, header_size);
    const uint64_t offset = begin(block);
    finish();
    expect_refused(offset, "block too short for its type");
  }
}

TEST_F(Hand_Made, OtherPlacesAndBlocksAreNoEntries) {
  expect_refused(0, "no block of a directory or file");
  expect_refused(1, "no place for a block");
  expect_refused(1 << 20, "the medium ends");
  expect_refused(~0ull - 511, "the medium ends");
}

TEST_F(Hand_Made, AChecksumOfAnotherLengthIsRefused) {
  Block file(block_file, file_end);
  file.string_type(STR_BYTES);
  file.text(84, "name");
  const uint64_t offset = begin(file);
  out_.stream(stream_data, stream_checksummed, 0);
  out_.stream(stream_checksum, 0, 3);
  out_.put("abc");
  finish();
  Memory_Source source(sink_.bytes);
  Set_Reader reader(source);
  Entry entry;
  File_Data data;
  File_End end;
  ASSERT_TRUE(reader.read_entry(offset, entry, data)) << reader.error();
  EXPECT_FALSE(reader.read_end(data, end));
  EXPECT_THAT(reader.error(), testing::HasSubstr("checksum of a wrong length"));
}

TEST_F(Hand_Made, FilemarksThatPointBackwardsDoNotLoop) {
  // A filemark's length is its step: none is below the header's, so the reader always goes forward.
  std::string mark(1024, '\0');
  put_le(mark.data(), block_sfmb);
  put_le(mark.data() + 50, header_checksum(mark.data(), 50));
  EXPECT_EQ(read_all(sink_.bytes + mark).text.find("does not end"), std::string::npos);
  EXPECT_FALSE(read_all(sink_.bytes + mark).whole);
}

}  // namespace
