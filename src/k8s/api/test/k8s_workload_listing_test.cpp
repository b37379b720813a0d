#include "k8s/api/k8s_utils.h"
#include "k8s/api/k8s_workload_factory.h"
#include "kolt/make_shared_nothrow.h"
#include "simulated_cluster.h"

namespace {

using testing::UnorderedElementsAre;
using namespace test_support;

const char pod_spec[] = R"({"containers":[{"name":"c","image":"i"}]})";
const std::string set_spec =
    R"({"selector":{"matchLabels":{"app":"a"}},"template":{"metadata":{"labels":{"app":"a"}},"spec":)" +
    std::string(pod_spec) + "}}";

/// A listing of a whole cluster, as its server sees it.
struct Workload_Listing : Simulated_Cluster {
  void pod(const std::string& ns, const std::string& name, const std::string& more = R"("labels":{"app":"a"})") {
    create("", "pods",
           R"({"kind":"Pod","apiVersion":"v1","metadata":{"name":")" + name + R"(","namespace":")" + ns + R"(",)" +
               more + R"(},"spec":)" + pod_spec + "}");
  }
  void set(const std::string& kind, const std::string& ns, const std::string& name, const std::string& more) {
    create("apps", k8s::kind_to_resource(kind),
           R"({"kind":")" + kind + R"(","apiVersion":"apps/v1","metadata":{"name":")" + name + R"(","namespace":")" +
               ns + R"(",)" + more + R"(},"spec":)" + set_spec + "}");
  }
  std::string owned_by(const std::string& kind, const std::string& name) {
    return R"("labels":{"app":"a"},"ownerReferences":[{"apiVersion":"apps/v1","kind":")" + kind + R"(","name":")" +
           name + R"(","uid":"u"}])";
  }
  /// A deployment with all that belongs to it: three objects have an owner.
  void application(const std::string& ns) {
    set("Deployment", ns, "web", R"("labels":{"app":"a"})");
    set("ReplicaSet", ns, "web-1", owned_by("Deployment", "web"));
    pod(ns, "web-1-x", owned_by("ReplicaSet", "web-1"));
    pod(ns, "web-1-y", owned_by("ReplicaSet", "web-1"));
  }
  std::vector<std::string> listed() const {
    std::vector<std::string> result;
    for (const json_spirit::Value& entry : workloads) {
      const auto& members = entry.get_obj();
      result.push_back(members.at("namespace").get_str() + "/" + members.at("type").get_str() + "/" +
                       members.at("name").get_str());
    }
    return result;
  }
  bool list(const std::string* ns) {
    return K8S_Workload_Helper(make_shared_nothrow<K8S_Client>()).list_workload_objects(workloads, ns, nullptr);
  }

  json_spirit::Array workloads;
};

TEST_F(Workload_Listing, ShowsOwnersInPlaceOfWhatTheyOwn) {
  application("shop");
  pod("shop", "bare");
  pod("shop", "on-a-node", owned_by("Node", "n1"));
  pod("shop", "orphan", owned_by("ReplicaSet", "gone"));
  pod("kube-system", "of-the-system");
  EXPECT_TRUE(list(nullptr));
  EXPECT_THAT(listed(), UnorderedElementsAre("shop/deployments/web", "agents/pods/aux-1", "shop/pods/bare",
                                             "shop/pods/on-a-node", "shop/pods/orphan"));
  workloads.clear();
  const std::string ns = "shop";
  EXPECT_TRUE(list(&ns));
  EXPECT_THAT(listed(), UnorderedElementsAre("shop/deployments/web", "shop/pods/bare", "shop/pods/on-a-node",
                                             "shop/pods/orphan"));
}

TEST_F(Workload_Listing, SendsOneRequestForEachKindAndEachOwnerOverOneConnection) {
  constexpr std::size_t namespaces = 20, kinds = 7, owners = 3 * namespaces;
  for (std::size_t i = 0; i < namespaces; ++i) {
    const std::string ns = "n-" + std::to_string(i);
    create_namespace(ns);
    application(ns);
    pod(ns, "bare");
    pod(ns, "without-labels", R"("ownerReferences":[{"apiVersion":"apps/v1","kind":"ReplicaSet","name":"web-1",
                                                     "uid":"u"}])");
    pod(ns, "on-a-node", owned_by("Node", "n1"));
  }
  const std::size_t connections = front.connections();
  EXPECT_TRUE(list(nullptr));
  EXPECT_EQ(workloads.size(), 4 * namespaces + 1);
  EXPECT_EQ(front.requests().size(), kinds + owners);
  EXPECT_EQ(front.connections(), connections + 1);
}

}  // namespace
