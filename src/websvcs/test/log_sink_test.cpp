#include "websvcs/log_sink.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <thread>

#include "ace/Log_Msg.h"

using testing::HasSubstr;
using testing::Not;

namespace {

/// What comes out of a sink while the function runs.
std::string logged(void (*lines)()) {
  int ends[2];
  EXPECT_EQ(0, pipe(ends));
  {
    Log_Sink sink(ends[1]);
    sink.install();
    lines();
  }
  close(ends[1]);
  std::string text;
  char buffer[4096];
  for (ssize_t n; (n = read(ends[0], buffer, sizeof buffer)) > 0;) text.append(buffer, static_cast<size_t>(n));
  close(ends[0]);
  return text;
}

TEST(Log_Sink_Test, LineHasTimePriorityAndText) {
  const std::string text = logged([] { ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to do %d.\n"), 7)); });
  EXPECT_THAT(
      text, testing::MatchesRegex("[0-9]+-[0-9]+-[0-9]+T[0-9]+:[0-9]+:[0-9]+\\.[0-9]+Z LM_ERROR Failed to do 7\\.\n"));
}

TEST(Log_Sink_Test, TextWithoutLineEndGetsOne) {
  EXPECT_THAT(logged([] { ACE_ERROR((LM_ERROR, ACE_TEXT("no end"))); }), testing::EndsWith("no end\n"));
}

TEST(Log_Sink_Test, SecretsAreMaskedAtEveryPriority) {
  const std::string text = logged([] {
    for (const ACE_Log_Priority priority :
         {LM_DEBUG, LM_INFO, LM_NOTICE, LM_WARNING, LM_ERROR, LM_CRITICAL, LM_ALERT, LM_EMERGENCY}) {
      ACE_Log_Msg::instance()->log(priority, ACE_TEXT("params {\"access_key\":\"canary\"} Bearer canary\n"));
    }
  });
  EXPECT_THAT(text, Not(HasSubstr("canary")));
  EXPECT_THAT(text, HasSubstr("LM_EMERGENCY params"));
  EXPECT_THAT(text, HasSubstr("LM_DEBUG params"));
}

TEST(Log_Sink_Test, LinesOfOtherThreadsComeTheSameWay) {
  const std::string text =
      logged([] { std::thread([] { ACE_ERROR((LM_ERROR, ACE_TEXT("{\"key\":\"canary\"} of a thread\n"))); }).join(); });
  EXPECT_THAT(text, HasSubstr("of a thread"));
  EXPECT_THAT(text, Not(HasSubstr("canary")));
}

}  // namespace
