#include "support/kube_sim/cluster_api.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/kube_sim/controllers.h"
#include "support/kube_sim/front.h"
#include "support/kube_sim/preload.h"
#include "support/kube_sim/scripted_exec.h"
#include "support/kube_sim/test/tls_peer.h"
#include "support/temp_dir.h"

using namespace kube_sim;
using namespace kube_sim_test;
using testing::HasSubstr;

namespace {

constexpr char v4[] = "v4.channel.k8s.io";

struct Cluster_Api_Test : testing::Test {
  test_support::Temp_Dir dir;
  Cluster cluster;
  Cluster_Api api{cluster, dir.path()};
  Front front{api};
  std::string token = "kube-sim-token";

  Cluster_Api_Test() {
    add_node(cluster, "node-1");
    add_pod("one", R"([{"name":"main","image":"i"}])");
    add_pod("two", R"([{"name":"main","image":"i"},{"name":"side","image":"i"}])");
    {
      const Controllers controllers(cluster);
      EXPECT_TRUE(controllers.settle());
    }
    add_pod("pending", R"([{"name":"main","image":"i"}])");
  }
  void add_pod(const std::string& name, const std::string& containers) {
    json_spirit::Value pod;
    ASSERT_TRUE(
        json_spirit::loads_json((R"({"kind":"Pod","apiVersion":"v1","metadata":{"namespace":"default","name":")" +
                                 name + R"("},"spec":{"containers":)" + containers + "}}")
                                    .c_str(),
                                pod));
    EXPECT_EQ(preload(cluster, pod), 1u);
  }
  /// An upgrade with the token.
  Reply upgrade(Tls_Peer& peer, const std::string& pod_and_query) {
    peer.get("/api/v1/namespaces/default/pods/" + pod_and_query,
             "Authorization: Bearer " + token +
                 "\r\nConnection: Upgrade\r\nUpgrade: websocket\r\nSec-WebSocket-Version: 13\r\nSec-WebSocket-Key: "
                 "dGhlIHNhbXBsZSBub25jZQ==\r\nSec-WebSocket-Protocol: " +
                 v4 + "\r\n");
    return peer.reply();
  }
  Reply refused(const std::string& pod_and_query) {
    Tls_Peer peer(front.port(), front.ca());
    return upgrade(peer, pod_and_query);
  }
};

TEST_F(Cluster_Api_Test, a_command_runs_in_a_container) {
  Tls_Peer peer(front.port(), front.ca());
  EXPECT_EQ(upgrade(peer, "one/exec?stdout=True&command=/bin/sh&command=-c&command=pwd").status, 101);
  EXPECT_EQ(peer.frame().payload, "\1");
  EXPECT_EQ(peer.frame().payload, "\1" + (dir / "default/one/main") + "\n");
}

TEST_F(Cluster_Api_Test, a_script_takes_the_place_of_commands) {
  Exec_Target seen;
  api.set_exec([&](const Exec_Target& target) {
    seen = target;
    return std::make_unique<Scripted_Exec>(Exec_Script().output("1\n").exit(0), target.command);
  });
  Tls_Peer peer(front.port(), front.ca());
  EXPECT_EQ(upgrade(peer, "two/exec?stdin=True&container=side&command=du&command=-sb").status, 101);
  EXPECT_EQ(peer.frame().payload, "\1");
  EXPECT_EQ(peer.frame().payload,
            "\1"
            "1\n");
  EXPECT_EQ(seen.container, "side");
  EXPECT_THAT(seen.command, testing::ElementsAre("du", "-sb"));
  EXPECT_TRUE(seen.with_input);
}

TEST_F(Cluster_Api_Test, a_pod_that_is_not_there_is_404) {
  const Reply reply = refused("nothing/exec?command=true");
  EXPECT_EQ(reply.status, 404);
  EXPECT_THAT(reply.body, HasSubstr(R"(pods \"nothing\" not found)"));
}

TEST_F(Cluster_Api_Test, no_container_named_among_several_is_400) {
  const Reply reply = refused("two/exec?command=true");
  EXPECT_EQ(reply.status, 400);
  EXPECT_THAT(reply.body, HasSubstr("a container name must be specified for pod two, choose one of: [main side]"));
}

TEST_F(Cluster_Api_Test, a_container_that_is_not_there_is_400) {
  const Reply reply = refused("two/exec?container=nope&command=true");
  EXPECT_EQ(reply.status, 400);
  EXPECT_THAT(reply.body, HasSubstr("container nope is not valid for pod two"));
}

TEST_F(Cluster_Api_Test, a_container_that_does_not_run_is_500) {
  const Reply reply = refused("pending/exec?command=true");
  EXPECT_EQ(reply.status, 500);
  EXPECT_EQ(reply.body, "container not found (\"main\")");
}

TEST_F(Cluster_Api_Test, a_wrong_token_is_401) {
  token = "wrong";
  EXPECT_EQ(refused("one/exec?command=true").status, 401);
}

TEST_F(Cluster_Api_Test, all_else_is_the_clusters) {
  Tls_Peer peer(front.port(), front.ca());
  EXPECT_THAT(peer.reply_to("/api/v1/namespaces/default/pods/one", "Authorization: Bearer " + token + "\r\n").body,
              HasSubstr(R"("kind":"Pod")"));
  EXPECT_EQ(peer.reply_to("/api/v1/pods").status, 403);
}

}  // namespace
