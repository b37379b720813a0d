// Reads every file of test/data/json: those in "accept" are JSON texts, those in "reject" are not, and of those in
// "either" a reader may make what it likes, as long as it stays consistent.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "json_spirit/dump.h"

namespace json_spirit {
namespace {

std::vector<std::filesystem::path> files(const char* folder) {
  std::vector<std::filesystem::path> found;
  for (const auto& entry : std::filesystem::directory_iterator(std::filesystem::path(TEST_DATA_DIR) / "json" / folder))
    found.push_back(entry.path());
  std::sort(found.begin(), found.end());
  return found;
}

String_type content(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void expect_same_after_dump(const Value& value, const std::filesystem::path& file) {
  for (const bool pretty : {false, true}) {
    Value again;
    ASSERT_TRUE(loads_json(std::string_view(JSON_Dump(value, pretty).str()), again)) << file;
    EXPECT_TRUE(value == again) << file;
  }
}

TEST(Corpus, WhatIsJsonIsAcceptedAndSurvivesADump) {
  const auto cases = files("accept");
  EXPECT_GE(cases.size(), 120u);
  for (const auto& file : cases) {
    Value value;
    EXPECT_TRUE(loads_json(std::string_view(content(file)), value)) << file;
    expect_same_after_dump(value, file);
  }
}

TEST(Corpus, WhatIsNotJsonIsRejected) {
  const auto cases = files("reject");
  EXPECT_GE(cases.size(), 250u);
  for (const auto& file : cases) {
    Value value;
    EXPECT_FALSE(loads_json(std::string_view(content(file)), value)) << file;
  }
}

TEST(Corpus, WhatIsOpenIsAtLeastConsistent) {
  const auto cases = files("either");
  EXPECT_GE(cases.size(), 15u);
  for (const auto& file : cases) {
    Value value;
    if (loads_json(std::string_view(content(file)), value)) expect_same_after_dump(value, file);
  }
}

TEST(Corpus, AFileReadsAsItsTextDoes) {
  for (const char* folder : {"accept", "reject"})
    for (const auto& file : files(folder)) {
      Value from_file, from_text;
      const bool read = loads_json(std::string_view(content(file)), from_text);
      EXPECT_EQ(read, load_json(file.c_str(), from_file, 1)) << file;
      EXPECT_TRUE(from_file == from_text) << file;
    }
}

}  // namespace
}  // namespace json_spirit
