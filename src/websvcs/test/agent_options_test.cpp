#include "websvcs/agent_options.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

namespace {

class Agent_Options_Test : public testing::Test {
 protected:
  bool parse(std::vector<std::string> words) {
    words.insert(words.begin(), "tessarin-agent");
    std::vector<char*> argv;
    for (auto& word : words) argv.push_back(word.data());
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const bool parsed = options_.parse(static_cast<int>(argv.size()), argv.data(), exit_code_);
    printed_ = testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr();
    return parsed;
  }

  Agent_Options options_;
  int exit_code_ = -1;
  std::string printed_;
};

TEST_F(Agent_Options_Test, DefaultsListenOnASocketInTheStateDirectoryOnly) {
  ASSERT_TRUE(parse({})) << printed_;
  EXPECT_EQ("/var/lib/tessarin", options_.state_dir);
  EXPECT_EQ("/var/lib/tessarin/agent.sock", options_.socket);
  EXPECT_EQ("", options_.listen_address);
  EXPECT_EQ(600, options_.answer_timeout);
  EXPECT_THAT(options_.svc_conf, testing::EndsWith("/etc/svc.conf"));
}

TEST_F(Agent_Options_Test, SocketFollowsTheStateDirectory) {
  ASSERT_TRUE(parse({"--state-dir", "/s"}));
  EXPECT_EQ("/s/agent.sock", options_.socket);
  ASSERT_TRUE(parse({"--state-dir", "/s", "--socket", "/run/x"}));
  EXPECT_EQ("/run/x", options_.socket);
}

TEST_F(Agent_Options_Test, HostKeyIsAnAbsolutePathOrNone) {
  ASSERT_TRUE(parse({}));
  EXPECT_EQ("", options_.host_key);
  ASSERT_TRUE(parse({"--host-key", "/etc/tessarin/host.pem"}));
  EXPECT_EQ("/etc/tessarin/host.pem", options_.host_key);
  EXPECT_FALSE(parse({"--host-key", "host.pem"}));
}

TEST_F(Agent_Options_Test, AddressAndPortAreSplit) {
  ASSERT_TRUE(parse({"--listen", "127.0.0.1:8080"}));
  EXPECT_EQ("127.0.0.1", options_.listen_address);
  EXPECT_EQ(8080, options_.listen_port);
  ASSERT_TRUE(parse({"--listen", "[::1]:0"}));
  EXPECT_EQ("::1", options_.listen_address);
  EXPECT_EQ(0, options_.listen_port);
}

TEST_F(Agent_Options_Test, WrongLinesAreRefusedWithAnExitCode) {
  for (const std::vector<std::string>& words : {std::vector<std::string>{"--listen", "127.0.0.1"},
                                                {"--listen", ":80"},
                                                {"--listen", "127.0.0.1:"},
                                                {"--listen", "127.0.0.1:65536"},
                                                {"--listen", "127.0.0.1:8o"},
                                                {"--state-dir", "relative"},
                                                {"--svc-conf", "svc.conf"},
                                                {"--socket", "x.sock"},
                                                {"--answer-timeout", "-1"},
                                                {"--nonsense"},
                                                {"word"}}) {
    EXPECT_FALSE(parse(words)) << words[0];
    EXPECT_GT(exit_code_, 0);
    EXPECT_NE("", printed_);
  }
}

TEST_F(Agent_Options_Test, HelpAndVersionEndTheProgramWell) {
  EXPECT_FALSE(parse({"--help"}));
  EXPECT_EQ(0, exit_code_);
  EXPECT_THAT(printed_, testing::HasSubstr("--listen"));
  EXPECT_FALSE(parse({"--version"}));
  EXPECT_EQ(0, exit_code_);
}

}  // namespace
