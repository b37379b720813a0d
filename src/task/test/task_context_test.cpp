#include "task/task_context.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "ace/Log_Msg.h"
#include "support/log_capture.h"

namespace {

typedef std::vector<std::string> Texts;

TEST(Task_Context, A_thread_outside_a_task_has_none) {
  EXPECT_EQ(Task_Context::current(), nullptr);
}

TEST(Task_Context, A_thread_has_the_one_it_is_attached_to) {
  Task_Context outer;
  Task_Context inner;
  Task_Context::Attach attach_outer(&outer);
  {
    Task_Context::Attach attach_inner(&inner);
    EXPECT_EQ(Task_Context::current(), &inner);
  }
  EXPECT_EQ(Task_Context::current(), &outer);
}

TEST(Task_Context, Attaching_to_null_leaves_the_thread_as_it_is) {
  Task_Context context;
  Task_Context::Attach attach(&context);
  Task_Context::Attach nothing(nullptr);
  EXPECT_EQ(Task_Context::current(), &context);
}

TEST(Task_Context, Lines_at_error_and_above_are_kept) {
  test_support::Log_Capture log;
  Task_Context context;
  Task_Context::Attach attach(&context);
  for (const ACE_Log_Priority priority : {LM_DEBUG, LM_INFO, LM_WARNING, LM_ERROR, LM_CRITICAL, LM_EMERGENCY})
    ACE_ERROR((priority, ACE_TEXT("%d\n"), static_cast<int>(priority)));
  EXPECT_EQ(context.errors(), (Texts{"128", "256", "1024"}));
}

TEST(Task_Context, A_detached_thread_tells_it_nothing) {
  test_support::Log_Capture log;
  Task_Context context;
  { Task_Context::Attach attach(&context); }
  ACE_ERROR((LM_ERROR, ACE_TEXT("elsewhere\n")));
  EXPECT_TRUE(context.errors().empty());
}

TEST(Task_Context, Lines_of_attached_threads_alone_are_kept) {
  test_support::Log_Capture log;
  Task_Context context;
  std::thread([&] {
    Task_Context::Attach attach(&context);
    ACE_ERROR((LM_ERROR, ACE_TEXT("attached\n")));
  }).join();
  std::thread([] { ACE_ERROR((LM_ERROR, ACE_TEXT("not attached\n"))); }).join();
  EXPECT_EQ(context.errors(), Texts{"attached"});
}

TEST(Task_Context, Lines_from_many_threads_are_all_counted) {
  test_support::Log_Capture log;
  Task_Context context;
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i)
    threads.emplace_back([&] {
      Task_Context::Attach attach(&context);
      for (int n = 0; n < 50; ++n) ACE_ERROR((LM_ERROR, ACE_TEXT("line\n")));
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(context.errors().size(), Task_Context::max_errors);
  EXPECT_EQ(context.errors_left_out(), 400 - Task_Context::max_errors);
}

TEST(Task_Context, A_line_goes_to_the_inner_one_of_two_and_to_an_earlier_receiver) {
  struct Receiver : ACE_Log_Msg_Callback {
    int lines = 0;
    void log(ACE_Log_Record&) override { ++lines; }
  } receiver;
  test_support::Log_Capture log;
  ACE_Log_Msg_Callback* const before = ACE_LOG_MSG->msg_callback(&receiver);
  Task_Context context;
  {
    Task_Context::Attach attach(&context);
    ACE_ERROR((LM_ERROR, ACE_TEXT("line\n")));
  }
  EXPECT_EQ(ACE_LOG_MSG->msg_callback(before), &receiver);
  EXPECT_EQ(context.errors(), Texts{"line"});
  EXPECT_EQ(receiver.lines, 1);
}

TEST(Task_Context, Secrets_are_masked) {
  Task_Context context;
  context.add_error(
      R"(Failed to extract backup information from {"access_key":"canary-1","pool_info":{"key":"canary-2"}}.)");
  const std::string error = context.errors().at(0);
  EXPECT_EQ(error.find("canary"), std::string::npos) << error;
  EXPECT_NE(error.find("Failed to extract backup information from"), std::string::npos) << error;
}

TEST(Task_Context, A_secret_that_the_log_cut_in_two_is_masked) {
  test_support::Log_Capture log;
  Task_Context context;
  Task_Context::Attach attach(&context);
  const std::string filler(4000, 'x');
  const std::string secret = "canary" + std::string(300, 'c');
  ACE_ERROR((LM_ERROR, ACE_TEXT("{\"access_key\":\"%C\",\"a\":\"%C\",\"key\":\"%C\"}\n"), "canary", filler.c_str(),
             secret.c_str()));
  EXPECT_EQ(context.errors().at(0).find("canary"), std::string::npos);
}

TEST(Task_Context, White_space_at_the_end_is_cut_off) {
  Task_Context context;
  context.add_error(" text \r\n\n");
  EXPECT_EQ(context.errors(), Texts{" text"});
}

TEST(Task_Context, The_middle_of_a_long_error_is_cut_out) {
  Task_Context context;
  context.add_error("Failed" + std::string(10000, 'x') + "y, and this is why.");
  const std::string error = context.errors().at(0);
  EXPECT_EQ(error.size(), Task_Context::max_error_length);
  EXPECT_EQ(error.substr(0, 7), "Failedx");
  EXPECT_NE(error.find("x...x"), std::string::npos);
  EXPECT_EQ(error.substr(error.size() - 20), "xy, and this is why.");
}

TEST(Task_Context, An_error_that_is_just_not_too_long_is_whole) {
  Task_Context context;
  const std::string text(Task_Context::max_error_length, 'x');
  context.add_error(text);
  EXPECT_EQ(context.errors(), Texts{text});
}

TEST(Task_Context, A_character_is_not_cut_in_two) {
  Task_Context context;
  for (const char* const begin : {"", "x", "xx"}) {
    std::string text = begin;
    for (int i = 0; i < 1000; ++i) text += "\u20AC";
    context.add_error(text);
    const std::string error = context.errors().back();
    EXPECT_LE(error.size(), Task_Context::max_error_length);
    EXPECT_NE(error.find("\u20AC...\u20AC"), std::string::npos);
  }
}

TEST(Task_Context, It_is_not_canceled_until_it_is_told) {
  Task_Context context;
  EXPECT_FALSE(context.canceled());
  context.set_canceled();
  EXPECT_TRUE(context.canceled());
}

}  // namespace
