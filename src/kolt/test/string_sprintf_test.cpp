#include "kolt/string_sprintf.h"

#include <gtest/gtest.h>
#include <printf.h>

#include <cerrno>
#include <cstdarg>

#include "kolt/snprintf_t.h"

namespace {

// The conversion %Q prints nothing and counts how often a text is formatted.
int passes = 0;

int count_pass(FILE*, const printf_info*, const void* const*) {
  ++passes;
  return 0;
}

int no_arguments(const printf_info*, size_t, int*, int*) {
  return 0;
}

// Out of sight of the compiler's format check.
std::string count_passes(const char* fmt, ...) {
  register_printf_specifier('Q', count_pass, no_arguments);
  passes = 0;
  std::string out;
  va_list ap;
  va_start(ap, fmt);
  string_vsprintf<char>(out, fmt, ap, false);
  va_end(ap);
  return out;
}

__attribute__((format(printf, 3, 4))) int print(std::string& out, bool append, const char* fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  const int size = string_vsprintf<char>(out, fmt, ap, append);
  va_end(ap);
  return size;
}

// No text in the "C" locale, so formatting fails.
constexpr wchar_t unprintable[] = L"\x100";

TEST(String_Sprintf, BothSpellingsFormat) {
  EXPECT_EQ(string_sprintf<char>("%s/%s", "host", "vol"), "host/vol");
  EXPECT_EQ(string_sprintf("%d of %d", 1, 2), "1 of 2");
}

TEST(String_Sprintf, EmptyTextIsEmpty) {
  EXPECT_EQ(string_sprintf("%s", ""), "");
}

TEST(String_Sprintf, TextOf127BytesFitsTheFirstPass) {
  const std::string text(127, 'a');
  EXPECT_EQ(count_passes("%s%Q", text.c_str()), text);
  EXPECT_EQ(passes, 1);
}

TEST(String_Sprintf, TextOf128BytesTakesASecondPass) {
  const std::string text(128, 'a');
  EXPECT_EQ(count_passes("%s%Q", text.c_str()), text);
  EXPECT_EQ(passes, 2);
}

TEST(String_Sprintf, TextOneLongerThanTheRoomComesWhole) {
  const std::string text(129, 'a');
  EXPECT_EQ(count_passes("%s%Q", text.c_str()), text);
  EXPECT_EQ(passes, 2);
}

TEST(String_Sprintf, LongTextComesWhole) {
  const std::string text(100000, 'x');
  EXPECT_EQ(string_sprintf("<%s>", text.c_str()), "<" + text + ">");
}

TEST(String_Sprintf, FailureGivesAnEmptyString) {
  EXPECT_EQ(string_sprintf("text %ls", unprintable), "");
}

TEST(String_Vsprintf, GivesTheNewSize) {
  std::string out = "old text";
  EXPECT_EQ(print(out, false, "%d", 42), 2);
  EXPECT_EQ(out, "42");
}

TEST(String_Vsprintf, AppendsBehindTheText) {
  std::string out = "/api";
  EXPECT_EQ(print(out, true, "/%s", "v1"), 7);
  EXPECT_EQ(out, "/api/v1");
}

TEST(String_Vsprintf, UsesTheRoomOfALongerText) {
  std::string out(500, 'o');
  EXPECT_EQ(print(out, false, "%s", std::string(400, 'n').c_str()), 400);
  EXPECT_EQ(out, std::string(400, 'n'));
}

TEST(String_Vsprintf, FailureGivesANegativeNumberAndNoText) {
  std::string out(1000, 'o');
  EXPECT_LT(print(out, false, "%ls", unprintable), 0);
  EXPECT_EQ(out, "");
  EXPECT_EQ(out.capacity(), std::string().capacity());
}

TEST(String_Vsprintf, FailureWhileAppendingKeepsTheTextBefore) {
  std::string out = "before";
  EXPECT_LT(print(out, true, "%ls", unprintable), 0);
  EXPECT_EQ(out, "before");
}

TEST(Snprintf_T, ShortTextStaysInline) {
  const snprintf_t<64, char> text("%s", std::string(63, 's').c_str());
  const char* self = reinterpret_cast<const char*>(&text);
  EXPECT_TRUE(text.c_str() >= self && text.c_str() < self + sizeof text);
  EXPECT_EQ(text.length(), 63);
  EXPECT_STREQ(text.c_str(), std::string(63, 's').c_str());
}

TEST(Snprintf_T, LongerTextsMoveToTheHeap) {
  for (const int size : {64, 65, 66, 1000}) {
    const std::string long_text(size, 'l');
    const snprintf_t<64, char> text("%s", long_text.c_str());
    const char* self = reinterpret_cast<const char*>(&text);
    EXPECT_FALSE(text.c_str() >= self && text.c_str() < self + sizeof text) << size;
    EXPECT_EQ(text.length(), size);
    EXPECT_EQ(text.c_str(), long_text);
  }
}

TEST(Snprintf_T, SetFormatsAnew) {
  snprintf_t<64, char> text("%s", std::string(200, 'l').c_str());
  EXPECT_EQ(text.set("%d", 7), 1);
  EXPECT_STREQ(text.c_str(), "7");
  EXPECT_EQ(text.set("%s", std::string(300, 'm').c_str()), 300);
  EXPECT_EQ(text.c_str(), std::string(300, 'm'));
}

TEST(Snprintf_T, DataCanBeWritten) {
  snprintf_t<64, char> text("%s", "abc");
  text.data()[0] = 'X';
  EXPECT_STREQ(text.c_str(), "Xbc");
}

TEST(Snprintf_T, FailureGivesMinusOneAndNoText) {
  snprintf_t<64, char> text("%s", "before");
  EXPECT_EQ(text.set("%ls", unprintable), -1);
  EXPECT_STREQ(text.c_str(), "");
  EXPECT_EQ(text.length(), 0);
}

}  // namespace
