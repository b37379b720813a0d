#include "k8s/api/k8s_node.h"

#include "resource_fixture.h"

namespace {

using json_spirit::Value;
using testing::ElementsAre;
using namespace test_support;

const char get_a[] = "GET /api/v1/nodes/a";

struct Node : Resource_Fixture {
  /// get_node_addr() of a node with this "status"."addresses".
  bool read(const std::string& addresses) {
    server.expect({get_a, 200, R"({"status":{"addresses":)" + addresses + "}}"});
    return K8S_Node(server.client()).get_node_addr("a", addr);
  }

  std::string addr = "untouched";
};

TEST_F(Node, AddressIsTheFirstInternalOne) {
  EXPECT_TRUE(read(R"([{"type":"Hostname","address":"a"},{"type":"InternalIP","address":"10.0.0.1"},
                       {"type":"InternalIP","address":"10.0.0.2"}])"));
  EXPECT_EQ(addr, "10.0.0.1");
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(Node, AddressOfARecordedNode) {
  server.expect(recorded("nodes", "get the node with addresses and taints"));
  EXPECT_TRUE(K8S_Node(server.client()).get_node_addr("worker-1", addr));
  EXPECT_EQ(addr, "10.1.2.3");
}

TEST_F(Node, EntriesThatAreNoObjectsArePassedOver) {
  EXPECT_TRUE(read(R"([7,"InternalIP",null,{"type":"InternalIP","address":"10.0.0.1"}])"));
  EXPECT_EQ(addr, "10.0.0.1");
}

TEST_F(Node, WithoutAnInternalAddressHasNone) {
  EXPECT_FALSE(read(R"([{"type":"ExternalIP","address":"1.2.3.4"},{"type":"internalIP","address":"10.0.0.1"}])"));
  EXPECT_EQ(addr, "untouched");
  EXPECT_THAT(errors(), ElementsAre("Failed to get node address for a.\n"));
}

TEST_F(Node, WithoutAddressesIsMalformed) {
  for (const char* addresses : {"[]", "{}", "null", "\"10.0.0.1\""}) {
    log.clear();
    EXPECT_FALSE(read(addresses)) << addresses;
    EXPECT_THAT(emergencies(), ElementsAre("k8s/api/k8s_node.cpp, addrs is NULL or empty:"));
  }
  EXPECT_EQ(addr, "untouched");
}

TEST_F(Node, AnEntryWithoutATypeEndsTheSearch) {
  for (const char* entry :
       {R"({"address":"x"})", R"({"address":"x","type":""})", R"({"address":"x","type":1})", "{}"}) {
    log.clear();
    EXPECT_FALSE(read(std::string("[") + entry + R"(,{"type":"InternalIP","address":"10.0.0.1"}])")) << entry;
    EXPECT_THAT(emergencies(), ElementsAre("k8s/api/k8s_node.cpp, type is NULL or empty:"));
  }
  EXPECT_EQ(addr, "untouched");
}

TEST_F(Node, AnEntryWithoutAnAddressEndsTheSearch) {
  EXPECT_FALSE(read(R"([{"type":"Hostname"},{"type":"InternalIP","address":"10.0.0.1"}])"));
  EXPECT_THAT(emergencies(), ElementsAre("k8s/api/k8s_node.cpp, address is NULL or empty:"));
  EXPECT_EQ(addr, "untouched");
}

TEST_F(Node, ThatCannotBeReadIsLoggedTwice) {
  server.expect(recorded("nodes", "get one that does not exist"));
  const std::string reply = recorded("nodes", "get one that does not exist").reply;
  EXPECT_FALSE(K8S_Node(server.client()).get_node_addr("worker-1", addr));
  EXPECT_THAT(errors(), ElementsAre(get_failure<K8S_Node>("worker-1", reply, 404),
                                    "Failed to get node information for worker-1.\n"));
}

TEST_F(Node, ThatIsNoObjectIsMalformed) {
  struct Array_Node : K8S_Node {
    using K8S_Node::K8S_Node;
    bool get(const std::string&, Value& val, bool) override {
      val = json("[]");
      return true;
    }
  };
  EXPECT_FALSE(Array_Node(server.client()).get_node_addr("a", addr));
  EXPECT_THAT(emergencies(), ElementsAre("k8s/api/k8s_node, val is not object!"));
}

TEST_F(Node, IsNeverDeletedNorMade) {
  K8S_Node nodes(server.client());
  EXPECT_FALSE(nodes.delete_("a", true, 1));
  EXPECT_FALSE(nodes.post(json("{}")));
  EXPECT_THAT(errors(),
              ElementsAre("K8S node delete method not implemented.\n", "K8S node post method not implemented.\n"));
}

TEST_F(Node, HasNoCollectionAcrossNamespaces) {
  Value val;
  EXPECT_FALSE(K8S_Node(server.client()).list_all(val, {}));
  EXPECT_THAT(emergencies(), ElementsAre("k8s/api/k8s_resource.cpp, all_url_ is empty:"));
}

}  // namespace
