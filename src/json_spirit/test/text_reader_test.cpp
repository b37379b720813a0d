// The reader of texts in pieces: wherever a text is cut, it means what it means as a whole.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <vector>

#include "json_spirit/dump.h"
#include "json_spirit/json_reader.h"

namespace json_spirit {
namespace {

struct Reading {
  explicit Reading(const std::vector<std::string_view>& chunks) {
    Text_Reader reader(value);
    for (const std::string_view chunk : chunks) {
      // Each piece lies in memory of its own, gone before the next comes, so that ASan sees who looks back.
      const auto copy = std::make_unique<char[]>(chunk.size());
      chunk.copy(copy.get(), chunk.size());
      if (!reader.write({copy.get(), chunk.size()})) break;
    }
    read = reader.finish();
  }

  Value value;
  bool read;
};

void expect_same(const Reading& reading, std::string_view text, std::size_t cut) {
  Value whole;
  ASSERT_EQ(read_text(text, whole), reading.read) << text << " cut at " << cut;
  if (reading.read) {
    ASSERT_EQ(JSON_Dump(whole, false).str(), JSON_Dump(reading.value, false).str()) << text << " cut at " << cut;
  }
}

void expect_same_wherever_cut(std::string_view text) {
  for (std::size_t cut = 0; cut <= text.size(); ++cut)
    expect_same(Reading({text.substr(0, cut), text.substr(cut)}), text, cut);
}

void expect_same_byte_by_byte(std::string_view text) {
  std::vector<std::string_view> chunks;
  for (std::size_t i = 0; i < text.size(); ++i) chunks.push_back(text.substr(i, 1));
  expect_same(Reading(chunks), text, 1);
}

TEST(Text_Reader, CutAnywhereATextMeansTheSame) {
  for (const char* text :
       {R"({"key":"value","other key":[1,-2.5e10,true,false,null,{}],"":""})",
        R"({"escaped \" \u20ac key":1,"\ud834\udd1e":"\u0041\n\\","plain":{"a":{"b":[[],[{}]]}}})",
        "{\"k\xC3\xA9y\":\"\xE2\x82\xAC \xF0\x9D\x84\x9E\"}",
        R"({"same":1,"same":2,"b":3,"a":4})",
        "[9223372036854775807,-9223372036854775808,18446744073709551615,18446744073709551616]",
        "[1.7976931348623157e308,4.9406564584124654e-324,1.00000000000000011102230246251565405,0.1,-0,-0.0,1E+2]",
        "[1e400]",
        "  [1]  ",
        "12345678901234567890123",
        "-1.5",
        "true",
        "\"text\"",
        "[1]x",
        "[1] x",
        "1 2",
        "{\"a\"}",
        "{\"a\":1,}",
        "[1,",
        "nul",
        "\"\\ud834\"",
        "\"\xC3\"",
        "",
        " "}) {
    expect_same_wherever_cut(text);
    expect_same_byte_by_byte(text);
  }
}

TEST(Text_Reader, TheWholeCorpusMeansTheSameWhereverItIsCut) {
  std::size_t files = 0;
  for (const char* folder : {"accept", "reject", "either"})
    for (const auto& file :
         std::filesystem::directory_iterator(std::filesystem::path(TEST_DATA_DIR) / "json" / folder)) {
      std::ifstream in(file.path(), std::ios::binary);
      const String_type text{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
      expect_same_byte_by_byte(text);
      if (text.size() < 1000) expect_same_wherever_cut(text);
      ++files;
    }
  EXPECT_GE(files, 385u);
}

TEST(Text_Reader, AStringLongerThanAPieceIsWhole) {
  const String_type text = "{\"" + String_type(5000, 'k') + "\":\"" + String_type(9000, 'v') + "\"}";
  std::vector<std::string_view> chunks;
  for (std::size_t i = 0; i < text.size(); i += 1000) chunks.push_back(std::string_view(text).substr(i, 1000));
  const Reading reading(chunks);
  EXPECT_TRUE(reading.read);
  EXPECT_EQ(Value(Object{{String_type(5000, 'k'), String_type(9000, 'v')}}), reading.value);
}

TEST(Text_Reader, AFaultIsToldAtOnceAndForGood) {
  Value value;
  Text_Reader reader(value);
  EXPECT_TRUE(reader.write("[1,"));
  EXPECT_FALSE(reader.write("x"));
  EXPECT_FALSE(reader.write("2]"));
  EXPECT_FALSE(reader.finish());
}

TEST(Text_Reader, WhatFollowsTheValueInALaterPieceIsAFault) {
  Value value;
  Text_Reader reader(value);
  EXPECT_TRUE(reader.write("[1]"));
  EXPECT_TRUE(reader.write(" \n"));
  EXPECT_FALSE(reader.write("]"));
}

TEST(Text_Reader, AnUnfinishedTextIsNoJson) {
  Value value;
  Text_Reader reader(value);
  EXPECT_TRUE(reader.write("{\"a\":[1"));
  EXPECT_FALSE(reader.finish());
}

TEST(Text_Reader, DepthIsBoundedOverAllPieces) {
  Value value;
  Text_Reader reader(value);
  EXPECT_TRUE(reader.write(String_type(200, '[')));
  EXPECT_TRUE(reader.write(String_type(56, '[')));
  EXPECT_FALSE(reader.write("["));
}

}  // namespace
}  // namespace json_spirit
