// A call to another agent: whom it trusts, and what it shows.
#include "http/json_restful_client.h"
#include "http/test/network_fixture.h"
#include "http/websocket_options.h"
#include "support/temp_dir.h"

namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

class Agent_Call : public Network_Test {
 protected:
  ~Agent_Call() override { peers().set_identity({}); }

  static WebSocket_Options& peers() { return *WebSocket_Options::instance(); }
  bool call(const kube_sim::Front& agent, bool ssl = true) {
    log_.clear();
    Common_JSON_RESTful_Client client("127.0.0.1", agent.port(), ssl, false, true);
    const json_spirit::Value body = json_spirit::Object();
    return client.post("/d2/jr", &body, response_, &value_);
  }
  void expect_refused(Kind kind, const std::string& reason) {
    const kube_sim::Front agent(api_, {.certificate = kind, .certificates = &certificates_});
    EXPECT_FALSE(call(agent));
    EXPECT_THAT(log_.texts(LM_ERROR), testing::ElementsAre(HasSubstr(reason)));
    EXPECT_THAT(agent.requests(), IsEmpty());
  }
  std::string shown() const { return front_.requests().back().header("authorization"); }

  const test_support::Temp_Dir dir_;
};

TEST_F(Agent_Call, shows_the_token_of_the_service_account) {
  EXPECT_TRUE(call(front_)) << log_.all();
  EXPECT_EQ("Bearer canary-token", shown());
}

TEST_F(Agent_Call, shows_a_rotated_token_with_the_next_call) {
  EXPECT_TRUE(call(front_));
  account_.set_token("rotated-token\n");
  EXPECT_TRUE(call(front_));
  EXPECT_EQ("Bearer rotated-token", shown());
}

TEST_F(Agent_Call, shows_the_token_that_it_was_told_to) {
  peers().set_identity({"", "", dir_.write("token", "for-agents\n")});
  EXPECT_TRUE(call(front_));
  EXPECT_EQ("Bearer for-agents", shown());
  peers().set_identity({"", "", dir_ / "none"});
  EXPECT_TRUE(call(front_));
  EXPECT_EQ("", shown()) << "and not that of the service account in its place";
}

TEST_F(Agent_Call, does_not_trust_agents_that_do_not_prove_who_they_are) {
  expect_refused(Kind::EXPIRED, "certificate has expired");
  expect_refused(Kind::OTHER_CA, "certificate");
  expect_refused(Kind::SELF_SIGNED, "certificate");
  expect_refused(Kind::WRONG_NAME, "'127.0.0.1'");
}

TEST_F(Agent_Call, trusts_those_whom_the_ca_of_the_agents_has_signed_and_no_others) {
  const kube_sim::Certificates agents;
  const kube_sim::Front agent(api_, {.certificates = &agents});
  EXPECT_FALSE(call(agent));
  peers().set_identity({dir_.write("ca.crt", agents.ca()), "", ""});
  EXPECT_TRUE(call(agent)) << log_.all();
  EXPECT_FALSE(call(front_)) << "the cluster's CA is none of the agents";
}

TEST_F(Agent_Call, takes_a_rotated_ca_with_the_next_call) {
  const kube_sim::Certificates before, after;
  const kube_sim::Front old_agent(api_, {.certificates = &before}), new_agent(api_, {.certificates = &after});
  peers().set_identity({dir_.write("ca.crt", before.ca()), "", ""});
  EXPECT_TRUE(call(old_agent));
  dir_.write("ca.crt", after.ca());
  EXPECT_TRUE(call(new_agent)) << log_.all();
  EXPECT_FALSE(call(old_agent));
}

TEST_F(Agent_Call, has_no_other_issuers_where_the_ca_file_is_broken) {
  for (const std::string& file : {dir_ / "none", dir_.write("empty", "")}) {
    peers().set_identity({file, "", ""});
    EXPECT_FALSE(call(front_));
    EXPECT_THAT(log_.texts(LM_ERROR), SizeIs(1));
  }
  EXPECT_THAT(front_.requests(), IsEmpty());
}

TEST_F(Agent_Call, expects_the_name_of_agents_in_place_of_the_address) {
  const kube_sim::Front agent(api_, {.certificate = Kind::WRONG_NAME, .certificates = &certificates_});
  peers().set_identity({"", "wrong.example.com", ""});
  EXPECT_TRUE(call(agent)) << log_.all();
  EXPECT_THAT(agent.requests().at(0).header("host"), HasSubstr("wrong.example.com"));
  peers().set_identity({"", "other.example.com", ""});
  EXPECT_FALSE(call(agent));
  EXPECT_FALSE(call(front_)) << "the address alone is not enough then";
}

TEST_F(Agent_Call, goes_to_no_host_that_is_a_part_of_a_url) {
  peers().set_identity({"", "name/path", ""});
  EXPECT_FALSE(call(front_));
  EXPECT_THAT(log_.texts(LM_ERROR).front(), HasSubstr("'127.0.0.1', named 'name/path', is no host of an agent."));
}

TEST_F(Agent_Call, carries_the_token_to_no_other_host) {
  kube_sim_test::Simple_Api elsewhere;
  elsewhere.on_request = [](const kube_sim::Request&) { return kube_sim::Answer{200, "application/json", "{}", {}}; };
  const kube_sim::Front other(elsewhere, {.certificates = &certificates_});
  for (const int status : {301, 302, 303, 307, 308}) {
    api_.on_request = [&, status](const kube_sim::Request&) {
      return kube_sim::Answer{status, "", "", {{"Location", other.url() + "/d2/jr"}}};
    };
    EXPECT_TRUE(call(front_));
    EXPECT_EQ(status, response_.status());
  }
  EXPECT_THAT(other.requests(), IsEmpty());
}

TEST_F(Agent_Call, shows_no_token_without_tls) {
  EXPECT_FALSE(call(front_, false));
  EXPECT_THAT(log_.all(), testing::Not(HasSubstr("canary")));
  EXPECT_THAT(front_.requests(), IsEmpty());
}

}  // namespace
