#include "kolt/check_macros.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>

#include "ace/Null_Mutex.h"
#include "ace/Refcounted_Auto_Ptr.h"
#include "support/log_capture.h"

namespace {

using test_support::Log_Capture;
using testing::ElementsAre;
using testing::MatchesRegex;

const std::string here = "(src/)?kolt/test/check_macros_test\\.cpp:[0-9]+";

int check_null(const void* channel_factory) {
  KOLT_RETURN_IF_NULL(channel_factory, -1);
  return 0;
}

bool check_text(const std::string* type) {
  KOLT_RETURN_IF_EMPTY(type, false);
  return true;
}

template <typename T>
bool has_content(const T& value) {
  KOLT_RETURN_IF_EMPTY(value, false);
  return true;
}

template <typename T>
bool is_set(const T& value) {
  KOLT_RETURN_IF_NULL(value, false);
  return true;
}

TEST(Check_Macros, NullIsLoggedAndGivesTheFailureValue) {
  Log_Capture log;
  EXPECT_EQ(check_null(nullptr), -1);
  // The stack trace, of any length, stands between the two line ends.
  EXPECT_THAT(log.texts(LM_EMERGENCY),
              ElementsAre(MatchesRegex("Unexpected error in " + here + ", channel_factory is NULL:\n(.|\n)*\n")));
}

TEST(Check_Macros, WhatHoldsIsNotLogged) {
  Log_Capture log;
  const int something = 0;
  const std::string text = "full";
  EXPECT_EQ(check_null(&something), 0);
  EXPECT_TRUE(check_text(&text));
  EXPECT_EQ(log.all(), "");
}

TEST(Check_Macros, NullAndEmptyTextReadAlike) {
  const std::string empty;
  for (const std::string* type : {static_cast<const std::string*>(nullptr), &empty}) {
    Log_Capture log;
    EXPECT_FALSE(check_text(type));
    EXPECT_THAT(log.texts(LM_EMERGENCY),
                ElementsAre(MatchesRegex("Unexpected error in " + here + ", type is NULL or empty:\n(.|\n)*\n")));
  }
}

TEST(Check_Macros, AnythingWithContentCanBeChecked) {
  Log_Capture log;
  const std::map<int, int> none, one = {{1, 1}};
  EXPECT_FALSE(has_content(none));
  EXPECT_FALSE(has_content(&none));
  EXPECT_FALSE(has_content(std::string()));
  EXPECT_FALSE(has_content(""));
  EXPECT_FALSE(has_content(static_cast<const char*>(nullptr)));
  EXPECT_TRUE(has_content(one));
  EXPECT_TRUE(has_content(&one));
  EXPECT_TRUE(has_content(std::string("x")));
  EXPECT_TRUE(has_content("x"));
}

TEST(Check_Macros, AnyPointerCanBeChecked) {
  typedef ACE_Refcounted_Auto_Ptr<int, ACE_Null_Mutex> Counted;
  Log_Capture log;
  EXPECT_FALSE(is_set(std::shared_ptr<int>()));
  EXPECT_FALSE(is_set(std::unique_ptr<int>()));
  EXPECT_FALSE(is_set(Counted()));
  EXPECT_TRUE(is_set(std::make_shared<int>(0)));
  EXPECT_TRUE(is_set(Counted(new int(0))));
}

TEST(Check_Macros, ExpressionStandsAsItWasWritten) {
  Log_Capture log;
  const std::shared_ptr<std::string> ptr[] = {nullptr};
  [&]() -> void { KOLT_RETURN_IF_NULL(ptr[0 % 1], ); }();
  EXPECT_THAT(log.texts(LM_EMERGENCY), ElementsAre(testing::HasSubstr(", ptr[0 % 1] is NULL:\n")));
}

TEST(Check_Macros, WrongKindIsLoggedWithTheSourceFile) {
  Log_Capture log;
  const int obj = 0;
  EXPECT_EQ(
      [&] {
        KOLT_RETURN_IF_NOT(obj == 1, obj, "JSON-RPC request", -1);
        return 0;
      }(),
      -1);
  EXPECT_THAT(log.texts(LM_EMERGENCY),
              ElementsAre(MatchesRegex("Unexpected error in " + here + ", obj is not JSON-RPC request!\n")));
}

TEST(Check_Macros, WrongKindIsLoggedWithTheUnit) {
  Log_Capture log;
  const int v = 0;
  int line = 0;
  const auto check = [&] {
    line = __LINE__ + 1;
    KOLT_RETURN_IF_NOT_IN("k8s/api/k8s_utils", v == 1, v, "object", false);
    return true;
  };
  EXPECT_FALSE(check());
  EXPECT_THAT(log.texts(LM_EMERGENCY),
              ElementsAre("Unexpected error in k8s/api/k8s_utils:" + std::to_string(line) + ", v is not object!\n"));
}

TEST(Check_Macros, GivenCodeRunsAndTheFunctionGoesOn) {
  Log_Capture log;
  const std::unique_ptr<int> sess_;
  const std::string name;
  int ran = 0;
  KOLT_DO_IF_NULL(sess_, ++ran);
  KOLT_DO_IF_EMPTY(name, ++ran);
  EXPECT_EQ(ran, 2);
  EXPECT_EQ(log.texts(LM_EMERGENCY).size(), 2u);
}

TEST(Check_Macros, ExpressionIsEvaluatedOnce) {
  int calls = 0;
  const auto next = [&] { return ++calls == 0 ? nullptr : &calls; };
  [&]() -> void { KOLT_RETURN_IF_NULL(next(), ); }();
  EXPECT_EQ(calls, 1);
}

}  // namespace
