#include "websvcs/caller_check.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "http/websocket_options.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "websvcs/peers.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

class Caller_Check_Test : public testing::Test {
 protected:
  std::string secret(const std::string& name, const std::string& text) {
    const std::string path = dir_.write(name, text);
    chmod(path.c_str(), 0600);
    return path;
  }

  const test_support::Temp_Dir dir_;
  test_support::Log_Capture log_;
  Agent_Options options_;
};

TEST_F(Caller_Check_Test, TLSWithoutACheckOfTokensIsRefused) {
  options_.tls_cert = "/tls.crt";
  EXPECT_FALSE(is_access_clear(options_));
  EXPECT_THAT(
      log_.texts(LM_ERROR),
      ElementsAre("The agent does not start: --tls-cert needs --token-file or --token-review: callers could not "
                  "be told from others.\n"));
  options_.token_file = "/tokens";
  EXPECT_TRUE(is_access_clear(options_));
}

TEST_F(Caller_Check_Test, ReviewThatLetsNobodyInIsRefused) {
  options_.token_review = true;
  EXPECT_FALSE(is_access_clear(options_));
  EXPECT_THAT(
      log_.texts(LM_ERROR),
      ElementsAre("The agent does not start: --token-review needs --allow-service-account: nobody could call.\n"));
  options_.allowed_accounts = {"a/b"};
  EXPECT_TRUE(is_access_clear(options_));
}

TEST_F(Caller_Check_Test, DefaultsAreClear) {
  EXPECT_TRUE(is_access_clear(options_));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(Caller_Check_Test, TokensOfTheFileAreLetIn) {
  options_.token_file = secret("tokens", "a-token-of-the-file\n");
  const auto check = Caller_Check::make(options_);
  ASSERT_TRUE(check);
  EXPECT_EQ(200u, check->check("a-token-of-the-file", nullptr));
  EXPECT_EQ(401u, check->check("another-token", nullptr));
}

TEST_F(Caller_Check_Test, FileThatCannotBeReadIsAFailure) {
  options_.token_file = dir_ / "none";
  EXPECT_EQ(nullptr, Caller_Check::make(options_));
  EXPECT_THAT(log_.texts(LM_ERROR), ElementsAre(HasSubstr("cannot be read")));
}

TEST_F(Caller_Check_Test, ReviewOutsideOfAClusterIsAFailure) {
  unsetenv("KUBERNETES_SERVICE_HOST");
  options_.token_review = true;
  options_.allowed_accounts = {"a/b"};
  EXPECT_EQ(nullptr, Caller_Check::make(options_));
  EXPECT_THAT(log_.texts(LM_ERROR), ElementsAre("Failed to get k8s service host.\n"));
}

TEST_F(Caller_Check_Test, PeersAreCalledAsTheOptionsTell) {
  WebSocket_Options& peers = *WebSocket_Options::instance();
  options_.peer_tls = true;
  options_.peer_ca = dir_.write("ca.crt", "text");
  options_.peer_name = "agent.svc";
  options_.peer_token_file = "/token";
  EXPECT_EQ(0, set_peers(options_));
  EXPECT_TRUE(peers.ssl());
  EXPECT_EQ(options_.peer_ca, peers.identity().ca_file);
  EXPECT_EQ("agent.svc", peers.identity().name);
  EXPECT_EQ("/token", peers.identity().token_file);
  EXPECT_EQ(0, set_peers(Agent_Options()));
  EXPECT_FALSE(peers.ssl());
  EXPECT_EQ("", peers.identity().ca_file);
}

TEST_F(Caller_Check_Test, CAOfPeersHasToBeThere) {
  options_.peer_tls = true;
  options_.peer_ca = dir_ / "none";
  EXPECT_EQ(-1, set_peers(options_));
  EXPECT_THAT(log_.texts(LM_ERROR),
              ElementsAre("No CA of peers: '" + options_.peer_ca + "' cannot be read: No such file or directory.\n"));
  EXPECT_FALSE(WebSocket_Options::instance()->ssl());
}

}  // namespace
