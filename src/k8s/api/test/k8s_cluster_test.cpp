#include "k8s/api/k8s_cluster.h"

#include "cluster_fixture.h"
#include "k8s/api/k8s_namespace.h"
#include "k8s/api/k8s_node.h"
#include "k8s/api/k8s_pod.h"
#include "k8s/api/k8s_storage_class.h"
#include "k8s/api/k8s_utils.h"

namespace {

using json_spirit::Array;
using json_spirit::Value;
using testing::ElementsAre;
using namespace test_support;

const char snapshot_group[] = "/apis/snapshot.storage.k8s.io";
const char no_aux[] = "Failed to get auxiliary agent information.\n";

template <typename T>
std::string list_failure(const std::string& reply, int status) {
  return string_sprintf("Failed to list type %s value\n%s\n type 0 status %d\n", typeid(T).name(),
                        json_spirit::JSON_Dump(json(reply), true).c_str(), status);
}

struct Cluster : Cluster_Fixture {
  void expect_version(const std::string& version) { expect("/version", 200, R"({"gitVersion":")" + version + "\"}"); }
  /// A cluster that is ready to be asked.
  void init() {
    expect_version("v1.36.2");
    expect(snapshot_group, 200, R"({"preferredVersion":{"groupVersion":"snapshot.storage.k8s.io/v1"}})");
    ASSERT_TRUE(cluster.init()) << log.all();
  }

  K8S_Cluster cluster;
};

// init

TEST_F(Cluster, InitReadsTheServerAndTheEnvironment) {
  expect(recorded("version-and-discovery", "server version"));
  expect(recorded("snapshot-api-present", "the group"));
  EXPECT_TRUE(cluster.init());
  EXPECT_EQ(cluster.get_k8s_version(), "v1.36.2");
  EXPECT_EQ(cluster.get_resource_gv("cronjobs"), "batch/v1");
  EXPECT_EQ(cluster.get_resource_gv("volumesnapshots"), "snapshot.storage.k8s.io/v1");
  EXPECT_EQ(cluster.get_resource_gv("volumesnapshotclasses"), "snapshot.storage.k8s.io/v1");
  EXPECT_EQ(cluster.get_aux_key(), "app");
  EXPECT_EQ(cluster.get_aux_value(), "aux");
  EXPECT_EQ(cluster.get_aux_port(), 9100);
  EXPECT_EQ(cluster.get_current_ns(), "agents");
  EXPECT_TRUE(errors().empty()) << log.all();
}

TEST_F(Cluster, InitComparesVersionsAsTexts) {
  const std::pair<const char*, const char*> cases[] = {
      {"v1.20.15", "batch/v1beta1"}, {"v1.21.0", "batch/v1"},       {"v1.21", "batch/v1beta1"},  {"v1.9.0", "batch/v1"},
      {"v1.3.0", "batch/v1"},        {"v1.100.0", "batch/v1beta1"}, {"v1.36.2+k3s1", "batch/v1"}};
  for (const auto& [version, group_version] : cases) {
    expect_version(version);
    expect(snapshot_group, 200, R"({"preferredVersion":{"groupVersion":"g/v"}})");
    EXPECT_TRUE(cluster.init());
    EXPECT_EQ(cluster.get_k8s_version(), version);
    EXPECT_EQ(cluster.get_resource_gv("cronjobs"), group_version) << version;
  }
}

TEST_F(Cluster, InitSucceedsWithoutTheSnapshotApi) {
  cluster.get_resource_gv("volumesnapshots") = "old/v1";
  expect_version("v1.21.0");
  expect(recorded("snapshot-api-absent", "snapshot group before its CRDs are installed"));
  EXPECT_TRUE(cluster.init());
  EXPECT_EQ(cluster.get_resource_gv("volumesnapshots"), "");
  EXPECT_EQ(cluster.get_resource_gv("volumesnapshotclasses"), "");
  EXPECT_THAT(errors(), ElementsAre("Failed to get snapshot version\nnull\n type=7,response=404\n"));
}

TEST_F(Cluster, InitTellsASnapshotGroupThatIsRefused) {
  const std::string reply = R"({"code":403})";
  expect_version("v1.21.0");
  expect(snapshot_group, 403, reply);
  EXPECT_TRUE(cluster.init());
  EXPECT_THAT(errors(), ElementsAre("Failed to get snapshot version\n" +
                                    json_spirit::JSON_Dump(json(reply), true).str() + "\n type=0,response=403\n"));
}

TEST_F(Cluster, InitKeepsTheGroupVersionsWhenTheServerPrefersNone) {
  for (const char* reply : {"{}", R"({"preferredVersion":{"groupVersion":""}})"}) {
    cluster.get_resource_gv("volumesnapshots") = "old/v1";
    expect_version("v1.21.0");
    expect(snapshot_group, 200, reply);
    EXPECT_TRUE(cluster.init());
    EXPECT_EQ(cluster.get_resource_gv("volumesnapshots"), "old/v1");
  }
  EXPECT_TRUE(errors().empty());
}

TEST_F(Cluster, InitFailsWithoutAVersion) {
  const std::string reply = R"({"code":401})";
  expect("/version", 401, reply);
  EXPECT_FALSE(cluster.init());
  EXPECT_THAT(errors(), ElementsAre("Failed to get version\n" + json_spirit::JSON_Dump(json(reply), true).str() +
                                    "\n type=0, response=401\n"));
  EXPECT_EQ(cluster.get_k8s_version(), "");
}

TEST_F(Cluster, InitFailsQuietlyWithAnEmptyVersion) {
  for (const char* reply : {"{}", R"({"gitVersion":""})", R"({"gitVersion":1})"}) {
    expect("/version", 200, reply);
    EXPECT_FALSE(cluster.init()) << reply;
  }
  EXPECT_TRUE(errors().empty());
}

TEST_F(Cluster, InitFailsWithAVersionThatIsNoObject) {
  expect("/version", 200, "[]");
  EXPECT_FALSE(cluster.init());
  EXPECT_THAT(errors(), ElementsAre("Failed to get version\n[]\n type=1, response=200\n"));
}

TEST_F(Cluster, InitNeedsAllOfTheAuxiliaryAgentsEnvironment) {
  const std::pair<const char*, const char*> missing[] = {{"AUX_KEY", ""},      {"AUX_VALUE", ""},
                                                         {"AUX_PORT", ""},     {"AUX_PORT", "0"},
                                                         {"AUX_PORT", "port"}, {"CURRENT_NAMESPACE", ""}};
  for (const auto& [name, value] : missing) {
    Aux_Environment variables;
    variables.set(name, value);
    expect_version("v1.21.0");
    expect(snapshot_group, 200, R"({"preferredVersion":{"groupVersion":"g/v"}})");
    log.clear();
    EXPECT_FALSE(cluster.init()) << name << "=" << value;
    EXPECT_THAT(errors(), ElementsAre(no_aux));
    EXPECT_EQ(cluster.get_k8s_version(), "v1.21.0");
    EXPECT_EQ(cluster.get_resource_gv("volumesnapshots"), "g/v");
  }
}

TEST_F(Cluster, AuxInfoKeepsWhatItReadAlsoWhenItFails) {
  unsetenv("AUX_PORT");
  EXPECT_FALSE(cluster.set_aux_info());
  EXPECT_EQ(cluster.get_aux_key(), "app");
  EXPECT_EQ(cluster.get_aux_value(), "aux");
  EXPECT_EQ(cluster.get_current_ns(), "agents");
  EXPECT_EQ(cluster.get_aux_port(), 0);
  EXPECT_THAT(errors(), ElementsAre(no_aux));
}

TEST_F(Cluster, IsEmptyBeforeInit) {
  EXPECT_EQ(cluster.get_k8s_version(), "");
  EXPECT_EQ(cluster.get_aux_port(), 0);
  K8S_Namespaces namespaces;
  Array nodes;
  EXPECT_FALSE(cluster.list_namespaces(namespaces, nullptr));
  EXPECT_FALSE(cluster.list_aux_nodes(nodes));
  EXPECT_EQ(cluster.list_aux_nodes_num(), 0);
  EXPECT_EQ(cluster.get_no_taint_node_num(), 0);
  EXPECT_FALSE(cluster.set_snapshot_version());
  EXPECT_EQ(emergencies(), std::vector<std::string>(5, "client_ is NULL:"));
}

TEST_F(Cluster, ResourceGvOfAnUnknownKeyIsEmptyAndWritable) {
  EXPECT_EQ(cluster.get_resource_gv("pods"), "");
  cluster.get_resource_gv("pods") = "v1";
  EXPECT_EQ(cluster.get_resource_gv("pods"), "v1");
}

TEST_F(Cluster, InstanceIsOneUntilItIsClosed) {
  K8S_Cluster* const first = K8S_Cluster::instance();
  ASSERT_NE(first, nullptr);
  first->get_resource_gv("a") = "b";
  EXPECT_EQ(K8S_Cluster::instance(), first);
  K8S_Cluster::close_instance();
  EXPECT_EQ(K8S_Cluster::instance()->get_resource_gv("a"), "");
  K8S_Cluster_fini();
  K8S_Cluster_fini();  // twice is harmless
}

// list_namespaces

struct ClusterNamespaces : Cluster {
  bool list(const std::string& items, const std::string* search_name = nullptr) {
    init();
    log.clear();
    expect("/api/v1/namespaces", 200, R"({"items":)" + items + "}");
    return cluster.list_namespaces(namespaces, search_name);
  }
  std::vector<std::string> names() const {
    std::vector<std::string> result;
    for (const K8S_Namespace_Info& info : namespaces) result.push_back(info.name);
    return result;
  }
  static std::string item(const std::string& name) {
    return R"({"metadata":{"name":")" + name + R"(","uid":"u"},"status":{"phase":"Active"}})";
  }

  K8S_Namespaces namespaces = {{"Active", "before", "0"}};
};

TEST_F(ClusterNamespaces, AreAppendedInTheServersOrder) {
  EXPECT_TRUE(list(R"([{"metadata":{"name":"z","uid":"1"},"status":{"phase":"Active"}}, 7,
                       {"metadata":{"name":"a","uid":"2"},"status":{"phase":"Terminating"}}])"));
  EXPECT_THAT(names(), ElementsAre("before", "z", "a"));
  EXPECT_EQ(namespaces[2].active, "Terminating");
  EXPECT_EQ(namespaces[2].uid, "2");
  EXPECT_TRUE(errors().empty());
}

TEST_F(ClusterNamespaces, OfARealServer) {
  init();
  expect(recorded("namespaces", "list while one is terminating"));
  EXPECT_TRUE(cluster.list_namespaces(namespaces, nullptr));
  EXPECT_THAT(names(), testing::Contains("shop"));
  for (const K8S_Namespace_Info& info : namespaces)
    EXPECT_EQ(info.active, info.name == "shop" ? "Terminating" : "Active");
}

TEST_F(ClusterNamespaces, OfTheClusterItselfAreHiddenByTheirLowerCasePrefix) {
  EXPECT_TRUE(list("[" + item("kube-system") + "," + item("default") + "," + item("Kube-lab") + "]"));
  EXPECT_THAT(names(), ElementsAre("before", "default", "Kube-lab"));
}

TEST_F(ClusterNamespaces, AreSearchedAnywhereInTheNameInWhateverCase) {
  const std::string search = "DEF";
  EXPECT_TRUE(list("[" + item("my-default") + "," + item("shop") + "," + item("kube-def") + "]", &search));
  EXPECT_THAT(names(), ElementsAre("before", "my-default"));
}

TEST_F(ClusterNamespaces, AreAllThereForAnEmptySearch) {
  const std::string search;
  EXPECT_TRUE(list("[" + item("a") + "]", &search));
  EXPECT_THAT(names(), ElementsAre("before", "a"));
}

TEST_F(ClusterNamespaces, ThatNonePassesIsNoFailure) {
  const std::string search = "x";
  EXPECT_TRUE(list("[" + item("a") + "]", &search));
  EXPECT_THAT(names(), ElementsAre("before"));
}

TEST_F(ClusterNamespaces, AMalformedItemEndsTheListAndKeepsWhatWasAppended) {
  const std::pair<const char*, const char*> cases[] = {
      {R"({"metadata":{"uid":"u"}})", "namespace_name is NULL or empty:"},
      {R"({"metadata":{"name":""}})", "namespace_name is NULL or empty:"},
      {R"({"metadata":{"name":"n"}})", "namespace_status is NULL or empty:"},
      {R"({"metadata":{"name":"kube-x"},"status":{"phase":1}})", "namespace_status is NULL or empty:"},
      {R"({"metadata":{"name":"n"},"status":{"phase":"Active"}})", "namespace_uid is NULL or empty:"},
  };
  for (const auto& [bad, message] : cases) {
    namespaces.clear();
    EXPECT_FALSE(list("[" + item("a") + "," + bad + "," + item("b") + "]")) << bad;
    EXPECT_THAT(names(), ElementsAre("a"));
    EXPECT_THAT(emergencies(), ElementsAre(message));
  }
}

TEST_F(ClusterNamespaces, WithoutItemsIsMalformed) {
  for (const char* items : {"[]", "{}", "null"}) {
    EXPECT_FALSE(list(items)) << items;
    EXPECT_THAT(emergencies(), ElementsAre("items is NULL or empty:"));
  }
}

TEST_F(ClusterNamespaces, ThatCannotBeListed) {
  init();
  expect("/api/v1/namespaces", 403, "{}");
  EXPECT_FALSE(cluster.list_namespaces(namespaces, nullptr));
  EXPECT_THAT(errors(), ElementsAre(list_failure<K8S_Namespace>("{}", 403), "Failed to list namespace.\n"));
}

// auxiliary agents

struct ClusterAux : Cluster {
  void expect_pods(const std::string& items) {
    init();
    log.clear();
    expect("/api/v1/namespaces/agents/pods?labelSelector=app%3Daux", 200, R"({"items":)" + items + "}");
  }
  bool list(const std::string& items) {
    expect_pods(items);
    return cluster.list_aux_nodes(nodes);
  }
  static std::string pod(const std::string& node, const std::string& phase) {
    return R"({"spec":{"nodeName":")" + node + R"("},"status":{"phase":")" + phase + R"("}})";
  }

  Array nodes = {"before"};
};

TEST_F(ClusterAux, NodesAreThoseOfTheRunningPods) {
  EXPECT_TRUE(list("[" + pod("n1", "Running") + ",7," + pod("n2", "Pending") + "," + pod("n1", "Running") + "]"));
  EXPECT_EQ(Value(nodes), json(R"(["before","n1","n1"])"));
  EXPECT_TRUE(errors().empty());
}

TEST_F(ClusterAux, NodesMayBeNoneWhilePodsAre) {
  const std::string items = "[" + pod("n1", "Pending") + "," + pod("n2", "running") + "," + pod("n3", "Failed") + "]";
  EXPECT_TRUE(list(items));
  EXPECT_EQ(Value(nodes), json(R"(["before"])"));
  expect_pods(items);
  EXPECT_EQ(cluster.list_aux_nodes_num(), 3);
}

TEST_F(ClusterAux, NodesFailWithoutPods) {
  for (const char* items : {"[]", "{}", "null"}) {
    EXPECT_FALSE(list(items)) << items;
    EXPECT_THAT(emergencies(), ElementsAre("items is NULL or empty:"));
  }
}

TEST_F(ClusterAux, NodesFailWithAPodThatHasNone) {
  EXPECT_FALSE(list("[" + pod("n1", "Running") + R"(,{"spec":{},"status":{}}])"));
  EXPECT_THAT(emergencies(), ElementsAre("node_name is NULL or empty:"));
  EXPECT_EQ(Value(nodes), json(R"(["before","n1"])"));
}

TEST_F(ClusterAux, NodesFailWithAPodWithoutAPhase) {
  EXPECT_FALSE(list(R"([{"spec":{"nodeName":"n1"}}])"));
  EXPECT_THAT(emergencies(), ElementsAre("pod_status is NULL or empty:"));
}

TEST_F(ClusterAux, CountTakesPodsOfAnyPhase) {
  expect_pods(R"([{},{"status":{"phase":"Failed"}}])");
  EXPECT_EQ(cluster.list_aux_nodes_num(), 2);
  for (const char* items : {"[]", "{}"}) {
    expect_pods(items);
    EXPECT_EQ(cluster.list_aux_nodes_num(), 0);
  }
  EXPECT_TRUE(emergencies().empty());
}

TEST_F(ClusterAux, PodsThatCannotBeListed) {
  const std::string target = "/api/v1/namespaces/agents/pods?labelSelector=app%3Daux";
  init();
  expect(target, 500, "{}");
  expect(target, 500, "{}");
  EXPECT_FALSE(cluster.list_aux_nodes(nodes));
  EXPECT_EQ(cluster.list_aux_nodes_num(), 0);
  const std::string refused = list_failure<K8S_Pod>("{}", 500);
  EXPECT_THAT(errors(),
              ElementsAre(refused, "Failed to list auxiliary pods.\n", refused, "Failed to list auxiliary pods.\n"));
}

// nodes that take new pods

struct ClusterNodes : Cluster {
  int count(const std::string& items) {
    init();
    log.clear();
    expect("/api/v1/nodes", 200, R"({"items":)" + items + "}");
    return cluster.get_no_taint_node_num();
  }
};

TEST_F(ClusterNodes, AreThoseWithoutATaintOfEffectNoSchedule) {
  EXPECT_EQ(count(R"([{"spec":{}},
                      {},
                      {"spec":{"taints":[]}},
                      {"spec":{"taints":[{"effect":"NoExecute"}]}},
                      {"spec":{"taints":[7,{},{"effect":""},{"effect":1},{"effect":"noschedule"}]}},
                      {"spec":{"taints":[{"effect":"PreferNoSchedule"},{"effect":"NoSchedule"}]}},
                      {"spec":{"taints":[{"effect":"NoSchedule"}]}},
                      7])"),
            5);
  EXPECT_TRUE(log.texts(LM_EMERGENCY).empty());
}

TEST_F(ClusterNodes, OfARealServer) {
  init();
  expect(recorded("nodes", "list"));
  EXPECT_EQ(cluster.get_no_taint_node_num(), 1);
}

TEST_F(ClusterNodes, WithoutItemsIsMalformed) {
  for (const char* items : {"[]", "{}"}) {
    EXPECT_EQ(count(items), 0);
    EXPECT_THAT(emergencies(), ElementsAre("items is NULL or empty:"));
  }
}

TEST_F(ClusterNodes, ThatCannotBeListed) {
  init();
  expect("/api/v1/nodes", 401, "{}");
  EXPECT_EQ(cluster.get_no_taint_node_num(), 0);
  EXPECT_THAT(errors(), ElementsAre(list_failure<K8S_Node>("{}", 401), "Failed to list no taint nodes.\n"));
}

// get_system_storage_classes

struct SystemStorageClasses : Cluster_Fixture {
  bool get(int status, const std::string& reply) {
    expect("/apis/storage.k8s.io/v1/storageclasses", status, reply);
    return k8s::get_system_storage_classes(names);
  }
  Storage_Class_Set names = {"before"};
};

TEST_F(SystemStorageClasses, AreAddedToTheSet) {
  EXPECT_TRUE(
      get(200, R"({"items":[{"metadata":{"name":"a"}},7,{"metadata":{"name":"b"}},{"metadata":{"name":"a"}}]})"));
  EXPECT_EQ(names, (Storage_Class_Set{"before", "a", "b"}));
  EXPECT_TRUE(errors().empty());
}

TEST_F(SystemStorageClasses, OfARealServer) {
  expect(recorded("storageclasses", "list"));
  EXPECT_TRUE(k8s::get_system_storage_classes(names));
  EXPECT_EQ(names.count("fast"), 1u);
}

TEST_F(SystemStorageClasses, MayBeNone) {
  EXPECT_TRUE(get(200, R"({"items":[]})"));
  EXPECT_EQ(names, (Storage_Class_Set{"before"}));
}

TEST_F(SystemStorageClasses, WithoutItemsIsMalformed) {
  for (const char* reply : {"{}", R"({"items":{}})"}) {
    log.clear();
    EXPECT_FALSE(get(200, reply)) << reply;
    EXPECT_THAT(emergencies(), ElementsAre("items is NULL:"));
  }
}

TEST_F(SystemStorageClasses, AClassWithoutANameEndsTheList) {
  EXPECT_FALSE(get(200, R"({"items":[{"metadata":{"name":"a"}},{"metadata":{}},{"metadata":{"name":"b"}}]})"));
  EXPECT_THAT(emergencies(), ElementsAre("sc is NULL or empty:"));
  EXPECT_EQ(names, (Storage_Class_Set{"before", "a"}));
}

TEST_F(SystemStorageClasses, ThatCannotBeListed) {
  EXPECT_FALSE(get(403, "{}"));
  EXPECT_THAT(errors(), ElementsAre(list_failure<K8S_Storage_Class>("{}", 403)));
}

}  // namespace
