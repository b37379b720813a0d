
#include "k8s/api/k8s_utils.h"
#include "simulated_cluster.h"

namespace {

using json_spirit::JSON_Dump;
using json_spirit::obj_type;
using json_spirit::Object;
using json_spirit::str_type;
using json_spirit::Value;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace test_support;

const char agent_pods[] = "/api/v1/namespaces/agents/pods?fieldSelector=spec.nodeName%3Dn1&labelSelector=app%3Daux";
const char running_pods[] = "/api/v1/namespaces/agents/pods?labelSelector=app%3Daux";

struct Node_Rpc : Simulated_Cluster {
  void agent_answers(int status, const std::string& body) {
    agent.expect("POST", "/d2/jr", kube_sim::json_answer(status, body));
  }
  /// What the API server answers in place of the pods of the agents.
  void pods_are(int status, const std::string& body) {
    front.fail({.path = "/api/v1/namespaces/agents/pods"}, {.answer = kube_sim::json_answer(status, body)});
  }
  bool ask(json_spirit::Value_type type = obj_type) {
    return k8s::node_rpc_request("n1", "k8s.get_pvc_size", {{"path", "/data/*"}}, result, type);
  }
  std::string no_answer(const std::string& body, int type) {
    const Value reply = body.empty() ? Value() : json(body);
    return string_sprintf("Failed to send json rpc to '127.0.0.1', resp_data '%s' type '%d'.\n",
                          JSON_Dump(reply, false).c_str(), type);
  }

  Value result{"before"};
};

TEST_F(Node_Rpc, PostsOneRequestToTheAgentOnTheNode) {
  agent_answers(200, R"({"jsonrpc":"2.0","id":"x","result":{"size":7}})");
  ASSERT_TRUE(ask()) << log.all();
  EXPECT_EQ(result, json(R"({"size":7})"));

  EXPECT_THAT(requests(), ElementsAre(std::string("GET ") + agent_pods));
  ASSERT_EQ(agent_front.requests().size(), 1u);
  const kube_sim::Request request = agent_front.requests()[0];
  EXPECT_EQ(request.header("authorization"), "Bearer " + account.token());
  Object body = json(request.body).get_obj();
  EXPECT_FALSE(body["id"].get_str().empty());
  body.erase("id");
  EXPECT_EQ(JSON_Dump(body, false).str(),
            R"({"jsonrpc":"2.0","method":"k8s.get_pvc_size","params":{"path":"/data/*"}})");
  EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(Node_Rpc, NumbersEachRequestAnew) {
  for (int i = 0; i < 2; ++i) {
    agent_answers(200, R"({"result":{}})");
    EXPECT_TRUE(ask());
  }
  const auto requests = agent_front.requests();
  EXPECT_NE(json(requests.at(0).body).get_obj()["id"], json(requests.at(1).body).get_obj()["id"]);
}

TEST_F(Node_Rpc, GivesATextWhereOneIsAskedFor) {
  agent_answers(200, R"({"result":"seven"})");
  EXPECT_TRUE(ask(str_type));
  EXPECT_EQ(result, Value("seven"));
}

TEST_F(Node_Rpc, CallsTheFirstOfSeveralAgentsWhateverItsPhase) {
  pods_are(200, R"({"items":[{"status":{"podIP":"127.0.0.1","phase":"Pending"}},
                             {"status":{"podIP":"192.0.2.1","phase":"Running"}}]})");
  agent_answers(200, R"({"result":{}})");
  EXPECT_TRUE(ask());
}

TEST_F(Node_Rpc, FailsWhenPodsCannotBeListed) {
  for (const auto& [status, reply] : {std::pair(403, "{}"), std::pair(200, "[]")}) {
    log.clear();
    pods_are(status, reply);
    EXPECT_FALSE(ask());
    EXPECT_EQ(errors().back(), "Failed to list pods for node 'n1'.\n");
    EXPECT_THAT(emergencies(), IsEmpty());
  }
}

TEST_F(Node_Rpc, FailsOnANodeWithoutAnAgentThatHasAnAddress) {
  for (const char* pods : {R"({"items":[]})", "{}", R"({"items":[{"status":{}}]})",
                           R"({"items":[{"status":{"podIP":""}},{"status":{"podIP":"127.0.0.1"}}]})"}) {
    log.clear();
    pods_are(200, pods);
    EXPECT_FALSE(ask()) << pods;
    EXPECT_THAT(emergencies(), ElementsAre("pod_ip is NULL or empty:"));
    EXPECT_THAT(errors(), IsEmpty());
  }
}

TEST_F(Node_Rpc, ShowsWhatAnAgentAnsweredWithAnotherStatus) {
  const char body[] = R"({"error":"broken"})";
  for (const int status : {500, 503, 401, 202, 302}) {
    log.clear();
    agent_answers(status, body);
    EXPECT_FALSE(ask()) << status;
    EXPECT_THAT(errors(), ElementsAre(no_answer(body, obj_type)));
  }
  EXPECT_EQ(agent_front.requests().size(), 5u);  // nothing is repeated
}

TEST_F(Node_Rpc, FailsOnAnAnswerThatIsNoObject) {
  agent_answers(200, "[1]");
  EXPECT_FALSE(ask());
  EXPECT_THAT(errors(), ElementsAre(no_answer("[1]", json_spirit::array_type)));
}

TEST_F(Node_Rpc, FailsOnAnAnswerThatIsNoJson) {
  agent_answers(200, "hello");
  EXPECT_FALSE(ask());
  EXPECT_EQ(errors().back(), no_answer("", json_spirit::null_type));
}

TEST_F(Node_Rpc, FailsWhenTheConnectionIsLost) {
  agent_answers(200, R"({"result":{}})");
  agent_front.fail({}, {.end = kube_sim::Fault::End::DROP_BEFORE_HEAD});
  EXPECT_FALSE(ask());
  EXPECT_EQ(errors().back(), no_answer("", json_spirit::null_type));
  EXPECT_EQ(agent_front.requests().size(), 1u);
}

TEST_F(Node_Rpc, ShowsTheTokenToNobodyWhoseCertificateIsNotTheClusters) {
  kube_sim::Front stranger(agent, {.certificate = kube_sim::Certificate_Kind::OTHER_CA, .certificates = &certificates});
  environment.set("AUX_PORT", std::to_string(stranger.port()).c_str());
  K8S_Cluster::instance()->set_aux_info();
  EXPECT_FALSE(ask());
  EXPECT_EQ(errors().back(), no_answer("", json_spirit::null_type));
  EXPECT_THAT(stranger.requests(), IsEmpty());
}

TEST_F(Node_Rpc, RefusesAResultOfAnotherTypeThanAskedFor) {
  const std::tuple<const char*, json_spirit::Value_type, const char*> cases[] = {
      {R"({"result":"text"})", obj_type, "obj_ptr is NULL:"},
      {R"({"result":{"a":1}})", str_type, "str_ptr is NULL:"},
      {R"({"result":7})", str_type, "str_ptr is NULL:"},
      {R"({"error":{"code":-32602,"message":"no"}})", obj_type, "obj_ptr is NULL:"},
      {R"({"error":{"code":-32602,"message":"no"}})", str_type, "str_ptr is NULL:"},
  };
  for (const auto& [answer, type, what] : cases) {
    log.clear();
    agent_answers(200, answer);
    EXPECT_FALSE(ask(type)) << answer;
    EXPECT_THAT(emergencies(), ElementsAre(what));
    EXPECT_EQ(result, Value("before"));
  }
}

TEST_F(Node_Rpc, RefusesTypesThatItDoesNotKnowAfterTheAnswer) {
  for (const json_spirit::Value_type type : {json_spirit::array_type, json_spirit::int_type, json_spirit::null_type}) {
    log.clear();
    agent_answers(200, R"({"result":[1]})");
    EXPECT_FALSE(ask(type));
    EXPECT_THAT(errors(), ElementsAre(string_sprintf("Invalid response required type '%d'.\n", type)));
    EXPECT_EQ(result, Value("before"));
  }
  EXPECT_EQ(agent_front.requests().size(), 3u);
}

// get_ramdom_online_aux_agent

struct Online_Agent : Cluster_Fixture {
  Online_Agent() {
    expect("/version", 200, R"({"gitVersion":"v1.36.2"})");
    expect("/apis/snapshot.storage.k8s.io", 200, R"({"preferredVersion":{"groupVersion":"g/v1"}})");
    EXPECT_TRUE(K8S_Cluster::instance()->init());
  }
  ~Online_Agent() override { K8S_Cluster::close_instance(); }

  std::string node = "before";
};

TEST_F(Online_Agent, IsTheFirstThatRuns) {
  expect(running_pods, 200, R"({"items":[{"spec":{"nodeName":"n1"},"status":{"phase":"Pending"}},
                                         {"spec":{"nodeName":"n3"},"status":{"phase":"Running"}},
                                         {"spec":{"nodeName":"n2"},"status":{"phase":"Running"}}]})");
  EXPECT_TRUE(k8s::get_ramdom_online_aux_agent(node));
  EXPECT_EQ(node, "n3");
}

TEST_F(Online_Agent, IsUnknownIfItsPodsCannotBeListed) {
  expect(running_pods, 403, "{}");
  EXPECT_FALSE(k8s::get_ramdom_online_aux_agent(node));
  EXPECT_EQ(errors().back(), "Failed to list auxiliary nodes.\n");
  EXPECT_EQ(node, "before");
}

TEST_F(Online_Agent, IsMissedWhereNoneRuns) {
  for (const char* pods : {R"({"items":[{"spec":{"nodeName":"n1"},"status":{"phase":"Pending"}}]})", R"({"items":[]})",
                           R"({"items":[{"spec":{},"status":{"phase":"Running"}}]})"}) {
    log.clear();
    expect(running_pods, 200, pods);
    EXPECT_FALSE(k8s::get_ramdom_online_aux_agent(node)) << pods;
    EXPECT_EQ(errors().back(), "Failed to list auxiliary nodes.\n");
    EXPECT_EQ(node, "before");
  }
}

}  // namespace
