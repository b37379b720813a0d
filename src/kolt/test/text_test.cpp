// The small decoders of text.
#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <string>

#include "kolt/base64_decoder.h"
#include "kolt/base64_encoder.h"
#include "kolt/compression.h"
#include "kolt/get_env_r.h"
#include "kolt/job_definition_type.h"
#include "kolt/printable.h"
#include "kolt/relative_time.h"
#include "kolt/utf8.h"

namespace {

constexpr unsigned int untouched = 12345;

unsigned int seconds(const std::string& text) {
  unsigned int value = untouched;
  const bool understood = relative_time_to_seconds(text.c_str(), static_cast<int>(text.size()), value);
  EXPECT_EQ(understood, value != untouched);
  return value;
}

TEST(Relative_Time, ReadsTimesOfTheDay) {
  EXPECT_EQ(seconds("00:00"), 0u);
  EXPECT_EQ(seconds("08:30"), 30600u);
  EXPECT_EQ(seconds("8:30"), 30600u);
  EXPECT_EQ(seconds("23:59:59"), 86399u);
  EXPECT_EQ(seconds("48:00"), 172800u);
}

TEST(Relative_Time, ReadsNumbersWithUnits) {
  EXPECT_EQ(seconds("45s"), 45u);
  EXPECT_EQ(seconds("30m"), 1800u);
  EXPECT_EQ(seconds("2h"), 7200u);
  EXPECT_EQ(seconds("1d"), 86400u);
  EXPECT_EQ(seconds("1d2h30m45s"), 95445u);
  EXPECT_EQ(seconds("90m1s"), 5401u);
  EXPECT_EQ(seconds("4294967295s"), 4294967295u);
}

TEST(Relative_Time, RefusesAllElse) {
  for (const char* text : {"", "5", "08:60", "08:30:60", "08:", ":30", "1:2:3:4", "08:30 ", " 08:30", "-1:00", "1x",
                           "s", "30m1h", "1h1h", "1h30", "4294967296s", "50000d", "99999999999999999999:00"})
    EXPECT_EQ(seconds(text), untouched) << text;
  unsigned int value = untouched;
  EXPECT_FALSE(relative_time_to_seconds(nullptr, -1, value));
}

TEST(Relative_Time, LengthEndsTheText) {
  unsigned int value = 0;
  EXPECT_TRUE(relative_time_to_seconds("08:301", 5, value));
  EXPECT_EQ(value, 30600u);
  EXPECT_TRUE(relative_time_to_seconds("1m", -1, value));
  EXPECT_EQ(value, 60u);
}

std::string decoded(const char* text, int length = -1) {
  Base64_Decoder decoder;
  if (!decoder.set(text, length)) return "bad";
  return std::string(reinterpret_cast<const char*>(decoder.get()), decoder.length());
}

TEST(Base64_Decoder, Decodes) {
  EXPECT_EQ(decoded(""), "");
  EXPECT_EQ(decoded("Zg=="), "f");
  EXPECT_EQ(decoded("Zm8="), "fo");
  EXPECT_EQ(decoded("Zm9v"), "foo");
  EXPECT_EQ(decoded("Zm9vYmFy"), "foobar");
  EXPECT_EQ(decoded("+/+/"), "\xfb\xff\xbf");
}

TEST(Base64_Decoder, BytesMayBeZero) {
  EXPECT_EQ(decoded("AAEA"), std::string("\0\1\0", 3));
}

TEST(Base64_Decoder, LengthEndsTheText) {
  EXPECT_EQ(decoded("Zm9vYmFy", 4), "foo");
}

TEST(Base64_Decoder, BlanksAndMissingPaddingAreAccepted) {
  EXPECT_EQ(decoded(" Zm9v\r\nYm\tFy\n"), "foobar");
  EXPECT_EQ(decoded("Zg"), "f");
  EXPECT_EQ(decoded("Zm8"), "fo");
}

TEST(Base64_Decoder, BadTextDecodesToNothing) {
  for (const char* text : {"Z", "Zg=", "Zg===", "Z===", "====", "Zm9v=", "Zg==Zg==", "Z!8=", "Zm-_", "Zh==", "Zm9="}) {
    Base64_Decoder decoder;
    ASSERT_TRUE(decoder.set("Zm9v", -1));
    EXPECT_FALSE(decoder.set(text, -1)) << text;
    EXPECT_EQ(decoder.length(), 0u);
    EXPECT_NE(decoder.get(), nullptr);
  }
  EXPECT_EQ(decoded(nullptr), "bad");
}

TEST(Base64_Encoder, EncodesWhatTheDecoderReads) {
  EXPECT_EQ(base64_encode(""), "");
  EXPECT_EQ(base64_encode("f"), "Zg==");
  EXPECT_EQ(base64_encode("fo"), "Zm8=");
  EXPECT_EQ(base64_encode("foobar"), "Zm9vYmFy");
  std::mt19937 random(7);
  for (int size = 0; size < 200; ++size) {
    std::string bytes;
    while (bytes.size() < static_cast<std::size_t>(size)) bytes += static_cast<char>(random());
    EXPECT_EQ(decoded(base64_encode(bytes).c_str()), bytes);
  }
}

TEST(Printable, PlainNamesStay) {
  EXPECT_EQ(printable("/var/lib/file name.txt"), "/var/lib/file name.txt");
  EXPECT_EQ(printable("\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80"), "\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80");
}

TEST(Printable, ControlBytesAreEscaped) {
  EXPECT_EQ(printable("a\nb\x1b[31m\x7f"), "a\\x0Ab\\x1B[31m\\x7F");
  EXPECT_EQ(printable("\xc2\x85"), "\\xC2\\x85");
  EXPECT_EQ(printable(std::string("\0", 1)), "\\x00");
}

TEST(Printable, EscapesCannotBeForged) {
  EXPECT_EQ(printable("a\\x0A"), "a\\x5Cx0A");
}

TEST(Printable, BytesThatAreNoTextAreEscaped) {
  EXPECT_EQ(printable("\xff\x80"), "\\xFF\\x80");
  EXPECT_EQ(printable("\xc3"), "\\xC3");
  EXPECT_EQ(printable("\xe2\x82x"), "\\xE2\\x82x");
  EXPECT_EQ(printable("\xc0\xaf\xe0\x80\xaf"), "\\xC0\\xAF\\xE0\\x80\\xAF");
  EXPECT_EQ(printable("\xed\xa0\x80\xf4\x90\x80\x80"), "\\xED\\xA0\\x80\\xF4\\x90\\x80\\x80");
}

TEST(Get_Env_R, GivesTheValueOrNothing) {
  setenv("KOLT_ENV_TEST", "value", 1);
  EXPECT_EQ(get_env_r("KOLT_ENV_TEST"), "value");
  unsetenv("KOLT_ENV_TEST");
  EXPECT_EQ(get_env_r("KOLT_ENV_TEST"), "");
  EXPECT_EQ(get_env_r(nullptr), "");
}

TEST(Job_Definition_Type, NamesHaveTheirNumbers) {
  EXPECT_EQ(job_def_subtype_from_string("full", -1), 1);
  EXPECT_EQ(job_def_subtype_from_string("incremental", -1), JOB_DEFINITION_SUBTYPE_INCREMENTAL);
  EXPECT_EQ(job_def_subtype_from_string("differential", -1), 3);
}

TEST(Job_Definition_Type, OtherTextGivesTheDefault) {
  for (const char* text : {"", "Full", "incremental ", static_cast<const char*>(nullptr)})
    EXPECT_EQ(job_def_subtype_from_string(text, -1), -1);
}

TEST(Compression, NumbersOfASetAreTheMethods) {
  EXPECT_EQ(mtf_to_compression(0), COMPR_NONE);
  EXPECT_EQ(mtf_to_compression(1), COMPR_AUTO);
  EXPECT_EQ(mtf_to_compression(2), COMPR_LZOP);
  EXPECT_EQ(mtf_to_compression(3), COMPR_ZSTD);
  EXPECT_EQ(mtf_to_compression(4), COMPR_NONE);
  EXPECT_EQ(mtf_to_compression(65535), COMPR_NONE);
}

TEST(Utf8, IsToldFromOtherBytes) {
  for (const char* good : {"", "a", "\xc2\x80", "\xdf\xbf", "\xe0\xa0\x80", "\xed\x9f\xbf", "\xee\x80\x80",
                           "\xf0\x90\x80\x80", "\xf4\x8f\xbf\xbf"})
    EXPECT_TRUE(kolt::is_utf8(good)) << good;
  for (const char* bad : {"\x80", "\xc1\xbf", "\xc2", "\xc2\x41", "\xe0\x9f\xbf", "\xed\xa0\x80", "\xe2\x82",
                          "\xf0\x8f\xbf\xbf", "\xf4\x90\x80\x80", "\xf5\x80\x80\x80", "\xff", "ok\xfe"})
    EXPECT_FALSE(kolt::is_utf8(bad)) << bad;
}

TEST(Utf8, APrefixCutsNoCharacter) {
  EXPECT_EQ(kolt::utf8_prefix("a\xe2\x82\xac", 4), "a\xe2\x82\xac");
  EXPECT_EQ(kolt::utf8_prefix("a\xe2\x82\xac", 3), "a");
  EXPECT_EQ(kolt::utf8_prefix("\xe2\x82\xac", 2), "");
}

}  // namespace
