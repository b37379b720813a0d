// One directory `docs` with one file `ten.txt`, built from single blocks, against an image that other programs read.
#include <openssl/sha.h>

#include "memory_medium.h"
#include "mtf/core/block.h"
#include "mtf/core/block_writer.h"
#include "mtf/core/set_reader.h"
#include "set_builder.h"
#include "support/temp_dir.h"

namespace {

using namespace MTF;

constexpr int64_t stamp = 981173106;  // 2001-02-03 04:05:06

std::string sha256(const std::string& bytes) {
  unsigned char digest[SHA256_DIGEST_LENGTH];
  SHA256(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), digest);
  std::string hex;
  for (unsigned char byte : digest) {
    char text[3];
    std::snprintf(text, sizeof text, "%02x", byte);
    hex += text;
  }
  return hex;
}

std::string_view filemark(Block& block, uint64_t address, uint32_t number, std::vector<uint32_t> earlier) {
  block.set64(at_logical_address, address);
  block.set32(at_control_block_id, number);
  block.set32(52, 241);
  block.set32(56, static_cast<uint32_t>(earlier.size()));
  for (size_t i = 0; i < earlier.size(); ++i) block.set32(60 + 4 * i, earlier[i]);
  return block.finish_filemark();
}

void place(Block& block, uint64_t address, uint32_t control_block_id) {
  block.set64(at_logical_address, address);
  block.set32(at_control_block_id, control_block_id);
}

std::string golden_image() {
  Memory_Sink sink;
  Block_Writer out(sink);

  Block tape(block_tape, tape_end);
  tape.string_type(STR_UTF16);
  tape.set32(52, 0x11223344);
  tape.set32(56, tape_soft_filemarks);
  tape.set16(60, 1);
  tape.set16(64, 2);
  tape.text(68, "M1");
  tape.text(80, "demo");
  tape.set16(84, 1024);
  tape.set_date(88, stamp);
  tape.set8(93, 1);
  out.put(tape.finish());
  out.pad();

  Block first_mark(block_sfmb, sfmb_end);
  out.put(filemark(first_mark, 1, 1, {}));

  Block set(block_sset, sset_end);
  set.string_type(STR_UTF16);
  set.set32(52, set_normal);
  set.set16(62, 1);
  set.text(64, "S1");
  set.text(76, "op");
  set.set64(80, 2);
  set.set_date(88, stamp);
  set.set8(93, 1);
  out.put(set.finish());
  out.pad();

  Block volume(block_volb, volb_end);
  volume.string_type(STR_UTF16);
  place(volume, 1, 1);
  volume.set32(52, volume_os_specific);
  volume.text(56, "/srv");
  volume.text(64, "host");
  volume.set_date(68, stamp);
  out.put(volume.finish());
  out.pad();

  Block directory(block_dirb, dirb_end);
  directory.string_type(STR_UTF16);
  place(directory, 2, 2);
  for (size_t at : {56, 61, 71}) directory.set_date(at, stamp);
  directory.set32(76, 1);
  directory.text(80, std::string_view("docs\0", 5));
  out.put(directory.finish());
  out.pad();

  Block file(block_file, file_end);
  file.string_type(STR_UTF16);
  place(file, 3, 3);
  file.set64(at_displayable_size, 10);
  for (size_t at : {56, 61, 71}) file.set_date(at, stamp);
  file.set32(76, 1);
  file.set32(80, 1);
  file.text(84, "ten.txt");
  out.put(file.finish());
  out.stream(stream_data, 0, 10);
  out.put("0123456789");
  out.pad();

  Block second_mark(block_sfmb, sfmb_end + 4);
  out.put(filemark(second_mark, 6, 2, {1}));

  Block end(block_eset, eset_end);
  place(end, 0, 4);
  end.set32(52, set_normal);
  end.set16(78, 1);
  end.set_date(80, stamp);
  out.put(end.finish());
  out.pad();

  Block third_mark(block_sfmb, sfmb_end + 8);
  out.put(filemark(third_mark, 8, 3, {6, 1}));
  out.flush();
  return sink.bytes;
}

TEST(GoldenImage, IsTheSameByteForByte) {
  const std::string image = golden_image();
  EXPECT_EQ(image.size(), 9216u);
  EXPECT_EQ(sha256(image), "ac95c3249d060d8aa4239712a7f4d7953ab4e8557651d560643e5f039c61cb3f");
}

TEST(GoldenImage, IsReadThoughItHasNoneOfOurStreams) {
  const std::string image = golden_image();
  Memory_Source source(image);
  Set_Reader reader(source);
  Set_Header header;
  ASSERT_TRUE(reader.read_header(header)) << reader.error();
  EXPECT_EQ(header.family_id, 0x11223344u);
  EXPECT_EQ(header.media_name, "M1");
  EXPECT_EQ(header.software_name, "demo");
  EXPECT_EQ(header.set_name, "S1");
  EXPECT_EQ(header.user, "op");
  EXPECT_EQ(header.time, stamp);
  EXPECT_FALSE(header.incremental);

  Set_Item item;
  ASSERT_TRUE(reader.next(item)) << reader.error();
  EXPECT_EQ(item.type, Set_Item::VOLUME);
  EXPECT_EQ(item.volume, (Volume{"/srv", "host", stamp}));
  ASSERT_TRUE(reader.next(item)) << reader.error();
  EXPECT_EQ(item.type, Set_Item::DIRECTORY);
  EXPECT_EQ(item.entry.path, "docs");
  EXPECT_FALSE(item.entry.has_stat);
  ASSERT_TRUE(reader.next(item)) << reader.error();
  EXPECT_EQ(item.type, Set_Item::FILE);
  EXPECT_EQ(item.offset, 5120u);
  EXPECT_EQ(item.entry.path, "docs/ten.txt");
  EXPECT_EQ(image.substr(item.data.offset, item.data.size), "0123456789");
  ASSERT_TRUE(reader.next(item)) << reader.error();
  EXPECT_EQ(item.type, Set_Item::END);
  EXPECT_EQ(item.corrupt_files, 0u);
}

/// What stands in a pool stays readable: our own images may only change on purpose. This one is told in
/// doc/set-format.md.
TEST(GoldenImage, OfOurOwnWriterStaysTheSame) {
  Memory_Sink sink;
  Set_Writer writer(sink);
  ASSERT_TRUE(writer.begin(make_header()) && writer.volume({"/srv", "host", 5}));
  ASSERT_TRUE(writer.directory(make_entry("dir", S_IFDIR)) && put_file(writer, make_entry("dir/file"), "data"));
  ASSERT_TRUE(writer.end());
  EXPECT_EQ(sink.bytes.size(), 9216u);
  EXPECT_EQ(sha256(sink.bytes), "43b03d544a3b30cbd7c2681b5df6d6f7dad845c8ab604300bf3246a90233111e");
}

/// An independent opinion, where the tool is installed.
TEST(GoldenImage, IsRecognisedByTheFileTool) {
  if (std::system("file --version > /dev/null 2>&1") != 0) GTEST_SKIP() << "no file(1) here";
  test_support::Temp_Dir dir;
  const std::string path = dir.write("medium", golden_image());
  ASSERT_EQ(std::system(("file -b " + path + " > " + (dir / "says")).c_str()), 0);
  EXPECT_EQ(test_support::read_file(dir / "says").rfind("Windows NTbackup archive", 0), 0u)
      << test_support::read_file(dir / "says");
}

}  // namespace
