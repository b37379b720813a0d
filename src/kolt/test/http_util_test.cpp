// Texts in URLs, and joined lists.
#include <gtest/gtest.h>

#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "kolt/http_util.h"
#include "kolt/join_if2.h"
#include "kolt/make_shared_nothrow.h"

namespace {

std::string encoded(const char* text, unsigned long flags) {
  std::string out;
  EXPECT_TRUE(http_encode_string(text, flags, out));
  return out;
}

constexpr unsigned long builder_flags = HTTP_Query_String_Builder_string::ENCODE_FLAGS;

/// All printable characters but letters and digits.
constexpr char signs[] = " !\"#$%&'()*+,-./:;<=>?@[\\]^_`{|}~";

TEST(Http_Encode, NumbersOfTheFlagsAreFixed) {
  EXPECT_EQ(HUT_FLAG_JS_ENCODE_URI_COMPONENT, 757ul);
  EXPECT_EQ(HUT_FLAG_JS_ENCODE_URI, 524028ul);
  EXPECT_EQ(builder_flags, 3ul);
}

TEST(Http_Encode, EmptyTextIsRefusedAndLeavesTheOutputAlone) {
  std::string out = "before";
  EXPECT_FALSE(http_encode_string("", HUT_FLAG_SPACE, out));
  EXPECT_FALSE(http_encode_string(nullptr, 0, out));
  EXPECT_EQ(out, "before");
  char buffer[4] = "abc";
  EXPECT_FALSE(http_encode_string_i("", 0, buffer));
  EXPECT_STREQ(buffer, "abc");
}

TEST(Http_Encode, IsAppended) {
  std::string out = "a=";
  EXPECT_TRUE(http_encode_string("b c", 0, out));
  EXPECT_EQ(out, "a=b%20c");
}

TEST(Http_Encode, SpaceBecomesPlusOnlyWithItsFlag) {
  EXPECT_EQ(encoded(" ", HUT_FLAG_SPACE), "+");
  EXPECT_EQ(encoded(" ", 0), "%20");
  EXPECT_EQ(encoded("+", HUT_FLAG_SPACE), "%2b");
}

TEST(Http_Encode, SlashStaysWithoutItsFlag) {
  EXPECT_EQ(encoded("/a/b", 0), "/a/b");
  EXPECT_EQ(encoded("/a/b", HUT_FLAG_SLASH), "%2fa%2fb");
}

TEST(Http_Encode, DigitsFollowTheCaseFlag) {
  EXPECT_EQ(encoded("\xC3\xA9", builder_flags), "%c3%a9");
  EXPECT_EQ(encoded("\xC3\xA9", HUT_FLAG_JS_ENCODE_URI_COMPONENT), "%C3%A9");
}

TEST(Http_Encode, EachByteOfAllIsEncodedButTheUnreserved) {
  for (int byte = 1; byte < 256; ++byte) {
    const char text[] = {static_cast<char>(byte), '\0'};
    char expected[8];
    const bool literal = std::isalnum(byte) != 0 || std::strchr("-_.~", byte) != nullptr;
    std::snprintf(expected, sizeof expected, literal ? "%c" : "%%%02X", byte);
    EXPECT_EQ(encoded(text, HUT_FLAG_UPPERCASE | HUT_FLAG_SLASH), expected);
  }
}

TEST(Http_Encode, EachKeepFlagKeepsItsCharacterAlone) {
  const std::pair<unsigned long, char> flags[] = {
      {8, ':'},    {16, '('},   {32, ')'},    {64, '\''},   {128, '*'},   {512, '!'},    {1024, '#'},  {2048, '$'},
      {4096, '&'}, {8192, '+'}, {16384, ','}, {32768, ';'}, {65536, '='}, {131072, '?'}, {262144, '@'}};
  for (const auto& [flag, kept] : flags) {
    for (const auto& [other, character] : flags) {
      const char text[] = {character, '\0'};
      EXPECT_EQ(encoded(text, flag).size(), other == flag ? 1u : 3u) << flag << " " << character;
    }
  }
}

TEST(Http_Encode, Bit256IsNoFlag) {
  EXPECT_EQ(encoded(signs, 256), encoded(signs, 0));
}

TEST(Http_Encode, ComponentFlagsAreThoseOfEcmascript) {
  // What encodeURIComponent gives for the same text.
  EXPECT_EQ(encoded(signs, HUT_FLAG_JS_ENCODE_URI_COMPONENT),
            "%20!%22%23%24%25%26'()*%2B%2C-.%2F%3A%3B%3C%3D%3E%3F%40%5B%5C%5D%5E_%60%7B%7C%7D~");
}

TEST(Http_Encode, UriFlagsAreThoseOfEcmascript) {
  // What encodeURI gives for the same text.
  EXPECT_EQ(encoded(signs, HUT_FLAG_JS_ENCODE_URI), "%20!%22#$%25&'()*+,-./:;%3C=%3E?@%5B%5C%5D%5E_%60%7B%7C%7D~");
}

TEST(Http_Encode, WritesThroughAnyOutputIterator) {
  char buffer[16] = {};
  EXPECT_TRUE(http_encode_string_i("a b", HUT_FLAG_SPACE, buffer));
  EXPECT_STREQ(buffer, "a+b");
  std::vector<char> bytes;
  EXPECT_TRUE(http_encode_string_i("/", HUT_FLAG_SLASH, std::back_inserter(bytes)));
  EXPECT_EQ(std::string(bytes.begin(), bytes.end()), "%2f");
}

/// What one call of the builder writes.
template <typename... Args>
std::string query(Args... args) {
  std::string out;
  HTTP_Query_String_Builder_string(std::back_inserter(out), false)(args...);
  return out;
}

TEST(Query_String_Builder, WritesNameAndValueEncoded) {
  EXPECT_EQ(query("a/b", "c d", true, true, nullptr), "a%2fb=c+d");
}

TEST(Query_String_Builder, CopiesWhatIsNotToBeEncoded) {
  EXPECT_EQ(query("a/b", "c d", false, false, nullptr), "a/b=c d");
  EXPECT_EQ(query("a/b", "c d", true, false, nullptr), "a%2fb=c d");
  EXPECT_EQ(query("a/b", "c d", false, true, nullptr), "a/b=c+d");
}

TEST(Query_String_Builder, DropsAParameterWithoutAName) {
  EXPECT_EQ(query(static_cast<const char*>(nullptr), "value", true, true, "prefix"), "");
  EXPECT_EQ(query("", "value", true, true, "prefix"), "");
}

TEST(Query_String_Builder, ADroppedParameterLeavesNoSeparator) {
  std::string out;
  HTTP_Query_String_Builder_string builder(std::back_inserter(out), false);
  builder("", "1", true, true, nullptr)("a", "1", true, true, nullptr)("", "1", true, true, nullptr);
  EXPECT_EQ(out, "a=1");
}

TEST(Query_String_Builder, NullValueLeavesTheNameAlone) {
  EXPECT_EQ(query("watch", static_cast<const char*>(nullptr), true, true, nullptr), "watch");
}

TEST(Query_String_Builder, EmptyValueKeepsTheEqualsSign) {
  EXPECT_EQ(query("a", "", true, true, nullptr), "a=");
}

TEST(Query_String_Builder, PrefixIsTreatedLikeTheName) {
  EXPECT_EQ(query("b", "1", true, true, "a/"), "a%2fb=1");
  EXPECT_EQ(query("b", "1", false, true, "a/"), "a/b=1");
  EXPECT_EQ(query("b", "1", true, true, ""), "b=1");
}

TEST(Query_String_Builder, PutsSeparatorsBetweenParameters) {
  std::string out;
  HTTP_Query_String_Builder_string(std::back_inserter(out), false)("a", "1")("b", "2")("c", "3");
  EXPECT_EQ(out, "a=1&b=2&c=3");
}

TEST(Query_String_Builder, MayStartWithASeparator) {
  std::string out = "x=0";
  HTTP_Query_String_Builder_string(std::back_inserter(out), true)("a", "1");
  EXPECT_EQ(out, "x=0&a=1");
}

TEST(Query_String_Builder, WritesNumbersMapsAndPages) {
  EXPECT_EQ(query("n", ACE_UINT64(18446744073709551615ull)), "n=18446744073709551615");
  EXPECT_EQ(query("n", ACE_UINT64(0)), "n=0");
  EXPECT_EQ(query(std::map<std::string, std::string>{{"b", "x y"}, {"a", ""}}), "a=&b=x+y");
  std::string out;
  HTTP_Query_String_Builder_string(std::back_inserter(out), false)
      .offset(20)
      .limit(10)
      .sort("na me")
      .desc(true)
      .sort(nullptr);
  EXPECT_EQ(out, "offset=20&limit=10&sort=na+me&desc=true");
}

TEST(Query_String_Builder, WritesThroughAPlainPointer) {
  char buffer[32] = {};
  HTTP_Query_String_Builder_T<char*>(buffer, false)("a b", "c/d")("e", "f");
  EXPECT_STREQ(buffer, "a+b=c%2fd&e=f");
}

TEST(Join_If2, PutsTheSeparatorBetweenElements) {
  std::ostringstream out;
  const auto write = [](std::ostream& stream, const std::string& text) {
    stream << text;
    return !text.empty();
  };
  EXPECT_EQ(&join_if2(std::vector<std::string>{"a", "b", "c"}, out, ", ", write), &out);
  EXPECT_EQ(out.str(), "a, b, c");
}

TEST(Join_If2, ElementsThatWriteNothingLeaveNoDoubleSeparator) {
  std::ostringstream out;
  const auto write = [](std::ostream& stream, int number) {
    if (number % 2 == 0) stream << number;
    return number % 2 == 0;
  };
  join_if2(std::vector<int>{1, 2, 3, 4, 6}, out, ',', write);
  EXPECT_EQ(out.str(), "2,4,6");
}

TEST(Join_If2, AnEmptyRangeWritesNothing) {
  std::ostringstream out;
  join_if2(std::vector<int>(), out, ',', [](std::ostream&, int) { return true; });
  EXPECT_EQ(out.str(), "");
}

struct No_Memory {
  No_Memory() { throw std::bad_alloc(); }
};

TEST(Make_Shared_Nothrow, GivesNullWhereThereIsNoMemory) {
  errno = 0;
  EXPECT_EQ(make_shared_nothrow<No_Memory>(), nullptr);
  EXPECT_EQ(errno, ENOMEM);
}

TEST(Make_Shared_Nothrow, PassesTheArgumentsOn) {
  EXPECT_EQ(*make_shared_nothrow<std::string>(3, 'x'), "xxx");
}

}  // namespace
