// The resources against a real cluster: the one of KUBECONFIG. Everything lies in a namespace that is made for the run
// and removed after it. kubectl does what the library has no right to: it makes and removes the namespace and the
// service account whose token the library uses, and tells what was left behind.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "json_spirit/assign.h"
#include "json_spirit/extract.h"
#include "json_spirit/json_spirit_helper.h"
#include "k8s/api/k8s_client.h"
#include "k8s/api/k8s_cluster.h"
#include "k8s/api/k8s_configmap.h"
#include "k8s/api/k8s_deployment.h"
#include "k8s/api/k8s_events.h"
#include "k8s/api/k8s_namespace.h"
#include "k8s/api/k8s_node.h"
#include "k8s/api/k8s_pod.h"
#include "k8s/api/k8s_pv.h"
#include "k8s/api/k8s_pvc.h"
#include "k8s/api/k8s_storage_class.h"
#include "k8s/api/k8s_utils.h"
#include "k8s/api/k8s_volume_snapshot.h"
#include "k8s/api/k8s_volume_snapshot_class.h"
#include "k8s/api/k8s_websocket_command_handler.h"
#include "kolt/make_shared_nothrow.h"
#include "kolt/rand_char.h"

namespace {

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;

constexpr char account_dir[] = "/var/run/secrets/kubernetes.io/serviceaccount";

/// What a command prints, without the last line end. Empty when it fails.
std::string output_of(const std::string& command) {
  std::string out;
  FILE* pipe = popen(command.c_str(), "r");
  for (char buffer[4096]; std::size_t n = std::fread(buffer, 1, sizeof buffer, pipe);) out.append(buffer, n);
  if (pclose(pipe) != 0) return "";
  if (out.ends_with('\n')) out.pop_back();
  return out;
}

std::string kubectl(const std::string& arguments) {
  return output_of("kubectl " + arguments);
}

bool kubectl_apply(const std::string& document) {
  FILE* pipe = popen("kubectl apply -f - >/dev/null", "w");
  std::fwrite(document.data(), 1, document.size(), pipe);
  return pclose(pipe) == 0;
}

/// The string at @a path of @a doc; empty where there is none.
std::string text_at(const Value& doc, const char* path) {
  std::string text;
  json_spirit::pextract(doc)(path, text);
  return text;
}

Value parsed(const std::string& text) {
  Value value;
  EXPECT_TRUE(json_spirit::loads_json(text.c_str(), value)) << text;
  return value;
}

void write_file(const std::string& path, const std::string& text) {
  std::ofstream(path) << text;
}

class Cluster_Test : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    if (!configured()) return;
    ns_ = "tessarin-test-" + k8s::generate_random_string(6);
    ready_ = enter_cluster();
  }

  static void TearDownTestSuite() {
    if (!configured() || ns_.empty()) return;
    K8S_Cluster::close_instance();
    if (role_bound_) kubectl("delete clusterrolebinding " + ns_);
    kubectl("delete namespace " + ns_ + " --timeout=300s");
    EXPECT_EQ("", kubectl("get namespace " + ns_ + " --ignore-not-found -o name")) << "the namespace was left behind";
    EXPECT_EQ("", kubectl("get storageclass -l tessarin-test=" + ns_ + " -o name")) << "a class was left behind";
  }

  void SetUp() override {
    if (!configured()) GTEST_SKIP() << "KUBECONFIG is not set: nothing was tested against a real cluster";
    ASSERT_TRUE(ready_) << "the cluster of KUBECONFIG could not be reached";
    client_ = make_shared_nothrow<K8S_Client>();
  }

  static bool configured() { return std::getenv("KUBECONFIG") != nullptr; }

  /// Makes the namespace, takes a token, and gives the library what a pod would find: environment, token, CA.
  static bool enter_cluster() {
    const Value config = parsed(kubectl("config view --raw --minify -o json"));
    const std::string server = text_at(config, "/clusters/0/cluster/server");
    if (!kubectl_apply(R"({"apiVersion": "v1", "kind": "Namespace", "metadata": {"name": ")" + ns_ + R"("}})"))
      return false;
    std::string token = text_at(config, "/users/0/user/token");
    if (token.empty()) token = new_token();
    if (token.empty() || !set_server(server)) return false;

    std::filesystem::create_directories(account_dir);
    write_file(std::string(account_dir) + "/token", token);
    write_file(std::string(account_dir) + "/ca.crt", authority(config));
    setenv("AUX_KEY", "app", 1);
    setenv("AUX_VALUE", "tessarin-agent", 1);
    setenv("AUX_PORT", "9443", 1);
    setenv("CURRENT_NAMESPACE", ns_.c_str(), 1);
    return K8S_Cluster::instance()->init();
  }

  static std::string new_token() {
    kubectl("create serviceaccount tester -n " + ns_);
    role_bound_ = true;
    kubectl("create clusterrolebinding " + ns_ + " --clusterrole=cluster-admin --serviceaccount=" + ns_ + ":tester");
    return kubectl("create token tester -n " + ns_);
  }

  static bool set_server(const std::string& server) {
    const std::size_t host = server.find("://");
    const std::size_t port = server.rfind(':');
    if (host == std::string::npos) return false;
    const bool has_port = port > host;
    setenv("KUBERNETES_SERVICE_HOST", server.substr(host + 3, has_port ? port - host - 3 : std::string::npos).c_str(),
           1);
    setenv("KUBERNETES_SERVICE_PORT", has_port ? std::to_string(std::atoi(server.c_str() + port + 1)).c_str() : "443",
           1);
    return true;
  }

  static std::string authority(const Value& config) {
    const std::string file = text_at(config, "/clusters/0/cluster/certificate-authority");
    if (!file.empty()) return output_of("cat '" + file + "'");
    return output_of("echo '" + text_at(config, "/clusters/0/cluster/certificate-authority-data") + "' | base64 -d");
  }

  /// The cluster's default class, else any. Empty where there is none.
  static std::string storage_class() {
    const std::string name = kubectl(
        "get storageclass -o "
        "jsonpath='{.items[?(@.metadata.annotations.storageclass\\.kubernetes\\.io/is-default-class==\"true\")]"
        ".metadata.name}'");
    return name.empty() ? kubectl("get storageclass -o jsonpath='{.items[0].metadata.name}'") : name;
  }

  /// A bound claim "source" on a class that binds at once, which is a copy made for the purpose; false without a class.
  bool make_source_claim() {
    const std::string original = storage_class();
    if (original.empty() || !K8S_Storage_Class(client_).create_immediate_sc(original, class_)) return false;
    kubectl("label storageclass " + class_ + " tessarin-test=" + ns_);
    Object resources;
    json_spirit::insert(resources)("requests", Object{{"storage", Value("1Gi")}});
    K8S_PVC claims(client_, ns_);
    return claims.create("source", class_, resources, Array{Value("ReadWriteOnce")}, "Filesystem", "v1") &&
           claims.is_bound("source", true, K8S_QVX_RETRY_TIMES);
  }

  void TearDown() override {
    if (class_.empty()) return;
    K8S_PVC claims(client_, ns_);
    for (const char* name : {"source-tessarin", "source"}) EXPECT_TRUE(claims.delete_(name, true, K8S_QVX_RETRY_TIMES));
    EXPECT_TRUE(K8S_Storage_Class(client_).delete_(class_, true, K8S_QVX_RETRY_TIMES));
  }

  static inline std::string ns_;
  static inline bool ready_ = false;
  static inline bool role_bound_ = false;
  K8S_Client_var client_;
  std::string class_;
};

TEST_F(Cluster_Test, TheClusterViewIsFilled) {
  EXPECT_TRUE(K8S_Cluster::instance()->get_k8s_version().starts_with("v1."));
  EXPECT_NE("", K8S_Cluster::instance()->get_resource_gv("cronjobs"));
}

TEST_F(Cluster_Test, OurNamespaceIsListed) {
  K8S_Namespaces found;
  ASSERT_TRUE(K8S_Cluster::instance()->list_namespaces(found, &ns_));
  ASSERT_EQ(1u, found.size());
  EXPECT_EQ(ns_, found[0].name);
  EXPECT_EQ("Active", found[0].active);
}

TEST_F(Cluster_Test, NodesHaveAddresses) {
  Value nodes;
  ASSERT_TRUE(K8S_Node(client_).list(nodes, {}));
  const std::string name = text_at(nodes, "/items/0/metadata/name");
  if (name.empty()) GTEST_SKIP() << "the cluster has no node";
  std::string address;
  EXPECT_TRUE(K8S_Node(client_).get_node_addr(name, address));
  EXPECT_NE("", address);
}

TEST_F(Cluster_Test, ConfigMapIsCreatedReadPatchedAndDeleted) {
  K8S_Config_Map maps(client_, ns_);
  ASSERT_TRUE(maps.create("settings", parsed(R"({"say": "\"one\""})"), "v1"));
  Value read;
  ASSERT_TRUE(maps.get("settings", read, true));
  EXPECT_EQ(R"({"say":"\"one\""})", text_at(read, "/data/config.json"));

  ASSERT_TRUE(maps.patch("settings", parsed(R"({"say": 2})"), "application/merge-patch+json"));
  EXPECT_EQ(200, client_->get_response_code());
  ASSERT_TRUE(maps.get("settings", read, true));
  EXPECT_EQ(R"({"say":2})", text_at(read, "/data/config.json"));

  EXPECT_TRUE(maps.delete_("settings", true, K8S_QVX_RETRY_TIMES));
  EXPECT_FALSE(maps.get("settings", read, false));
  EXPECT_EQ(404, client_->get_response_code());
}

TEST_F(Cluster_Test, ObjectThatExistsIsNotMadeTwice) {
  K8S_Config_Map maps(client_, ns_);
  ASSERT_TRUE(maps.create("once", Object(), "v1"));
  EXPECT_FALSE(maps.create("once", Object(), "v1"));
  EXPECT_EQ(409, client_->get_response_code());
}

TEST_F(Cluster_Test, DeploymentIsScaled) {
  ASSERT_TRUE(
      kubectl_apply(R"({"apiVersion": "apps/v1", "kind": "Deployment", "metadata": {"name": "idle", "namespace": ")" +
                    ns_ + R"("}, "spec": {"replicas": 0, "selector": {"matchLabels": {"app": "idle"}}, "template":
    {"metadata": {"labels": {"app": "idle"}}, "spec": {"containers": [{"name": "c", "image": "registry.invalid/none"}]}}}})"));
  K8S_Deployment deployments(client_, ns_);
  EXPECT_TRUE(deployments.patch("idle", parsed(R"({"spec": {"replicas": 0}})")));
  Value deployment;
  ASSERT_TRUE(deployments.get("idle", deployment, true));
  Array pods;
  EXPECT_FALSE(deployments.get_pods(deployment, pods)) << "a deployment of no replicas has no pods";
}

TEST_F(Cluster_Test, ClaimIsBoundClonedAndTraced) {
  if (!make_source_claim()) GTEST_SKIP() << "no storage class here binds a claim";
  K8S_PVC claims(client_, ns_);
  Value volume;
  ASSERT_TRUE(claims.get_pv("source", volume));
  const std::string name = text_at(volume, "/metadata/name");
  if (!K8S_PV(client_).is_CSI(name)) GTEST_SKIP() << "volumes of " << class_ << " are not CSI";
  ASSERT_TRUE(claims.clone("source", ""));
  Value clone;
  ASSERT_TRUE(claims.get("source-tessarin", clone, true));
  EXPECT_EQ("source", text_at(clone, "/spec/dataSource/name"));
  EXPECT_EQ("tessarin-agent", text_at(clone, "/metadata/labels/component"));
}

TEST_F(Cluster_Test, SnapshotGetsReadyAndFillsAClaim) {
  if (K8S_Cluster::instance()->get_resource_gv("volumesnapshots").empty()) GTEST_SKIP() << "no snapshot API here";
  if (!make_source_claim()) GTEST_SKIP() << "no storage class here binds a claim";
  K8S_PVC claims(client_, ns_);
  K8S_Volume_Snapshot snapshots(client_, ns_);
  Value volume;
  ASSERT_TRUE(claims.get_pv("source", volume));
  std::string snapshot_class;
  if (!K8S_Volume_Snapshot_Class(client_).get_snapshot_class_name(text_at(volume, "/spec/csi/driver"), snapshot_class))
    GTEST_SKIP() << "no snapshot class for this driver";

  ASSERT_TRUE(snapshots.create_with_name(claims, "source", ""));
  EXPECT_TRUE(snapshots.is_ready_to_use("source-tessarin", true, K8S_QVX_RETRY_TIMES));
  Value source;
  ASSERT_TRUE(claims.get("source", source, true));
  ASSERT_TRUE(claims.create_from_snapshot(source, "source-tessarin"));
  Value restored;
  ASSERT_TRUE(claims.get("source-tessarin", restored, true));
  EXPECT_EQ("VolumeSnapshot", text_at(restored, "/spec/dataSource/kind")) << "the server dropped the source";
  EXPECT_TRUE(claims.is_bound("source-tessarin", true, K8S_QVX_RETRY_TIMES));
  EXPECT_TRUE(claims.delete_("source-tessarin", true, K8S_QVX_RETRY_TIMES));
  EXPECT_TRUE(snapshots.delete_all());
}

TEST_F(Cluster_Test, CommandRunsInAPod) {
  const char* image = std::getenv("TESSARIN_TEST_IMAGE");
  ASSERT_TRUE(kubectl_apply(R"({"apiVersion": "v1", "kind": "Pod", "metadata": {"name": "shell", "namespace": ")" +
                            ns_ + R"("}, "spec": {"containers": [{"name": "c", "image": ")" +
                            (image ? image : "busybox") + R"(", "command": ["sleep", "3600"]}]}})"));
  if (kubectl("wait pod/shell -n " + ns_ + " --for=condition=Ready --timeout=120s").empty())
    GTEST_SKIP() << "the pod did not start: set TESSARIN_TEST_IMAGE to an image that the cluster can pull";
  EXPECT_TRUE(K8S_Pod(client_, ns_).is_running("shell"));

  typedef K8S_Websocket_Command_Handler::Command_Handler Command;
  const std::string url =
      "/api/v1/namespaces/" + ns_ +
      "/pods/shell/exec?stderr=True&stdin=True&stdout=True&tty=False&command=/bin/sh&command=-c&command=";
  const std::map<std::string, std::string> no_secrets;
  const std::string well = "echo hello", bad = "exit 3";
  std::string response;
  EXPECT_TRUE(Command(well, no_secrets, 60)(url, response));
  EXPECT_EQ("hello\n", response);
  EXPECT_FALSE(Command(bad, no_secrets, 60)(url, response));
}

}  // namespace
