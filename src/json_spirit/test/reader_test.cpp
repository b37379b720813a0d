#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cerrno>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>

#include "json_spirit/dump.h"
#include "json_spirit/json_spirit_value.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace json_spirit {
namespace {

Value parsed(std::string_view text) {
  Value value("refused");
  EXPECT_TRUE(loads_json(text, value)) << text;
  return value;
}

bool refused(std::string_view text) {
  Value value("untouched");
  const bool read = loads_json(text, value);
  return !read && value == Value("untouched");
}

TEST(Reader, MakesEachKind) {
  EXPECT_EQ(obj_type, parsed("{}").type());
  EXPECT_EQ(array_type, parsed("[]").type());
  EXPECT_EQ(str_type, parsed("\"\"").type());
  EXPECT_EQ(bool_type, parsed("true").type());
  EXPECT_EQ(int_type, parsed("1").type());
  EXPECT_EQ(real_type, parsed("1.0").type());
  EXPECT_EQ(null_type, parsed("null").type());
}

TEST(Reader, PutsEverythingInItsPlace) {
  const Value expected = Object{
      {"a", Array{1, Object{{"b", Array{Array{}, Object{}, Value()}}}, "s"}}, {"c", false}, {"d", Object{{"e", -1.5}}}};
  EXPECT_EQ(expected, parsed(R"({"c":false,"d":{"e":-1.5},"a":[1,{"b":[[],{},null]},"s"]})"));
}

TEST(Reader, AnIntegerIsSignedIfItFits) {
  EXPECT_FALSE(parsed("0").is_uint64());
  EXPECT_FALSE(parsed("9223372036854775807").is_uint64());
  EXPECT_EQ(std::numeric_limits<std::int64_t>::max(), parsed("9223372036854775807").get_int64());
  EXPECT_EQ(std::numeric_limits<std::int64_t>::min(), parsed("-9223372036854775808").get_int64());
}

TEST(Reader, AnIntegerIsUnsignedIfOnlyThatFits) {
  EXPECT_TRUE(parsed("9223372036854775808").is_uint64());
  EXPECT_EQ(std::numeric_limits<std::uint64_t>::max(), parsed("18446744073709551615").get_uint64());
}

TEST(Reader, AnIntegerThatFitsNeitherIsReal) {
  EXPECT_EQ(18446744073709551616.0, parsed("18446744073709551616").get_real());
  EXPECT_EQ(-9223372036854775809.0, parsed("-9223372036854775809").get_real());
  EXPECT_EQ(1e100, parsed("1" + std::string(100, '0')).get_real());
}

TEST(Reader, AFractionOrAnExponentMakesAReal) {
  EXPECT_EQ(1.0, parsed("1.0").get_real());
  EXPECT_EQ(100.0, parsed("1e2").get_real());
  EXPECT_EQ(0.0, parsed("0e1").get_real());
}

TEST(Reader, RealsAreRoundedCorrectly) {
  // Each of these comes out one unit off in a reader that multiplies by a power of ten.
  EXPECT_EQ(9007199254740992.0, parsed("9007199254740993.0").get_real());
  EXPECT_EQ(1.0000000000000002, parsed("1.00000000000000011102230246251565405").get_real());
  EXPECT_EQ(123456789012345680000.0, parsed("123456789012345678901").get_real());
  EXPECT_EQ(5e-324, parsed("4.9406564584124654e-324").get_real());
  EXPECT_EQ(1.7976931348623157e308, parsed("179769313486231570e291").get_real());
  EXPECT_EQ(8.5, parsed("8.5000000000000000000000000000000000000000000000000000").get_real());
  EXPECT_EQ(7.2057594037927933e16, parsed("7.2057594037927933e16").get_real());
  EXPECT_EQ(2.2250738585072011e-308, parsed("2.2250738585072011e-308").get_real());
}

TEST(Reader, ANumberTooSmallIsZeroAndOneTooLargeIsRefused) {
  EXPECT_EQ(0.0, parsed("1e-400").get_real());
  EXPECT_FALSE(std::signbit(parsed("1e-400").get_real()));
  EXPECT_TRUE(std::signbit(parsed("-1e-400").get_real()));
  EXPECT_TRUE(refused("1e400"));
  EXPECT_TRUE(refused("[-1e400]"));
}

TEST(Reader, MinusZeroIsAnIntegerUnlessItHasAFraction) {
  EXPECT_EQ(0, parsed("-0").get_int());
  EXPECT_TRUE(std::signbit(parsed("-0.0").get_real()));
}

TEST(Reader, OfMembersWithTheSameKeyTheLastOneStands) {
  EXPECT_EQ(Value(Object{{"a", 2}}), parsed(R"({"a":1,"a":2})"));
  EXPECT_EQ(Value(Object{{"a", "s"}, {"b", 1}}), parsed(R"({"a":{"x":[1,2]},"b":1,"a":[3],"a":"s"})"));
  EXPECT_EQ(Value(Object{{"a", Object{{"y", 2}}}}), parsed(R"({"a":{"x":1},"a":{"y":2}})"));
}

TEST(Reader, EscapesAreDecoded) {
  EXPECT_EQ("\"\\/\b\f\n\r\t", parsed(R"("\"\\\/\b\f\n\r\t")").get_str());
  EXPECT_EQ("A\xC3\xA9\xE2\x82\xAC\xF0\x9D\x84\x9E", parsed(R"("\u0041\u00e9\u20AC\ud834\uDD1E")").get_str());
  EXPECT_EQ(String_type("a\0b", 3), parsed(R"("a\u0000b")").get_str());
}

TEST(Reader, KeysAreDecodedToo) {
  EXPECT_EQ(Value(Object{{"a\nb", 1}}), parsed(R"({"\u0061\nb":1})"));
}

TEST(Reader, LongStringsWithEscapesAreWhole) {
  const String_type half(5000, 'x');
  EXPECT_EQ(half + "\n" + half, parsed('"' + half + "\\n" + half + '"').get_str());
}

TEST(Reader, HalfASurrogatePairIsRefused) {
  for (const char* text : {R"("\ud834")", R"("\udd1e")", R"("\ud834\ud834")", R"("\ud834x")", R"({"\udd1e":1})"})
    EXPECT_TRUE(refused(text)) << text;
}

TEST(Reader, DepthIsBounded) {
  const auto nested = [](std::size_t n) { return String_type(n, '[') + String_type(n, ']'); };
  EXPECT_EQ(array_type, parsed(nested(256)).type());
  EXPECT_TRUE(refused(nested(257)));
  EXPECT_TRUE(refused(String_type(100000, '[')));
}

TEST(Reader, NothingMayFollowTheValue) {
  EXPECT_TRUE(refused("{} {}"));
  EXPECT_TRUE(refused("1,"));
  EXPECT_EQ(1, parsed("1 \n\t\r").get_int());
}

TEST(Reader, AByteOrderMarkIsRefused) {
  EXPECT_TRUE(refused("\xEF\xBB\xBF{}"));
}

TEST(Reader, ATextEndsAtItsNulOrAtItsLength) {
  Value value;
  EXPECT_TRUE(loads_json("[1]\0garbage", value));
  EXPECT_FALSE(loads_json(std::string_view("[1]\0garbage", 11), value));
  EXPECT_FALSE(loads_json(std::string_view("[1]\0", 4), value));
  EXPECT_TRUE(loads_json(std::string_view("[1]]", 3), value));
  EXPECT_TRUE(loads_json(String_type("[1]"), value));
}

TEST(Reader, NoTextIsRefused) {
  EXPECT_TRUE(refused(""));
  EXPECT_TRUE(refused(std::string_view()));
  Value value(1);
  EXPECT_FALSE(loads_json(static_cast<const char*>(nullptr), value));
  EXPECT_EQ(1, value.get_int());
}

TEST(Reader, AFaultLateInTheTextLeavesTheValueAlone) {
  EXPECT_TRUE(refused(R"({"a":[1,2,{"b":"c"}],"d":tru})"));
}

TEST(Reader, AFaultIsNotLogged) {
  const test_support::Log_Capture log;
  EXPECT_TRUE(refused("{"));
  Value value;
  EXPECT_FALSE(load_json("/nonexistent/file", value, 1));
  EXPECT_EQ("", log.all());
}

class Load_Json : public testing::Test {
 protected:
  String_type write(const String_type& name, std::string_view text) {
    const String_type path = (std::filesystem::path(dir_.path()) / name).string();
    std::ofstream(path, std::ios::binary) << text;
    return path;
  }

  test_support::Temp_Dir dir_;
  Value value_{"untouched"};
};

TEST_F(Load_Json, ReadsAFile) {
  const String_type path = write("a.json", "{\"a\": 1}\n");
  EXPECT_TRUE(load_json(path.c_str(), value_, 1));
  EXPECT_EQ(Value(Object{{"a", 1}}), value_);
}

TEST_F(Load_Json, AFileThatHoldsAnArraySucceeds) {
  EXPECT_TRUE(load_json(write("a.json", "[1]").c_str(), value_, 1));
  EXPECT_EQ(array_type, value_.type());
}

TEST_F(Load_Json, ReadsALargeFile) {
  String_type text(1 << 20, 'x');
  text.front() = text.back() = '"';
  EXPECT_TRUE(load_json(write("a.json", text).c_str(), value_, 1));
  EXPECT_EQ((1u << 20) - 2, value_.get_str().size());
}

TEST_F(Load_Json, FollowsALinkToAFile) {
  const String_type link = (std::filesystem::path(dir_.path()) / "link").string();
  std::filesystem::create_symlink(write("a.json", "1"), link);
  EXPECT_TRUE(load_json(link.c_str(), value_, 1));
}

TEST_F(Load_Json, AMissingFileFails) {
  EXPECT_FALSE(load_json((String_type(dir_.path()) + "/none").c_str(), value_, 1));
  EXPECT_EQ(ENOENT, errno);
  EXPECT_EQ(Value("untouched"), value_);
}

TEST_F(Load_Json, ABadTextFails) {
  for (const char* text : {"", "{", "{} x", "// comment\n{}"}) {
    EXPECT_FALSE(load_json(write("a.json", text).c_str(), value_, 1)) << text;
    EXPECT_EQ(EBADMSG, errno);
  }
  EXPECT_FALSE(load_json(write("a.json", std::string_view("{}\0", 3)).c_str(), value_, 1));
  EXPECT_EQ(Value("untouched"), value_);
}

TEST_F(Load_Json, WhatIsNoRegularFileFails) {
  EXPECT_FALSE(load_json(String_type(dir_.path()).c_str(), value_, 1));
  EXPECT_EQ(EINVAL, errno);
  EXPECT_FALSE(load_json("/dev/zero", value_, 1));
  EXPECT_EQ(EINVAL, errno);
}

TEST_F(Load_Json, AFifoFailsAtOnce) {
  const String_type fifo = String_type(dir_.path()) + "/fifo";
  ASSERT_EQ(0, ::mkfifo(fifo.c_str(), 0600));
  EXPECT_FALSE(load_json(fifo.c_str(), value_, 1));
  EXPECT_EQ(EINVAL, errno);
}

TEST_F(Load_Json, AnUnknownFlagOrNoPathFails) {
  EXPECT_FALSE(load_json(write("a.json", "1").c_str(), value_, 0));
  EXPECT_EQ(EINVAL, errno);
  EXPECT_FALSE(load_json(nullptr, value_, 1));
  EXPECT_EQ(EINVAL, errno);
}

}  // namespace
}  // namespace json_spirit
