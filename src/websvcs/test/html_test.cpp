#include "websvcs/html.h"

#include <gtest/gtest.h>

namespace {

TEST(Html_Test, TextThatCouldBeMarkupIsEscaped) {
  EXPECT_EQ("&lt;script&gt;alert(&quot;1&quot;,&#39;&amp;&#39;)&lt;/script&gt;",
            html_text("<script>alert(\"1\",'&')</script>"));
}

TEST(Html_Test, BytesThatAreNoUtf8OrControlCharactersAreReplaced) {
  EXPECT_EQ(
      "a\xef\xbf\xbd"
      "b\xef\xbf\xbd"
      "c\xef\xbf\xbd",
      html_text("a\xff"
                "b\x1b"
                "c\x7f"));
  EXPECT_EQ("\xef\xbf\xbd", html_text(std::string_view("\0", 1)));
  EXPECT_EQ("caf\xc3\xa9\n", html_text("caf\xc3\xa9\n"));
}

TEST(Html_Test, SizesHaveThreeDigitsAtMost) {
  EXPECT_EQ("0 B", html_bytes(0));
  EXPECT_EQ("1023 B", html_bytes(1023));
  EXPECT_EQ("1.0 KiB", html_bytes(1024));
  EXPECT_EQ("20 MiB", html_bytes(20u << 20));
  EXPECT_EQ("16 EiB", html_bytes(UINT64_MAX));
}

TEST(Html_Test, DurationsHaveTwoUnitsAtMost) {
  EXPECT_EQ("0 s", html_duration(-5));
  EXPECT_EQ("59 s", html_duration(59'999));
  EXPECT_EQ("1 min 00 s", html_duration(60'000));
  EXPECT_EQ("25 h 01 min", html_duration(90'060'000));
}

TEST(Html_Test, TimesAreUtc) {
  EXPECT_EQ("1970-01-01 00:00:01 UTC", html_time(1'999));
}

}  // namespace
