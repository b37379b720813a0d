#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>

#include "json_spirit/extract.h"
#include "support/kube_sim/cluster.h"
#include "support/kube_sim/front.h"
#include "support/temp_dir.h"

// The ordinary command line of Kubernetes against the simulated cluster, over TLS.
namespace kube_sim {
namespace {

struct Outcome {
  int status = -1;
  /// Standard output and standard error.
  std::string text;
};

Outcome run(const std::string& command) {
  Outcome outcome;
  FILE* const pipe = popen((command + " 2>&1").c_str(), "r");
  if (!pipe) return outcome;
  char buffer[4096];
  for (std::size_t got; (got = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) outcome.text.append(buffer, got);
  const int status = pclose(pipe);
  outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return outcome;
}

class Kubectl : public testing::Test {
 protected:
  Kubectl() : front_(cluster_) {}

  void SetUp() override {
    if (run("command -v kubectl").status != 0) GTEST_SKIP() << "no kubectl on the PATH";
    dir_.write("ca.pem", front_.ca());
    dir_.write("config",
               "apiVersion: v1\nkind: Config\ncurrent-context: sim\n"
               "clusters: [{name: sim, cluster: {server: \"" +
                   front_.url() + "\", certificate-authority: " + dir_.path() +
                   "/ca.pem}}]\n"
                   "users: [{name: sim, user: {token: " +
                   Cluster_Options().token +
                   "}}]\n"
                   "contexts: [{name: sim, context: {cluster: sim, user: sim, namespace: default}}]\n");
  }

  /// What kubectl prints; a failure of it fails the test.
  std::string kubectl(const std::string& arguments) {
    const Outcome outcome = run("cd " + dir_.path() + " && HOME=" + dir_.path() +
                                " KUBECONFIG=config kubectl --request-timeout=20s " + arguments);
    EXPECT_EQ(outcome.status, 0) << "kubectl " << arguments << "\n" << outcome.text;
    return outcome.text;
  }

  /// The same from a document on standard input.
  std::string kubectl_with(const std::string& document, const std::string& arguments) {
    dir_.write("input.json", document);
    return kubectl(arguments + " -f input.json");
  }

  std::string member(const Object_Id& id, const char* pointer) {
    std::string text;
    const auto object = cluster_.get(id);
    if (object) json_spirit::pextract (*object)(pointer, text);
    return text;
  }

  static std::string config_map(const std::string& name, const std::string& value) {
    return R"({"kind":"ConfigMap","apiVersion":"v1","metadata":{"name":")" + name +
           R"(","labels":{"app":"shop"}},"data":{"key":")" + value + "\"}}";
  }

  static std::string deployment(const std::string& image) {
    return R"({"kind":"Deployment","apiVersion":"apps/v1","metadata":{"name":"web"},"spec":{"replicas":1,
      "selector":{"matchLabels":{"app":"web"}},"template":{"metadata":{"labels":{"app":"web"}},"spec":{"containers":[
      {"name":"main","image":")" +
           image + R"("},{"name":"side","image":"registry.invalid/side:1"}]}}}})";
  }

  test_support::Temp_Dir dir_;
  Cluster cluster_;
  Front front_;
  const Object_Id web_{"apps", "deployments", "default", "web"};
};

TEST_F(Kubectl, AppliesAndReadsBack) {
  EXPECT_NE(kubectl_with(config_map("a", "1"), "apply").find("configmap/a created"), std::string::npos);
  EXPECT_EQ(kubectl("get configmap a -o name"), "configmap/a\n");
  EXPECT_EQ(kubectl("get configmap a -o 'jsonpath={.data.key}'"), "1");
}

TEST_F(Kubectl, AppliesAChange) {
  kubectl_with(config_map("a", "1"), "apply");
  EXPECT_NE(kubectl_with(config_map("a", "2"), "apply").find("configmap/a configured"), std::string::npos);
  EXPECT_EQ(member({"", "configmaps", "default", "a"}, "/data/key"), "2");
  EXPECT_NE(kubectl_with(config_map("a", "2"), "apply").find("configmap/a unchanged"), std::string::npos);
}

TEST_F(Kubectl, AppliesAChangeOfOneContainerByItsName) {
  kubectl_with(deployment("registry.invalid/main:1"), "apply");
  EXPECT_NE(kubectl_with(deployment("registry.invalid/main:2"), "apply").find("deployment.apps/web configured"),
            std::string::npos);
  EXPECT_EQ(member(web_, "/spec/template/spec/containers/0/image"), "registry.invalid/main:2");
  EXPECT_EQ(member(web_, "/spec/template/spec/containers/1/image"), "registry.invalid/side:1");
}

TEST_F(Kubectl, ListsByLabelAndAcrossNamespaces) {
  kubectl_with(config_map("a", "1"), "create");
  EXPECT_EQ(kubectl("get configmaps -l app=shop -o name"), "configmap/a\n");
  EXPECT_EQ(kubectl("get configmaps -l 'app in (other)' -o name"), "");
  const std::string all = kubectl("get configmaps -A");
  EXPECT_NE(all.find("kube-system"), std::string::npos) << all;
  EXPECT_NE(all.find("default"), std::string::npos) << all;
}

TEST_F(Kubectl, ShowsTheJsonOfAList) {
  kubectl_with(R"({"kind":"Namespace","apiVersion":"v1","metadata":{"name":"shop"}})", "create");
  json_spirit::Value list;
  ASSERT_TRUE(json_spirit::loads_json(std::string_view(kubectl("get namespaces -o json")), list));
  std::string name;
  json_spirit::pextract(list)("/items/4/metadata/name", name);
  EXPECT_EQ(name, "shop");
}

TEST_F(Kubectl, DescribesAClaim) {
  kubectl_with(R"({"kind":"PersistentVolumeClaim","apiVersion":"v1","metadata":{"name":"data"},"spec":{
    "accessModes":["ReadWriteOnce"],"resources":{"requests":{"storage":"1Gi"}},"storageClassName":"fast"}})",
               "create");
  const std::string text = kubectl("describe pvc data");
  EXPECT_NE(text.find("Pending"), std::string::npos) << text;
  EXPECT_NE(text.find("kubernetes.io/pvc-protection"), std::string::npos) << text;
}

TEST_F(Kubectl, PatchesByMergeAndStrategically) {
  kubectl_with(deployment("registry.invalid/main:1"), "create");
  kubectl(R"(patch deployment web --type merge -p '{"spec":{"paused":true}}')");
  kubectl(R"(patch deployment web -p '{"spec":{"template":{"spec":{"containers":[{"name":"side","image":"s:2"}]}}}}')");
  EXPECT_EQ(kubectl("get deployment web -o 'jsonpath={.spec.paused}'"), "true");
  EXPECT_EQ(member(web_, "/spec/template/spec/containers/0/image"), "registry.invalid/main:1");
  EXPECT_EQ(member(web_, "/spec/template/spec/containers/1/image"), "s:2");
}

TEST_F(Kubectl, Scales) {
  kubectl_with(deployment("registry.invalid/main:1"), "create");
  EXPECT_NE(kubectl("scale deployment web --replicas=4").find("scaled"), std::string::npos);
  EXPECT_EQ(kubectl("get deployment web -o 'jsonpath={.spec.replicas}'"), "4");
}

TEST_F(Kubectl, DeletesAndWaitsUntilItIsGone) {
  kubectl_with(deployment("registry.invalid/main:1"), "create");
  kubectl_with(config_map("a", "1"), "create");
  EXPECT_NE(kubectl("delete deployment web").find("deleted"), std::string::npos);
  EXPECT_NE(kubectl("delete configmap a --wait").find("deleted"), std::string::npos);
  EXPECT_FALSE(cluster_.get(web_));
  EXPECT_FALSE(cluster_.get({"", "configmaps", "default", "a"}));
}

TEST_F(Kubectl, KnowsTheSnapshotKindsFromDiscovery) {
  kubectl_with(R"({"kind":"VolumeSnapshot","apiVersion":"snapshot.storage.k8s.io/v1","metadata":{"name":"s"},
    "spec":{"source":{"persistentVolumeClaimName":"data"}}})",
               "apply");
  EXPECT_EQ(kubectl("get vs -o name"), "volumesnapshot.snapshot.storage.k8s.io/s\n");
}

TEST_F(Kubectl, TellsThatAnObjectIsNotThere) {
  const Outcome outcome = run("cd " + dir_.path() + " && HOME=. KUBECONFIG=config kubectl get pod nothing");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_NE(outcome.text.find("pods \"nothing\" not found"), std::string::npos) << outcome.text;
}

}  // namespace
}  // namespace kube_sim
