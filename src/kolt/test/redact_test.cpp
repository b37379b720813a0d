#include "kolt/redact.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>

namespace {

// A redacted text has to stay as it is.
std::string redact(const std::string& text) {
  const std::string once = redact_secrets(text);
  EXPECT_EQ(redact_secrets(once), once);
  return once;
}

TEST(Redact_Secrets, MasksEverySecretMember) {
  for (const char* name : {"access_key", "key", "iv", "secret_key", "secret_access_key", "session_token",
                           "tenant_access_key", "password", "token", "X-Access-Key", "Authorization",
                           "Proxy-Authorization", "Cookie", "Set-Cookie", "X-Amz-Security-Token"}) {
    const std::string begin = std::string("{\"") + name + "\":\"";
    EXPECT_EQ(redact(begin + "canary\",\"url\":\"s3://b\"}"), begin + "******\",\"url\":\"s3://b\"}");
  }
}

TEST(Redact_Secrets, MasksIndentedText) {
  EXPECT_EQ(redact("{\n    \"key\" : \"canary\",\n    \"n\": 1\n}\n"),
            "{\n    \"key\" : \"******\",\n    \"n\": 1\n}\n");
  EXPECT_EQ(redact("\"key\" :\n\t\"canary\""), "\"key\" :\n\t\"******\"");
}

TEST(Redact_Secrets, MasksAllOfSeveral) {
  EXPECT_EQ(redact("{\"key\":\"one\",\"iv\":\"two\",\"a\":{\"token\":\"three\"}}"),
            "{\"key\":\"******\",\"iv\":\"******\",\"a\":{\"token\":\"******\"}}");
}

TEST(Redact_Secrets, ComparesNamesWithoutCase) {
  EXPECT_EQ(redact("\"Password\":\"canary\""), "\"Password\":\"******\"");
}

TEST(Redact_Secrets, LeavesOtherMembersAlone) {
  for (const char* text : {"{\"monkey\":\"banana\"}", "{\"key_id\":\"AK1\"}", "{\"access_key_id\":\"AK1\"}",
                           "{\"name\":\"key\",\"value\":\"x\"}", "{\"key\":\"\"}", "{\"key\":[]}", "\"key\"",
                           "key: value", ":", "\":\"", "\"\":\"x\""})
    EXPECT_EQ(redact(text), text);
}

TEST(Redact_Secrets, ValueMayHoldQuotesAndBackslashes) {
  EXPECT_EQ(redact(R"({"key":"a\"b\\","n":"x"})"), R"({"key":"******","n":"x"})");
  EXPECT_EQ(redact(R"({"key":"\\\"","n":"x"})"), R"({"key":"******","n":"x"})");
}

TEST(Redact_Secrets, MasksInsideQuotedJson) {
  EXPECT_EQ(redact(R"({"body":"{\"key\":\"can\\\"ary\\\\\",\"n\":\"x\"}","m":"y"})"),
            R"({"body":"{\"key\":\"******\",\"n\":\"x\"}","m":"y"})");
  EXPECT_EQ(redact(R"("{\\\"a\\\":\\\"{\\\\\\\"token\\\\\\\": \\\\\\\"canary\\\\\\\"}\\\"}")"),
            R"("{\\\"a\\\":\\\"{\\\\\\\"token\\\\\\\": \\\\\\\"******\\\\\\\"}\\\"}")");
}

TEST(Redact_Secrets, MasksAValueThatIsCutOff) {
  EXPECT_EQ(redact("{\"key\":\"cana"), "{\"key\":\"******");
  EXPECT_EQ(redact("{\"key\":\"cana\nnext line"), "{\"key\":\"******\nnext line");
  EXPECT_EQ(redact(R"({\"key\":\"cana\\)"), R"({\"key\":\"******)");
}

TEST(Redact_Secrets, MasksValuesThatAreNoTexts) {
  EXPECT_EQ(redact(R"({"access_key":1234567890,"n":1})"), R"({"access_key":******,"n":1})");
  EXPECT_EQ(redact(R"({"token": 12.5e3 })"), R"({"token": ****** })");
  EXPECT_EQ(redact("{\n  \"key\": 5\n}"), "{\n  \"key\": ******\n}");
  EXPECT_EQ(redact(R"("authorization": Bearer canary, "n": 1)"), R"("authorization": ******, "n": 1)");
  EXPECT_EQ(redact("{\"key\":123"), "{\"key\":******");
}

TEST(Redact_Secrets, MasksListsAndObjectsWhole) {
  EXPECT_EQ(redact(R"({"secret_access_key":["canary"],"n":1})"), R"({"secret_access_key":[******],"n":1})");
  EXPECT_EQ(redact(R"({"key":{"a":["]}","\"}"],"b":{}},"n":1})"), R"({"key":{******},"n":1})");
  EXPECT_EQ(redact("{\"key\": [\n    \"canary\",\n    \"canary\"\n  ],\n  \"n\": 1\n}"),
            "{\"key\": [******],\n  \"n\": 1\n}");
  EXPECT_EQ(redact("{\"key\":[\"canary\",\n\"canary\""), "{\"key\":[******");
}

TEST(Redact_Secrets, MasksValuesThatAreNoTextsInsideQuotedJson) {
  EXPECT_EQ(redact(R"({"body":"{\"key\":5,\"iv\":[\"]\\\"\",\"canary\"],\"n\":1}","m":1})"),
            R"({"body":"{\"key\":******,\"iv\":[******],\"n\":1}","m":1})");
  EXPECT_EQ(redact(R"({"body":"{\"iv\":[\"canary\",5","m":"y"})"), R"({"body":"{\"iv\":[******","m":"y"})");
}

TEST(Redact_Secrets, MasksHeaders) {
  EXPECT_EQ(redact("GET / HTTP/1.1\r\nX-Access-Key: can ary\r\nHost: a\r\n"),
            "GET / HTTP/1.1\r\nX-Access-Key: ******\r\nHost: a\r\n");
  EXPECT_EQ(redact("authorization: Bearer canary"), "authorization: ******");
  EXPECT_EQ(redact("Authorization:Basic canary=\nnext"), "Authorization:******\nnext");
  EXPECT_EQ(redact("X-Access-Key:\nnext"), "X-Access-Key:\nnext");
}

TEST(Redact_Secrets, OtherHeadersStay) {
  for (const char* text : {"Host: example.org:443\r\n", "X-Access-Key-Id: 1", "NotAuthorization: x"})
    EXPECT_EQ(redact(text), text);
}

TEST(Redact_Secrets, MasksBearerTokens) {
  EXPECT_EQ(redact("sent Bearer eyJh.b-_c/d+=~, then waited"), "sent Bearer ******, then waited");
  EXPECT_EQ(redact("{\"h\":\"bearer  canary\"}"), "{\"h\":\"bearer  ******\"}");
  EXPECT_EQ(redact("(Bearer canary)"), "(Bearer ******)");
}

TEST(Redact_Secrets, BearerAloneStays) {
  for (const char* text : {"Bearer", "Bearer ", "forbearer x", "bearers x", "b B be"}) EXPECT_EQ(redact(text), text);
}

TEST(Redact_Secrets, PlainTextStays) {
  EXPECT_EQ(redact(""), "");
  EXPECT_EQ(redact("Failed to bind '/var/lib': No such file or directory.\n"),
            "Failed to bind '/var/lib': No such file or directory.\n");
  const std::string nul("a\0b:\0", 5);
  EXPECT_EQ(redact(nul), nul);
}

TEST(Redact_Secrets, RandomTextNeverBreaksIt) {
  const std::string parts[] = {"\"", "\\", ":", " ", "\n", "key", "Bearer", "token", "X-Access-Key", "canary",
                               ",",  "{}", "[", "]", "5",  "\r",  "\xff",   "\\\"",  "******"};
  std::mt19937 random(1);
  for (int i = 0; i < 20000; ++i) {
    std::string text;
    for (unsigned n = random() % 24; n > 0; --n) text += parts[random() % std::size(parts)];
    const std::string once = redact_secrets(text);
    EXPECT_EQ(redact_secrets(once), once) << text;
  }
}

}  // namespace
