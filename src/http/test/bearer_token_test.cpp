#include "http/bearer_token.h"

#include <gtest/gtest.h>

#include "http/access_check.h"

namespace {

TEST(Bearer_Token_Test, TokenStandsBehindTheSchemeInAnyCase) {
  for (const char* value : {"Bearer secret", "bEARER secret", "Bearer   secret"}) {
    std::string token;
    EXPECT_TRUE(bearer_token(value, token)) << value;
    EXPECT_EQ("secret", token);
  }
}

TEST(Bearer_Token_Test, AnythingElseIsNoToken) {
  std::string token = "before";
  for (const char* value : {"", "Bearer", "Bearer ", "Bearer   ", "Basic secret", "secret", "Bearersecret",
                            "Bearer secret ", "Bearer one two", "Bearer\tsecret"}) {
    EXPECT_FALSE(bearer_token(value, token)) << value;
  }
  EXPECT_EQ("before", token);
}

TEST(Token_Check_Test, TheTokenIsLetInAndNoOther) {
  Token_Check check("secret");
  EXPECT_EQ(200u, check.check("secret", nullptr));
  for (const char* token : {"", "Secret", "secre", "secrets", "secreT"}) {
    EXPECT_EQ(401u, check.check(token, nullptr)) << token;
  }
}

TEST(Token_Check_Test, EmptyTokenLetsNobodyIn) {
  EXPECT_EQ(401u, Token_Check("").check("", nullptr));
}

}  // namespace
