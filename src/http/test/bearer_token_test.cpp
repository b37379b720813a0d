#include "http/bearer_token.h"

#include <gtest/gtest.h>

TEST(Bearer_Token_Test, SchemeInAnyCaseAndTheTokenFit) {
  EXPECT_TRUE(bearer_token_fits("Bearer secret", "secret"));
  EXPECT_TRUE(bearer_token_fits("bEARER secret", "secret"));
  EXPECT_TRUE(bearer_token_fits("Bearer   secret", "secret"));
}

TEST(Bearer_Token_Test, AnythingElseDoesNot) {
  for (const char* value : {"", "Bearer", "Bearer ", "Bearer Secret", "Bearer secre", "Bearer secrets", "Basic secret",
                            "secret", "Bearersecret", "Bearer secret "}) {
    EXPECT_FALSE(bearer_token_fits(value, "secret")) << value;
  }
}

TEST(Bearer_Token_Test, EmptyTokenFitsNothing) {
  EXPECT_FALSE(bearer_token_fits("Bearer ", ""));
  EXPECT_FALSE(bearer_token_fits("", ""));
}
