// What people see: sizes, times, tables, progress.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>

#include <sstream>

#include "ctl/human.h"
#include "ctl/print.h"
#include "ctl/progress_view.h"
#include "ctl/table.h"

namespace {

using namespace ctl;

TEST(Human, Sizes_have_one_decimal_and_a_binary_unit) {
  EXPECT_EQ(human_size(0), "0 B");
  EXPECT_EQ(human_size(1023), "1023 B");
  EXPECT_EQ(human_size(1024), "1.0 KiB");
  EXPECT_EQ(human_size(1536), "1.5 KiB");
  EXPECT_EQ(human_size((1u << 20) - 1), "1.0 MiB");
  EXPECT_EQ(human_size(uint64_t{5} << 40), "5.0 TiB");
  EXPECT_EQ(human_size(~uint64_t{0}), "16.0 EiB");
}

TEST(Human, Durations_show_hours_only_when_there_are_some) {
  EXPECT_EQ(human_duration(0), "0:00");
  EXPECT_EQ(human_duration(67), "1:07");
  EXPECT_EQ(human_duration(3599), "59:59");
  EXPECT_EQ(human_duration(3723), "1:02:03");
  EXPECT_EQ(human_duration(360000), "100:00:00");
}

TEST(Human, Times_are_local) {
  setenv("TZ", "UTC-2", 1);
  tzset();
  EXPECT_EQ(human_time(1700000000), "2023-11-15 00:13:20");
  EXPECT_EQ(human_time(0), "-");
  unsetenv("TZ");
  tzset();
}

TEST(Table, Columns_are_aligned_under_their_headings) {
  Table table({"NAME", ">SIZE", "KIND"});
  table.add({"a", "1", "x"});
  table.add({"longer", "12345678", ""});
  std::ostringstream out;
  table.print(out);
  EXPECT_EQ(out.str(),
            "NAME        SIZE  KIND\n"
            "a              1  x\n"
            "longer  12345678\n");
}

TEST(Table, Characters_are_counted_and_not_bytes) {
  Table table({"A", "B"});
  table.add({"\u00E4\u00E4", "x"});
  std::ostringstream out;
  table.print(out);
  EXPECT_EQ(out.str(), "A   B\n\u00E4\u00E4  x\n");
}

Progress half() {
  Progress progress;
  progress.state = "running";
  progress.processed = 50 << 20;
  progress.total = 100 << 20;
  progress.speed = 10 << 20;
  return progress;
}

TEST(Progress_Text, It_tells_share_amounts_speed_and_time_left) {
  EXPECT_EQ(progress_text(half()), "50%  50.0 MiB of 100.0 MiB  10.0 MiB/s  0:05 left");
}

TEST(Progress_Text, Without_a_speed_there_is_no_time_left) {
  Progress progress = half();
  progress.speed = 0;
  EXPECT_EQ(progress_text(progress), "50%  50.0 MiB of 100.0 MiB");
}

TEST(Progress_Text, Without_a_total_there_is_the_state) {
  Progress progress = half();
  progress.total = 0;
  EXPECT_EQ(progress_text(progress), "running");
}

TEST(Progress_Text, A_last_byte_is_not_told_as_done) {
  Progress progress = half();
  progress.processed = progress.total - 1;
  EXPECT_EQ(progress_text(progress).substr(0, 4), "99% ");
}

TEST(Progress_Text, More_than_the_total_is_all_of_it) {
  Progress progress = half();
  progress.processed = progress.total + 1;
  EXPECT_EQ(progress_text(progress), "100%  100.0 MiB of 100.0 MiB  10.0 MiB/s  0:00 left");
}

TEST(Progress_Bar, It_is_filled_by_the_share_done) {
  EXPECT_EQ(progress_bar(half(), 200).substr(0, 42), "[" + std::string(20, '#') + std::string(20, '-') + "]");
}

TEST(Progress_Bar, It_shrinks_with_the_terminal_and_then_goes) {
  const std::string text = progress_text(half());
  EXPECT_EQ(progress_bar(half(), text.size() + 13), "[#####-----] " + text);
  EXPECT_EQ(progress_bar(half(), text.size() + 12), text);
  EXPECT_EQ(progress_bar(half(), 10), text.substr(0, 10));
}

TEST(Progress_Bar, It_never_exceeds_the_columns) {
  for (size_t columns = 0; columns < 120; ++columns)
    for (uint64_t processed = 0; processed <= 110; processed += 5) {
      Progress progress = half();
      progress.processed = processed << 20;
      EXPECT_LE(progress_bar(progress, columns).size(), columns);
    }
}

TEST(Progress_View, A_terminal_line_is_drawn_over_and_cleared_at_the_end) {
  std::ostringstream out;
  {
    Progress_View view(out, Progress_View::bar);
    view.show(half());
    view.show(half());
  }
  const std::string text = out.str();
  EXPECT_EQ(text.find('\n'), std::string::npos);
  EXPECT_EQ(text.rfind("\r\033[K"), text.size() - 4);
}

TEST(Progress_View, Without_a_terminal_there_is_a_line_per_state_and_not_per_report) {
  std::ostringstream out;
  Progress_View view(out, Progress_View::lines);
  Progress progress;
  progress.state = "queued";
  view.show(progress);
  view.show(progress);
  view.show(half());
  view.show(half());
  EXPECT_EQ(out.str(), "queued\nrunning  50%  50.0 MiB of 100.0 MiB  10.0 MiB/s  0:05 left\n");
}

TEST(Progress_View, A_silent_one_prints_nothing) {
  std::ostringstream out;
  {
    Progress_View view(out, Progress_View::silent);
    view.show(half());
    view.say("text");
  }
  EXPECT_EQ(out.str(), "");
}

TEST(Progress_View, A_remark_stands_on_a_line_of_its_own) {
  std::ostringstream out;
  Progress_View view(out, Progress_View::bar);
  view.show(half());
  view.say("remark");
  EXPECT_NE(out.str().find("\r\033[Kremark\n"), std::string::npos);
}

TEST(Array_Printer_Test, Elements_are_printed_as_they_come_and_as_in_a_whole_document) {
  using json_spirit::Array;
  using json_spirit::Object;
  const Object element{{"text", "line\nfeed"}, {"list", Array{uint64_t(1), Object{{"deep", true}}}}, {"none", Array()}};
  for (const size_t count : {0, 1, 3}) {
    std::ostringstream streamed;
    Array_Printer printer(streamed, "elements");
    EXPECT_EQ(streamed.str(), "");
    for (size_t i = 0; i < count; ++i) {
      const size_t before = streamed.str().size();
      printer.add(element);
      EXPECT_GT(streamed.str().size(), before);
    }
    printer.end();
    std::ostringstream whole;
    print_json(whole, {{"elements", Array(count, element)}});
    EXPECT_EQ(streamed.str(), whole.str());
  }
}

}  // namespace
