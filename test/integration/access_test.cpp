// Who may call an agent, by TLS: a whole agent, the client of the command line, and an API server that reviews tokens.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdio>
#include <functional>
#include <regex>

#include "ctl/failure.h"
#include "http/test/raw_peer.h"
#include "integration/agent_process.h"
#include "support/kube_sim/cluster.h"
#include "support/kube_sim/front.h"
#include "support/kube_sim/service_account.h"
#include "support/kube_sim/test/tls_peer.h"
#include "support/temp_dir.h"

namespace test_support {
namespace {

using json_spirit::Object;
using kube_sim::Certificate_Kind;
using kube_sim::Certificates;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr char own_token[] = "token-of-the-agent-itself";
constexpr char listed[] = "listed-token-0123456789";

class Access : public testing::Test {
 protected:
  Access() { write(Certificate_Kind::GOOD, certificates_); }

  /// In place of what is there, as deployments do it.
  void replace(const std::string& name, const std::string& text, mode_t mode) {
    const std::string fresh = dir_.write("fresh", text);
    ASSERT_EQ(0, chmod(fresh.c_str(), mode));
    ASSERT_EQ(0, std::rename(fresh.c_str(), (dir_ / name).c_str()));
  }
  void write(Certificate_Kind kind, const Certificates& authority) {
    const auto pair = authority.server(kind);
    replace("tls.key", pair.key, 0400);
    replace("tls.crt", pair.certificate, 0644);
    replace("ca.crt", certificates_.ca(), 0644);
  }
  void start(std::vector<std::string> options) {
    options.insert(options.end(),
                   {"--listen", "0.0.0.0:0", "--tls-cert", dir_ / "tls.crt", "--tls-key", dir_ / "tls.key"});
    agent_ = std::make_unique<Agent_Process>(dir_ / "state", options);
    ASSERT_TRUE(agent_->start()) << agent_->log();
    std::smatch port;
    const std::string log = agent_->log();
    ASSERT_TRUE(std::regex_search(log, port, std::regex("Listening on 0.0.0.0 port ([0-9]+) by TLS"))) << log;
    port_ = static_cast<unsigned short>(std::stoi(port[1]));
  }
  void start_with_list() {
    replace("tokens", std::string(listed) + "\n", 0600);
    start({"--token-file", dir_ / "tokens"});
  }
  void start_with_review() { start({"--token-review", "--allow-service-account", "backup/requester"}); }

  /// "ok", or the failure of a call with @a token (empty: none): code and text.
  std::string call(const std::string& token, const std::string& name = "", const std::string& ca = "ca.crt") {
    try {
      const std::string file = token.empty() ? "" : dir_.write("shown", token + "\n");
      ctl::Agent client("https://127.0.0.1:" + std::to_string(port_), {file, dir_ / ca, name});
      return client.call("agent.info", Object()).get_obj().count("version") ? "ok" : "no version";
    } catch (const ctl::Failure& failure) {
      return std::to_string(failure.code()) + " " + failure.what();
    }
  }

  const Temp_Dir dir_;
  const Certificates certificates_;
  kube_sim::Cluster cluster_{kube_sim::Cluster_Options{.token = own_token}};
  std::unique_ptr<kube_sim::Front> front_ = std::make_unique<kube_sim::Front>(cluster_);
  const kube_sim::Service_Account account_{*front_, own_token};
  std::unique_ptr<Agent_Process> agent_;
  unsigned short port_ = 0;
};

TEST_F(Access, TokenOfTheFileLetsInAndNoOther) {
  start_with_list();
  EXPECT_EQ("ok", call(listed));
  EXPECT_EQ("4 The agent wants a token: give its file with --token-file.", call(""));
  EXPECT_EQ("4 The agent does not accept the token.", call("another-token-0123456789"));
  EXPECT_EQ("4 The agent does not accept the token.", call(own_token)) << "no review was wanted";
  EXPECT_THAT(agent_->log(), HasSubstr("Caller at 127.0.0.1 refused: status 401."));
  EXPECT_THAT(agent_->log(), Not(HasSubstr(listed)));
  EXPECT_EQ(0, agent_->terminate());
}

TEST_F(Access, TokenFileIsReplacedWhileTheAgentRuns) {
  start_with_list();
  EXPECT_EQ("ok", call(listed));
  replace("tokens", "fresh-token-0123456789\n", 0600);
  EXPECT_EQ("4 The agent does not accept the token.", call(listed));
  EXPECT_EQ("ok", call("fresh-token-0123456789"));
  std::remove((dir_ / "tokens").c_str());
  EXPECT_THAT(call("fresh-token-0123456789"), StartsWith("3 The agent cannot find out whose token it is"));
}

TEST_F(Access, ReviewedTokenOfAnAllowedAccountLetsIn) {
  cluster_.accounts().set("good", {"system:serviceaccount:backup:requester"});
  cluster_.accounts().set("stranger", {"system:serviceaccount:other:requester"});
  cluster_.accounts().set("expired", {.user = "system:serviceaccount:backup:requester", .expired = true});
  start_with_review();
  EXPECT_EQ("ok", call("good"));
  EXPECT_EQ("ok", call("good"));
  EXPECT_EQ("4 The owner of the token may not call the agent.", call("stranger"));
  EXPECT_EQ("4 The agent does not accept the token.", call("expired"));
  EXPECT_EQ("4 The agent does not accept the token.", call("unknown"));
  EXPECT_EQ("4 The agent wants a token: give its file with --token-file.", call(""));
  EXPECT_EQ(4u, front_->requests().size()) << "once for each token";
  EXPECT_EQ("Bearer " + std::string(own_token), front_->requests()[0].header("authorization"));
  EXPECT_EQ(0, agent_->terminate());
}

TEST_F(Access, NobodyNewIsLetInWhileTheAPIServerIsAway) {
  cluster_.accounts().set("good", {"system:serviceaccount:backup:requester"});
  cluster_.accounts().set("later", {"system:serviceaccount:backup:requester"});
  start_with_review();
  EXPECT_EQ("ok", call("good"));
  front_.reset();
  EXPECT_THAT(call("later"), StartsWith("3 The agent cannot find out whose token it is"));
  EXPECT_EQ("ok", call("good")) << "known for a while";
}

TEST_F(Access, FileAndReviewGoTogether) {
  cluster_.accounts().set("good", {"system:serviceaccount:backup:requester"});
  replace("tokens", std::string(listed) + "\n", 0600);
  start({"--token-file", dir_ / "tokens", "--token-review", "--allow-service-account", "backup/requester"});
  EXPECT_EQ("ok", call(listed));
  EXPECT_TRUE(front_->requests().empty()) << "a token of the file is not shown to others";
  EXPECT_EQ("ok", call("good"));
}

TEST_F(Access, TokenIsShownToNoAgentThatDoesNotProveItself) {
  start_with_list();
  replace("other-ca.crt", Certificates().ca(), 0644);
  EXPECT_THAT(call(listed, "", "other-ca.crt"), StartsWith("3 No answer from the agent at https://127.0.0.1:"));
  EXPECT_THAT(call(listed, "other.example.com"), HasSubstr("3 No answer"));
  EXPECT_EQ("ok", call(listed, "localhost"));
  for (const auto kind : {Certificate_Kind::EXPIRED, Certificate_Kind::OTHER_CA, Certificate_Kind::SELF_SIGNED,
                          Certificate_Kind::WRONG_NAME}) {
    write(kind, certificates_);
    EXPECT_THAT(call(listed), HasSubstr("3 No answer"));
  }
  EXPECT_EQ("ok", call(listed, "wrong.example.com")) << "the name that it has";
}

TEST_F(Access, CertificateIsReplacedWhileTheAgentRuns) {
  start_with_list();
  kube_sim_test::Tls_Peer before(port_, certificates_.ca());
  const Certificates others;
  write(Certificate_Kind::GOOD, others);
  EXPECT_THAT(call(listed), HasSubstr("3 No answer"));
  replace("ca.crt", others.ca(), 0644);
  EXPECT_EQ("ok", call(listed));
  const std::string request = R"({"jsonrpc":"2.0","id":1,"method":"agent.info"})";
  before.send(post(request, "Authorization: Bearer " + std::string(listed) + "\r\n"));
  EXPECT_EQ(200, before.reply().status) << "a connection goes on with its own";
  EXPECT_THAT(agent_->log(), HasSubstr("The certificate in '" + (dir_ / "tls.crt") + "' has been replaced."));
}

TEST_F(Access, WebSocketSpeaksTheChannelToo) {
  start_with_list();
  kube_sim_test::Tls_Peer peer(port_, certificates_.ca());
  peer.send(upgrade("Authorization: Bearer " + std::string(listed) + "\r\n"));
  ASSERT_EQ(101, peer.reply().status);
  peer.send_frame(1, R"({"jsonrpc":"2.0","id":7,"method":"agent.info"})");
  EXPECT_THAT(peer.frame().payload, HasSubstr(R"("id":7)"));
}

}  // namespace
}  // namespace test_support
