#include "json_spirit/log_with_dump.h"

#include "support/log_capture.h"

namespace {

using json_spirit::JSON_Dump;
using json_spirit::log_with_dump;
using json_spirit::shortened;
using json_spirit::Value;
using test_support::Log_Capture;

constexpr size_t longest_line = 4096;
constexpr char format[] = "Failed %s\n%s\n status %d\n";

/// The line about a string of @a size letters, which has two quotes in its dump.
std::string line_about(size_t size, int status = 403) {
  Log_Capture log;
  log_with_dump(LM_ERROR, format, "here", JSON_Dump(Value(std::string(size, 'x')), false), status);
  const std::vector<std::string> lines = log.texts(LM_ERROR);
  return lines.size() == 1 ? lines[0] : "not one line";
}

std::string whole_line(size_t size) {
  return "Failed here\n\"" + std::string(size, 'x') + "\"\n status 403\n";
}

TEST(Log_With_Dump, ShortDumpStaysAsItIs) {
  EXPECT_EQ(whole_line(10), line_about(10));
}

TEST(Log_With_Dump, DumpThatJustFitsStaysAsItIs) {
  const size_t fits = longest_line - whole_line(0).size();
  EXPECT_EQ(longest_line, line_about(fits).size());
  EXPECT_EQ(whole_line(fits), line_about(fits));
}

TEST(Log_With_Dump, DumpThatIsTooLongGivesWayToTheRest) {
  for (const size_t size : {longest_line - whole_line(0).size() + 1, longest_line, size_t{1} << 20}) {
    const std::string line = line_about(size);
    EXPECT_EQ(longest_line, line.size());
    EXPECT_THAT(line, ::testing::StartsWith("Failed here\n\"xxx"));
    EXPECT_THAT(line, ::testing::EndsWith("xxx...\n status 403\n"));
  }
}

TEST(Log_With_Dump, RestThatFillsALineLeavesNothingOfTheDump) {
  Log_Capture log;
  log_with_dump(LM_ERROR, "%s: %s\n", std::string(5000, 'y').c_str(), JSON_Dump(Value("dump"), false));
  ASSERT_EQ(1u, log.lines().size());
  EXPECT_THAT(log.all(), ::testing::Not(::testing::HasSubstr("dump")));
}

TEST(Log_With_Dump, PriorityIsTheCallers) {
  Log_Capture log;
  log_with_dump(LM_WARNING, "%s\n", JSON_Dump(Value(1), false));
  EXPECT_TRUE(log.has(LM_WARNING, "1\n"));
}

TEST(Shortened_Dump, IsCutBetweenCharacters) {
  const JSON_Dump dump(Value("a\xC3\xA4\xE2\x82\xAC zzzz"), false);  // of one, two and three bytes
  EXPECT_EQ(dump.str(), shortened(dump, dump.size()));
  EXPECT_EQ("\"a\xC3\xA4\xE2\x82\xAC...", shortened(dump, 10));
  EXPECT_EQ("\"a\xC3\xA4...", shortened(dump, 9));
  EXPECT_EQ("\"a\xC3\xA4...", shortened(dump, 7));
  EXPECT_EQ("\"a...", shortened(dump, 6));
}

TEST(Shortened_Dump, NeverTakesMoreThanItsRoom) {
  const JSON_Dump dump(Value("abcdef"), false);
  for (size_t room = 0; room <= dump.size(); ++room) EXPECT_LE(shortened(dump, room).size(), room);
  EXPECT_EQ("", shortened(dump, 0));
  EXPECT_EQ("..", shortened(dump, 2));
}

}  // namespace
