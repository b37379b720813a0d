#include "kolt/rate_controller.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <tuple>

#include "kolt/uri_util.h"
#include "support/log_capture.h"

namespace {

using json_spirit::Array;
using json_spirit::Object;
using test_support::Log_Capture;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

typedef std::tuple<unsigned, unsigned, std::size_t> Window;

std::vector<Window> windows(const Rate_Limits::Entries_Type& entries) {
  std::vector<Window> found;
  for (const Rate_Control_Entry& e : entries) found.emplace_back(e.start_time, e.end_time, e.max_bytes_per_second);
  return found;
}

Object number_window(int start, int end, int limit) {
  return {{"start_time", start}, {"end_time", end}, {"max_bytes_per_second", limit}};
}

Object text_window(const char* start, const char* end, int limit) {
  return {{"start_time", start}, {"end_time", end}, {"max_bytes_per_second", limit}};
}

void expect_one_error(const Log_Capture& log) {
  EXPECT_THAT(log.texts(LM_ERROR), ElementsAre(MatchesRegex("Failed to parse rate control entries: .+\\.\n")));
  EXPECT_EQ(log.lines().size(), 1u);
}

TEST(Rate_Entries, AreReadInOrder) {
  Rate_Limits::Entries_Type entries = {{9, 9, 9}};
  EXPECT_TRUE(array_to_rate_entries({number_window(0, 100, 1000), number_window(200, 300, 0)}, entries));
  EXPECT_THAT(windows(entries), ElementsAre(Window{0, 100, 1000}, Window{200, 300, 0}));
}

TEST(Rate_Entries, WindowThatPassesMidnightBecomesTwo) {
  Rate_Limits::Entries_Type entries;
  EXPECT_TRUE(array_to_rate_entries({number_window(79200, 3600, 5)}, entries));
  EXPECT_THAT(windows(entries), ElementsAre(Window{79200, 86399, 5}, Window{0, 3600, 5}));
}

TEST(Rate_Entries, WindowWithEqualBoundsIsOne) {
  Rate_Limits::Entries_Type entries;
  EXPECT_TRUE(array_to_rate_entries({number_window(60, 60, 5)}, entries));
  EXPECT_THAT(windows(entries), ElementsAre(Window{60, 60, 5}));
}

TEST(Rate_Entries, ElementThatIsNoObjectEndsTheReading) {
  Rate_Limits::Entries_Type entries;
  Log_Capture log;
  EXPECT_FALSE(array_to_rate_entries({number_window(0, 1, 1), "text", number_window(2, 3, 1)}, entries));
  EXPECT_THAT(windows(entries), ElementsAre(Window{0, 1, 1}));
  expect_one_error(log);
}

TEST(Rate_Entries, EveryMemberIsRequired) {
  for (const char* name : {"start_time", "end_time", "max_bytes_per_second"}) {
    Object window = number_window(0, 1, 1);
    window.erase(name);
    Rate_Limits::Entries_Type entries;
    Log_Capture log;
    EXPECT_FALSE(array_to_rate_entries({window}, entries));
    EXPECT_THAT(entries, IsEmpty());
    expect_one_error(log);
    EXPECT_TRUE(log.has_containing(LM_ERROR, name));
  }
}

TEST(Rate_Entries, TextIsNoNumber) {
  Rate_Limits::Entries_Type entries;
  Log_Capture log;
  EXPECT_FALSE(array_to_rate_entries({text_window("00:00", "01:00", 1)}, entries));
  expect_one_error(log);
}

TEST(Lexical_Rate_Entries, AreAddedToWhatIsThere) {
  Rate_Limits::Entries_Type entries = {{9, 9, 9}};
  EXPECT_TRUE(lexical_time_array_to_rate_entries({text_window("01:00", "02:00:30", 7)}, entries));
  EXPECT_THAT(windows(entries), ElementsAre(Window{9, 9, 9}, Window{3600, 7230, 7}));
}

TEST(Lexical_Rate_Entries, WindowThatPassesMidnightBecomesTwo) {
  Rate_Limits::Entries_Type entries;
  EXPECT_TRUE(lexical_time_array_to_rate_entries({text_window("22:00", "1h", 7)}, entries));
  EXPECT_THAT(windows(entries), ElementsAre(Window{79200, 86399, 7}, Window{0, 3600, 7}));
}

TEST(Lexical_Rate_Entries, BoundThatCannotBeUnderstoodIsZero) {
  Rate_Limits::Entries_Type entries;
  Log_Capture log;
  EXPECT_TRUE(lexical_time_array_to_rate_entries({text_window("noon", "12:00", 7)}, entries));
  EXPECT_THAT(windows(entries), ElementsAre(Window{0, 43200, 7}));
  EXPECT_EQ(log.all(), "");
}

TEST(Lexical_Rate_Entries, FailureLeavesNothing) {
  for (const json_spirit::Value& bad : {json_spirit::Value("text"), json_spirit::Value(number_window(0, 1, 1))}) {
    Rate_Limits::Entries_Type entries = {{9, 9, 9}};
    Log_Capture log;
    EXPECT_FALSE(lexical_time_array_to_rate_entries({text_window("00:00", "01:00", 1), bad}, entries));
    EXPECT_THAT(entries, IsEmpty());
    expect_one_error(log);
  }
}

TEST(Rate_Limits, ReadsBothArraysByTheirKeys) {
  EXPECT_EQ(Rate_Limits::dest_key, "dest_rate_limits");
  EXPECT_EQ(Rate_Limits::src_key, "src_rate_limits");
  Rate_Limits limits;
  limits.from_array_in_object(
      {{"dest_rate_limits", Array{number_window(1, 2, 3)}}, {"src_rate_limits", Array{number_window(4, 5, 6)}}}, false);
  EXPECT_THAT(windows(limits.dest_rate_limits), ElementsAre(Window{1, 2, 3}));
  EXPECT_THAT(windows(limits.src_rate_limits), ElementsAre(Window{4, 5, 6}));
}

TEST(Rate_Limits, FlagChoosesTheLexicalForm) {
  Rate_Limits limits;
  limits.from_array_in_object({{"dest_rate_limits", Array{text_window("00:01", "00:02", 3)}}}, true);
  EXPECT_THAT(windows(limits.dest_rate_limits), ElementsAre(Window{60, 120, 3}));
}

TEST(Rate_Limits, AbsentKeyOrAnotherKindLeavesTheLimits) {
  Rate_Limits limits;
  limits.dest_rate_limits = limits.src_rate_limits = {{1, 2, 3}};
  limits.from_array_in_object({{"src_rate_limits", "none"}}, false);
  EXPECT_THAT(windows(limits.dest_rate_limits), ElementsAre(Window{1, 2, 3}));
  EXPECT_THAT(windows(limits.src_rate_limits), ElementsAre(Window{1, 2, 3}));
}

TEST(Rate_Limits, BrokenArrayDoesNotHinderTheOther) {
  Rate_Limits limits;
  Log_Capture log;
  limits.from_array_in_object({{"dest_rate_limits", Array{"bad"}}, {"src_rate_limits", Array{number_window(4, 5, 6)}}},
                              false);
  EXPECT_THAT(limits.dest_rate_limits, IsEmpty());
  EXPECT_THAT(windows(limits.src_rate_limits), ElementsAre(Window{4, 5, 6}));
  expect_one_error(log);
}

TEST(Rate_Limits, AreDividedByTheChannels) {
  Rate_Limits limits;
  limits.dest_rate_limits = {{0, 1, 100}, {0, 1, 3}, {0, 1, 0}};
  limits.src_rate_limits = {{0, 1, 9}};
  limits.set_rate_limits_by_channels(4);
  EXPECT_THAT(windows(limits.dest_rate_limits), ElementsAre(Window{0, 1, 25}, Window{0, 1, 1}, Window{0, 1, 0}));
  EXPECT_THAT(windows(limits.src_rate_limits), ElementsAre(Window{0, 1, 2}));
}

TEST(Rate_Limits, ThoseOfTheJobAreKnownAfterTheyWereShared) {
  Rate_Limits limits;
  limits.dest_rate_limits = {{1, 2, 1000}};
  limits.src_rate_limits = {{3, 4, 7}};
  for (const std::size_t channels : {1, 8, 3}) {
    limits.set_rate_limits_by_channels(channels);
    EXPECT_EQ(limits.of_job().dest_rate_limits.at(0).max_bytes_per_second, 1000u);
    EXPECT_EQ(limits.of_job().src_rate_limits.at(0).max_bytes_per_second, 7u);
  }
  EXPECT_EQ(limits.src_rate_limits.at(0).max_bytes_per_second, 1u);
}

TEST(Rate_Limits, NoOrOneChannelChangesNothing) {
  Rate_Limits limits;
  limits.dest_rate_limits = {{0, 1, 100}};
  limits.set_rate_limits_by_channels(0);
  limits.set_rate_limits_by_channels(1);
  EXPECT_THAT(windows(limits.dest_rate_limits), ElementsAre(Window{0, 1, 100}));
}

TEST(Is_Dedup_Uri, TellsTheFourPrefixes) {
  for (const char* uri : {"dedup://h/p", "dedups://h", "ws://h", "wss://h", "dedup://"}) EXPECT_TRUE(is_dedup_uri(uri));
  for (const char* uri : {"file:///p", "s3://b", "DEDUP://h", "Dedups://h", "WS://h", "WSS://h", "dedup:/", " dedup://",
                          "", static_cast<const char*>(nullptr)})
    EXPECT_FALSE(is_dedup_uri(uri));
}

}  // namespace
