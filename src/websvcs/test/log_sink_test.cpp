#include "websvcs/log_sink.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <thread>

#include "ace/Log_Msg.h"
#include "json_spirit/json_spirit_value.h"
#include "task/task_context.h"

using testing::HasSubstr;
using testing::Not;

namespace {

/// What comes out of a sink while the function runs.
std::string logged(void (*lines)(), Log_Sink::Format format = text_log_line) {
  int ends[2];
  EXPECT_EQ(0, pipe(ends));
  {
    Log_Sink sink(ends[1], format);
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

TEST(Log_Sink_Test, LineThatFindsNoMemoryIsToldAndThrowsNothing) {
  const std::string text = logged([] { ACE_ERROR((LM_ERROR, ACE_TEXT("lost\n"))); },
                                  [](const ACE_Log_Record&) -> std::string { throw std::bad_alloc(); });
  EXPECT_EQ("A line of the log found no memory.\n", text);
}

json_spirit::Object json_logged(void (*lines)()) {
  const std::string text = logged(lines, json_log_line);
  EXPECT_EQ(1, std::count(text.begin(), text.end(), '\n')) << text;
  json_spirit::Value line;
  EXPECT_TRUE(json_spirit::loads_json(text, line)) << text;
  return line.type() == json_spirit::obj_type ? line.get_obj() : json_spirit::Object();
}

std::string member(const json_spirit::Object& object, const char* name) {
  std::string text;
  json_spirit::object_get(object, name, text);
  return text;
}

TEST(Log_Sink_Test, JsonLineIsAnObjectWithTimePriorityMessageAndThread) {
  const auto line = json_logged([] { ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to do %d.\n"), 7)); });
  EXPECT_THAT(member(line, "time"), testing::MatchesRegex("[0-9]+-[0-9]+-[0-9]+T[0-9]+:[0-9]+:[0-9]+\\.[0-9]+Z"));
  EXPECT_EQ("LM_ERROR", member(line, "priority"));
  EXPECT_EQ("Failed to do 7.", member(line, "message"));
  EXPECT_EQ(1u, line.count("thread"));
  EXPECT_EQ(0u, line.count("task"));
}

TEST(Log_Sink_Test, JsonLineNamesTheTaskOfItsThread) {
  const auto line = json_logged([] {
    Task_Context context("job-7");
    const Task_Context::Attach attach(&context);
    ACE_ERROR((LM_ERROR, ACE_TEXT("Failed.\n")));
  });
  EXPECT_EQ("job-7", member(line, "task"));
}

TEST(Log_Sink_Test, JsonLineStaysOneLineWhateverTheMessageHolds) {
  const auto line = json_logged([] { ACE_ERROR((LM_ERROR, ACE_TEXT("%C\n"), "a\n\"b\"\t\xff\\")); });
  EXPECT_EQ("a\n\"b\"\t\xef\xbf\xbd\\", member(line, "message"));
}

TEST(Log_Sink_Test, JsonLineMasksSecrets) {
  const std::string text = logged(
      [] {
        ACE_ERROR((LM_ERROR, ACE_TEXT("params {\"key\":\"canary\",\"text\":\"{\\\"password\\\":\\\"canary\\\"}\"}\n")));
        ACE_ERROR((LM_DEBUG, ACE_TEXT("Authorization: Bearer canary\n")));
        ACE_ERROR((LM_ERROR, ACE_TEXT("x-amz-security-token: canary\nCookie: canary\n")));
      },
      json_log_line);
  EXPECT_THAT(text, HasSubstr("params"));
  EXPECT_THAT(text, Not(HasSubstr("canary")));
}

}  // namespace
