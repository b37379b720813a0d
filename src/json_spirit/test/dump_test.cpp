#include "json_spirit/dump.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>

namespace json_spirit {
namespace {

String_type compact(const Value& value) {
  return JSON_Dump(value, false).str();
}

TEST(Dump, CompactTextHasNoBlanks) {
  const Value value =
      Object{{"b", Array{1, 2.5, Value(), true, false}}, {"a", Object{{"x", "y"}}}, {"c", Array{}}, {"d", Object{}}};
  EXPECT_EQ(R"({"a":{"x":"y"},"b":[1,2.5,null,true,false],"c":[],"d":{}})", compact(value));
}

TEST(Dump, PrettyTextIsIndented) {
  const Value value = Object{{"a", Array{1, Object{{"x", "y"}}}}, {"b", Array{}}, {"c", Object{}}};
  EXPECT_EQ(R"({
  "a": [
    1,
    {
      "x": "y"
    }
  ],
  "b": [],
  "c": {}
})",
            JSON_Dump(value, true).str());
}

TEST(Dump, SecretsShowOnlyInTheExactText) {
  const Value value = Object{{"key", secure_string("hunter2")}};
  EXPECT_EQ("{\n  \"key\": \"******\"\n}", JSON_Dump(value, true).str());
  EXPECT_EQ(R"({"key":"hunter2"})", compact(value));
}

TEST(Dump, TextIsToBeHadInEachForm) {
  const JSON_Dump dump(Array{1}, false);
  EXPECT_STREQ("[1]", dump.c_str());
  EXPECT_EQ("[1]", dump.str());
  EXPECT_EQ(3u, dump.size());
}

TEST(Dump, ContainersNeedNoValueAroundThem) {
  EXPECT_EQ(R"({"a":1})", JSON_Dump(Object{{"a", 1}}, false).str());
  EXPECT_EQ("[1]", JSON_Dump(Array{1}, false).str());
}

TEST(Dump, IntegersAreExact) {
  EXPECT_EQ("9223372036854775807", compact(std::numeric_limits<std::int64_t>::max()));
  EXPECT_EQ("-9223372036854775808", compact(std::numeric_limits<std::int64_t>::min()));
  EXPECT_EQ("18446744073709551615", compact(std::numeric_limits<std::uint64_t>::max()));
  EXPECT_EQ("0", compact(0));
}

TEST(Dump, ARealAlwaysShowsThatItIsOne) {
  EXPECT_EQ("1.0", compact(1.0));
  EXPECT_EQ("-0.0", compact(-0.0));
  EXPECT_EQ("0.1", compact(0.1));
  EXPECT_EQ("1e+22", compact(1e22));
  EXPECT_EQ("1e-07", compact(1e-7));
  EXPECT_EQ("5e-324", compact(5e-324));
}

TEST(Dump, WhatJsonCannotHoldIsNull) {
  EXPECT_EQ("null", compact(std::numeric_limits<double>::infinity()));
  EXPECT_EQ("null", compact(-std::numeric_limits<double>::infinity()));
  EXPECT_EQ("null", compact(std::numeric_limits<double>::quiet_NaN()));
}

TEST(Dump, EveryRealReadsBackTheSame) {
  std::mt19937_64 random(7);
  for (int i = 0; i < 20000; ++i) {
    const std::uint64_t bits = random();
    double real;
    std::memcpy(&real, &bits, sizeof real);
    if (!std::isfinite(real)) continue;
    Value again;
    const String_type text = compact(real);
    ASSERT_TRUE(loads_json(std::string_view(text), again)) << text;
    ASSERT_EQ(real_type, again.type()) << text;
    const double read = again.get_real();
    ASSERT_EQ(0, std::memcmp(&real, &read, sizeof real)) << text;
  }
}

TEST(Dump, StringsAreEscaped) {
  EXPECT_EQ(R"("\"\\/\b\f\n\r\t\u0000\u001f")", compact(String_type("\"\\/\b\f\n\r\t\0\x1F", 10)));
  EXPECT_EQ("\"\x7F\xC3\xA9\xE2\x82\xAC\xF0\x9D\x84\x9E\"", compact("\x7F\xC3\xA9\xE2\x82\xAC\xF0\x9D\x84\x9E"));
}

TEST(Dump, KeysAreEscapedToo) {
  EXPECT_EQ("{\"a\\\"\\n\":1}", compact(Object{{"a\"\n", 1}}));
}

TEST(Dump, BadUtf8IsReplacedByteByByte) {
  const String_type mark = "\xEF\xBF\xBD";
  EXPECT_EQ("\"a" + mark + "b\"", compact("a\xFF"
                                          "b"));
  EXPECT_EQ('"' + mark + mark + '"', compact("\xC0\xAF"));             // overlong
  EXPECT_EQ('"' + mark + mark + mark + '"', compact("\xED\xA0\x80"));  // a surrogate
  EXPECT_EQ('"' + mark + mark + '"', compact("\xE2\x82"));             // cut short
  EXPECT_EQ('"' + mark + "\\n\"", compact("\xC3\n"));                  // cut short by a character to be escaped
  EXPECT_EQ('"' + mark + mark + mark + mark + '"', compact("\xF4\x90\x80\x80"));  // beyond Unicode
  EXPECT_EQ('"' + mark + "\xC3\xA9\"", compact("\xE2\xC3\xA9"));
}

TEST(Dump, EveryByteSequenceGivesValidJson) {
  std::mt19937 random(11);
  for (int i = 0; i < 20000; ++i) {
    String_type bytes(random() % 12, '\0');
    for (char& c : bytes) c = static_cast<char>(random() % 4 == 0 ? random() % 128 : 0x80 + random() % 128);
    Value again;
    ASSERT_TRUE(loads_json(std::string_view(compact(bytes)), again)) << compact(bytes);
  }
}

TEST(Dump, EveryCodePointSurvives) {
  String_type text;
  for (char32_t c = 0; c <= 0x10FFFF; ++c) {
    if (c >= 0xD800 && c <= 0xDFFF) continue;
    if (c < 0x80) {
      text += static_cast<char>(c);
    } else if (c < 0x800) {
      text += {static_cast<char>(0xC0 | c >> 6), static_cast<char>(0x80 | (c & 63))};
    } else if (c < 0x10000) {
      text += {static_cast<char>(0xE0 | c >> 12), static_cast<char>(0x80 | (c >> 6 & 63)),
               static_cast<char>(0x80 | (c & 63))};
    } else {
      text += {static_cast<char>(0xF0 | c >> 18), static_cast<char>(0x80 | (c >> 12 & 63)),
               static_cast<char>(0x80 | (c >> 6 & 63)), static_cast<char>(0x80 | (c & 63))};
    }
  }
  Value again;
  ASSERT_TRUE(loads_json(std::string_view(compact(text)), again));
  EXPECT_TRUE(again.get_str() == text);
}

TEST(Dump, APrettyTextReadsBackTheSame) {
  const Value value = Object{{"a", Array{1, -2, 3u, 0.5, "x\ny", Value(), Array{}, Object{{"b", true}}}}};
  Value again;
  ASSERT_TRUE(loads_json(std::string_view(JSON_Dump(value, true).str()), again));
  EXPECT_TRUE(value.compare_only_value(again));
}

}  // namespace
}  // namespace json_spirit
