#include "websvcs/agent_options.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <vector>

#include "support/temp_dir.h"

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

TEST_F(Agent_Options_Test, CallersAndPeersAreDescribedByOptions) {
  ASSERT_TRUE(parse({"--listen",          "0.0.0.0:8443",
                     "--tls-cert",        "/tls/tls.crt",
                     "--tls-key",         "/tls/tls.key",
                     "--token-file",      "/etc/tokens",
                     "--token-review",    "--token-audience",
                     "tessarin",          "--allow-service-account",
                     "backup/requester",  "--allow-service-account",
                     "tessarin/agent.v2", "--peer-tls",
                     "--peer-ca",         "/peer/ca.crt",
                     "--peer-name",       "agent.tessarin.svc",
                     "--peer-token-file", "/peer/token"}))
      << printed_;
  EXPECT_EQ("0.0.0.0", options_.listen_address);
  EXPECT_EQ("/tls/tls.crt", options_.tls_cert);
  EXPECT_EQ("/tls/tls.key", options_.tls_key);
  EXPECT_EQ("/etc/tokens", options_.token_file);
  EXPECT_TRUE(options_.token_review);
  EXPECT_THAT(options_.token_audiences, testing::ElementsAre("tessarin"));
  EXPECT_THAT(options_.allowed_accounts, testing::ElementsAre("backup/requester", "tessarin/agent.v2"));
  EXPECT_TRUE(options_.peer_tls);
  EXPECT_EQ("/peer/ca.crt", options_.peer_ca);
  EXPECT_EQ("agent.tessarin.svc", options_.peer_name);
  EXPECT_EQ("/peer/token", options_.peer_token_file);
}

TEST_F(Agent_Options_Test, NothingOfAccessIsOnByDefault) {
  ASSERT_TRUE(parse({}));
  EXPECT_EQ("", options_.tls_cert);
  EXPECT_EQ("", options_.token_file);
  EXPECT_FALSE(options_.token_review);
  EXPECT_THAT(options_.allowed_accounts, testing::IsEmpty());
  EXPECT_FALSE(options_.peer_tls);
  EXPECT_EQ("", options_.config);
}

TEST_F(Agent_Options_Test, OptionsComeFromAFileToo) {
  const test_support::Temp_Dir dir;
  const std::string file = dir / "agent.conf";
  std::ofstream(file) << "# the agent of a test\nlisten = \"127.0.0.1:8443\"\ntoken-review = true\n"
                         "allow-service-account = [\"a/b\", \"c/d\"]\nanswer-timeout = 5\n";
  ASSERT_TRUE(parse({"--config", file, "--answer-timeout", "7"})) << printed_;
  EXPECT_EQ(file, options_.config);
  EXPECT_EQ(8443, options_.listen_port);
  EXPECT_TRUE(options_.token_review);
  EXPECT_THAT(options_.allowed_accounts, testing::ElementsAre("a/b", "c/d"));
  EXPECT_EQ(7, options_.answer_timeout) << "the command line comes first";
}

TEST_F(Agent_Options_Test, FileOfOptionsIsReadStrictly) {
  const test_support::Temp_Dir dir;
  const std::string file = dir / "agent.conf";
  EXPECT_FALSE(parse({"--config", file})) << "it is not there";
  std::ofstream(file) << "lisden = \"127.0.0.1:8443\"\n";
  EXPECT_FALSE(parse({"--config", file}));
  EXPECT_THAT(printed_, testing::HasSubstr("lisden"));
}

TEST_F(Agent_Options_Test, LimitsOfTheChannelHaveDefaultsAndCanBeSet) {
  ASSERT_TRUE(parse({}));
  EXPECT_EQ(256u, options_.max_connections);
  EXPECT_EQ(128u, options_.max_connections_per_peer);
  EXPECT_EQ(4u * 1024 * 1024, options_.max_request_bytes);
  EXPECT_EQ(100u, options_.max_batch);
  EXPECT_EQ(60, options_.idle_timeout);
  ASSERT_TRUE(parse({"--max-connections", "10", "--max-connections-per-peer", "5", "--max-request-bytes", "65536",
                     "--max-batch", "7", "--idle-timeout", "0"}))
      << printed_;
  EXPECT_EQ(10u, options_.max_connections);
  EXPECT_EQ(5u, options_.max_connections_per_peer);
  EXPECT_EQ(65536u, options_.max_request_bytes);
  EXPECT_EQ(7u, options_.max_batch);
  EXPECT_EQ(0, options_.idle_timeout);
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
                                                {"--tls-cert", "/tls.crt"},
                                                {"--tls-key", "/tls.key"},
                                                {"--tls-cert", "tls.crt", "--tls-key", "/tls.key"},
                                                {"--token-file", "tokens"},
                                                {"--token-audience", "a"},
                                                {"--allow-service-account", "a/b"},
                                                {"--token-review", "--allow-service-account", "a"},
                                                {"--token-review", "--allow-service-account", "a/"},
                                                {"--token-review", "--allow-service-account", "/b"},
                                                {"--token-review", "--allow-service-account", "a/b/c"},
                                                {"--token-review", "--allow-service-account", "a/B"},
                                                {"--token-review", "--allow-service-account", "a.b/c"},
                                                {"--peer-ca", "/ca.crt"},
                                                {"--max-connections", "0"},
                                                {"--max-connections-per-peer", "-1"},
                                                {"--max-request-bytes", "1023"},
                                                {"--max-batch", "0"},
                                                {"--idle-timeout", "-1"},
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

TEST_F(Agent_Options_Test, LogIsTextUnlessJsonIsAskedFor) {
  ASSERT_TRUE(parse({})) << printed_;
  EXPECT_FALSE(options_.json_log);
  ASSERT_TRUE(parse({"--log-format", "json"})) << printed_;
  EXPECT_TRUE(options_.json_log);
  EXPECT_FALSE(parse({"--log-format", "xml"}));
}

TEST_F(Agent_Options_Test, ChecksLookAtTheKubeletsDirectoryAndAtNoPool) {
  ASSERT_TRUE(parse({})) << printed_;
  EXPECT_EQ("/var/lib/kubelet", options_.kubelet_dir);
  EXPECT_EQ("", options_.check_pool);
  ASSERT_TRUE(parse({"--kubelet-dir", "/k", "--check-pool", "file:///pool"})) << printed_;
  EXPECT_EQ("/k", options_.kubelet_dir);
  EXPECT_EQ("file:///pool", options_.check_pool);
  EXPECT_FALSE(parse({"--kubelet-dir", "k"}));
}

}  // namespace
