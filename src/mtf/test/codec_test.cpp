// The small parts of the codec.
#include <cstring>
#include <limits>
#include <random>

#include "mtf/core/checksum.h"
#include "mtf/core/date_time.h"
#include "mtf/core/own_streams.h"
#include "mtf/core/text.h"

namespace {

using namespace MTF;
using namespace std::string_literals;

std::string stored_date(int64_t sec) {
  char bytes[date_time_size];
  put_date_time(bytes, sec);
  return {bytes, sizeof bytes};
}

TEST(DateTime, HasTheMostSignificantBitsFirst) {
  EXPECT_EQ(stored_date(852062850), "\x1F\x33\x3F\x41\xDE") << "1996-12-31 20:07:30";
}

TEST(DateTime, ComesBack) {
  for (int64_t sec : {int64_t{0}, int64_t{-1}, int64_t{951782400}, int64_t{4102444799}, int64_t{-62135596800},
                      int64_t{454861871999}}) {
    int64_t read = 1;
    const std::string bytes = stored_date(sec);
    ASSERT_TRUE(get_date_time(bytes.data(), read)) << sec;
    EXPECT_EQ(read, sec);
  }
}

TEST(DateTime, OutsideItsYearsIsUnknown) {
  const std::string unknown(5, '\0');
  EXPECT_EQ(stored_date(-62135596801), unknown);
  EXPECT_EQ(stored_date(454861872000), unknown);
  EXPECT_EQ(stored_date(std::numeric_limits<int64_t>::min()), unknown);
  EXPECT_EQ(stored_date(std::numeric_limits<int64_t>::max()), unknown);
  int64_t read = 1;
  EXPECT_FALSE(get_date_time(unknown.data(), read));
}

TEST(DateTime, WhatIsNoDateIsRefused) {
  int64_t read;
  EXPECT_FALSE(get_date_time("\xFF\xFF\xFF\xFF\xFF", read));
  EXPECT_FALSE(get_date_time("\x1F\x1D\x40\x00\x00", read)) << "month 5, day 0";
}

uint32_t slow_checksum(std::string_view bytes) {
  uint32_t sum = 0;
  for (size_t i = 0; i < bytes.size(); ++i)
    sum ^= static_cast<uint32_t>(static_cast<unsigned char>(bytes[i])) << 8 * (i % 4);
  return sum;
}

TEST(XorChecksum, DoesNotDependOnTheCuts) {
  std::mt19937 random(1);
  std::string bytes(3000, '\0');
  for (char& byte : bytes) byte = static_cast<char>(random());
  for (int round = 0; round < 500; ++round) {
    const size_t size = random() % bytes.size();
    Xor_Checksum sum;
    for (size_t at = 0; at < size;) {
      const size_t part = std::min<size_t>(size - at, random() % (random() % 2 == 0 ? 7 : 900));
      sum.add(bytes.data() + at, part);
      at += part;
    }
    ASSERT_EQ(sum.value(), slow_checksum(std::string_view(bytes).substr(0, size))) << size;
  }
}

TEST(XorChecksum, OfNothingIs0) {
  EXPECT_EQ(Xor_Checksum().value(), 0u);
}

TEST(XorChecksum, StartsAgainAfterReset) {
  Xor_Checksum sum;
  sum.add("abc", 3);
  sum.reset();
  sum.add("d", 1);
  EXPECT_EQ(sum.value(), static_cast<uint32_t>('d'));
}

TEST(HeaderChecksum, IsTheXorOfLittleEndianWords) {
  EXPECT_EQ(header_checksum("\x01\x02\x10\x20", 4), 0x2211);
}

TEST(Text, EveryCharacterSurvivesUtf16) {
  const std::string text =
      std::string("a\0\x7f", 3) +
      "\xc2\x80\xdf\xbf\xe0\xa0\x80\xed\x9f\xbf\xee\x80\x80\xef\xbf\xbf\xf0\x90\x80\x80\xf4\x8f\xbf\xbf";
  std::string utf16(2 * text.size(), '\0');
  utf16.resize(put_utf16(text, utf16.data()));
  EXPECT_EQ(from_utf16(utf16), text);
}

TEST(Text, SurrogatePairsAreLittleEndian) {
  char utf16[8];
  ASSERT_EQ(put_utf16("\xf0\x9f\x98\x80", utf16), 4u);
  EXPECT_EQ(std::string(utf16, 4), "\x3d\xd8\x00\xde"s);
}

TEST(Text, LoneSurrogatesBecomeReplacements) {
  EXPECT_EQ(from_utf16("\x3d\xd8"), "\xef\xbf\xbd") << "high";
  EXPECT_EQ(from_utf16(std::string("\x00\xde\x41\x00", 4)),
            "\xef\xbf\xbd"
            "A")
      << "low";
  EXPECT_EQ(from_utf16(std::string("\x3d\xd8\x41\x00", 4)),
            "\xef\xbf\xbd"
            "A")
      << "high without low";
  EXPECT_EQ(from_utf16(std::string("\x41\x00\x42", 3)), "A") << "half a unit";
}

TEST(UnixStat, StandsAsItsTableSays) {
  Entry_Stat st;
  st.mode = 0x11121314;
  st.uid = 0x21222324;
  st.gid = 0x31323334;
  st.size = 0x4142434445464748;
  st.mtime = {-2, 7};
  char bytes[unix_stat_size];
  put_unix_stat(bytes, st);
  const auto at = [&](size_t offset, size_t size) { return std::string(bytes + offset, size); };
  EXPECT_EQ(at(0, 4), std::string("\1\0\0\0", 4));
  EXPECT_EQ(at(4, 4), "\x14\x13\x12\x11");
  EXPECT_EQ(at(8, 4), "\x24\x23\x22\x21");
  EXPECT_EQ(at(12, 4), "\x34\x33\x32\x31");
  EXPECT_EQ(at(48, 8), "\x48\x47\x46\x45\x44\x43\x42\x41");
  EXPECT_EQ(at(64, 8), "\xfe\xff\xff\xff\xff\xff\xff\xff");
  EXPECT_EQ(at(84, 4), std::string("\7\0\0\0", 4));
}

TEST(UnixStat, ALaterVersionOnlyAppends) {
  Entry_Stat st;
  st.mode = 0100644;
  std::string bytes(unix_stat_size, '\0');
  put_unix_stat(bytes.data(), st);
  bytes[0] = 2;
  bytes += "more";
  Entry_Stat read;
  ASSERT_TRUE(get_unix_stat(bytes, read));
  EXPECT_EQ(read, st);
}

TEST(UnixStat, WhatIsTooShortOrHasNoVersionOrNoTimeIsRefused) {
  std::string bytes(unix_stat_size, '\0');
  put_unix_stat(bytes.data(), Entry_Stat());
  Entry_Stat read;
  EXPECT_FALSE(get_unix_stat(std::string_view(bytes).substr(1), read));
  std::string no_version = bytes;
  no_version[0] = 0;
  EXPECT_FALSE(get_unix_stat(no_version, read));
  std::string no_time = bytes;
  std::memset(&no_time[84], 0xff, 4);
  EXPECT_FALSE(get_unix_stat(no_time, read)) << "more nanoseconds than a second has";
}

TEST(XattrStream, EveryTruncationAndAnyRestIsRefused) {
  std::string bytes;
  put_xattrs(bytes, {{"user.a", "one"}, {"user.b", ""}});
  Xattrs attrs;
  ASSERT_TRUE(get_xattrs(bytes, attrs));
  EXPECT_EQ(attrs, (Xattrs{{"user.a", "one"}, {"user.b", ""}}));
  for (size_t size = 0; size < bytes.size(); ++size)
    EXPECT_FALSE(get_xattrs(std::string_view(bytes).substr(0, size), attrs)) << size;
  EXPECT_FALSE(get_xattrs(bytes + "x", attrs));
}

TEST(XattrStream, ACountBeyondTheBytesTakesNoMemory) {
  Xattrs attrs;
  EXPECT_FALSE(get_xattrs("\xff\xff\xff\xff", attrs));
  EXPECT_FALSE(get_xattrs(std::string("\1\0\0\0\xff\xff\xff\xff\xff\xff\xff\xff", 12), attrs));
}

}  // namespace
