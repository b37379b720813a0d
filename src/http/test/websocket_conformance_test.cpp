// RFC 6455, case by case, by a client that others wrote: test/support/ws_client/conformance.js.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "http/test/server_fixture.h"

namespace {

class WebSocket_Conformance : public HTTP_Server_Fixture {
 protected:
  void SetUp() override {
    const char* home = getenv("HOME");
    modules_ = std::string(home ? home : "") + "/.cache/tessarin/ws_client/node_modules";
    if (access((modules_ + "/ws/package.json").c_str(), R_OK) != 0)
      GTEST_SKIP() << "no package ws in " << modules_ << " (scripts/setup installs it)";
    if (system("node --version >/dev/null 2>&1") != 0) GTEST_SKIP() << "no node";
  }

  std::string modules_;
};

TEST_F(WebSocket_Conformance, EveryCaseIsAnsweredAsTheStandardSays) {
  options_.limits.message_bytes = 100'000;
  start();
  const std::string command = "NODE_PATH=" + modules_ +
                              " timeout 100 node " TEST_SUPPORT_DIR "/ws_client/conformance.js " + socket_ +
                              " 100000 2>&1";
  FILE* const pipe = popen(command.c_str(), "r");
  ASSERT_NE(nullptr, pipe);
  std::string output;
  char buffer[4096];
  while (const size_t n = fread(buffer, 1, sizeof buffer, pipe)) output.append(buffer, n);
  EXPECT_EQ(0, pclose(pipe)) << output;
  EXPECT_THAT(output, testing::ContainsRegex("1[0-9][0-9] cases, 0 failed"));
}

}  // namespace
