// A claim is measured by the agent on its node: a whole agent with its plug-in, reached through TLS.
#include <sys/mount.h>
#include <sys/stat.h>

#include <algorithm>
#include <regex>

#include "integration/agent_process.h"
#include "k8s/api/k8s_pvc.h"
#include "k8s/api/k8s_utils.h"
#include "k8s/api/test/simulated_cluster.h"
#include "kolt/make_shared_nothrow.h"
#include "support/temp_dir.h"

namespace test_support {
namespace {

using json_spirit::Value;
using testing::ElementsAre;

class Node_Rpc : public Simulated_Cluster {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(mount("tmpfs", "/var/lib", "tmpfs", 0, "mode=755"), 0); }

  void SetUp() override {
    create("", "persistentvolumeclaims", R"({"kind":"PersistentVolumeClaim","apiVersion":"v1",
        "metadata":{"name":"data","namespace":"shop"},"spec":{"accessModes":["ReadWriteOnce"],"volumeName":"pv-1",
        "resources":{"requests":{"storage":"1Gi"}}}})");
    cluster.accounts().set(account.token(), {"system:serviceaccount:agents:tessarin-agent"});
    present(certificates);
  }

  /// What the agent proves itself with.
  void present(const kube_sim::Certificates& authority) {
    const auto pair = authority.server(kube_sim::Certificate_Kind::GOOD);
    dir_.write("tls.crt", pair.certificate);
    chmod(dir_.write("tls.key", pair.key).c_str(), 0600);
  }
  void start_agent() {
    ASSERT_TRUE(process_.start()) << process_.log();
    std::smatch port;
    const std::string log = process_.log();
    ASSERT_TRUE(std::regex_search(log, port, std::regex("Listening on 127.0.0.1 port ([0-9]+) by TLS"))) << log;
    environment.set("AUX_PORT", port[1].str().c_str());
    ASSERT_TRUE(K8S_Cluster::instance()->set_aux_info());
  }
  size_t reviews() const {
    const auto all = requests();
    return std::ranges::count(all, "POST /apis/authentication.k8s.io/v1/tokenreviews");
  }
  void expect_no_answer() {
    EXPECT_FALSE(measure());
    EXPECT_TRUE(log.has_containing(LM_ERROR, "Failed to send json rpc to '127.0.0.1', resp_data '")) << log.all();
  }

  bool measure() {
    K8S_PVC claims(make_shared_nothrow<K8S_Client>(), "shop");
    const Value pod = json(R"({"kind":"Pod","apiVersion":"v1","metadata":{"name":"web","namespace":"shop"},
        "spec":{"volumes":[{"name":"v","persistentVolumeClaim":{"claimName":"data"}}],
                "containers":[{"volumeMounts":[{"name":"v","mountPath":"/data"}]}]}})");
    return k8s::get_pvc_size(claims, pod, "n1", "uid-1", "data", size_);
  }

  Temp_Dir dir_;
  Agent_Process process_{dir_ / "state",
                         {"--listen", "127.0.0.1:0", "--tls-cert", dir_ / "tls.crt", "--tls-key", dir_ / "tls.key",
                          "--token-review", "--allow-service-account", "agents/tessarin-agent"}};
  std::int64_t size_ = 0;
};

TEST_F(Node_Rpc, AgentOnTheNodeMeasuresTheVolumeOfAClaim) {
  const std::string volume = "/var/lib/kubelet/pods/uid-1/volumes/kubernetes.io~csi/pv-1";
  std::filesystem::create_directories(volume + "/mount/sub");
  std::ofstream(volume + "/mount/a") << std::string(70'000, 'x');
  std::ofstream(volume + "/mount/sub/b") << std::string(345, 'y');
  start_agent();
  EXPECT_TRUE(measure()) << log.all();
  EXPECT_EQ(size_, 70'345);
  EXPECT_EQ(reviews(), 1u);
  std::filesystem::remove_all("/var/lib/kubelet");
}

TEST_F(Node_Rpc, AgentThatFindsNoVolumeIsAFailure) {
  start_agent();
  EXPECT_FALSE(measure());
  EXPECT_THAT(emergencies(), ElementsAre("obj_ptr is NULL:"));
  EXPECT_EQ(errors().back(), "Failed to get pvc size from node 'n1'.\n");
}

TEST_F(Node_Rpc, AgentRefusesAnAccountThatMayNotCall) {
  cluster.accounts().set(account.token(), {"system:serviceaccount:agents:default"});
  start_agent();
  expect_no_answer();
  EXPECT_EQ(reviews(), 1u);
}

TEST_F(Node_Rpc, AgentThatIsNotTrustedGetsNoToken) {
  present(kube_sim::Certificates());
  start_agent();
  expect_no_answer();
  EXPECT_EQ(reviews(), 0u);
}

TEST_F(Node_Rpc, AgentsMayHaveACAOfTheirOwn) {
  const kube_sim::Certificates agents;
  present(agents);
  WebSocket_Options::instance()->set_identity({dir_.write("ca.crt", agents.ca()), "localhost", ""});
  start_agent();
  EXPECT_FALSE(measure());
  EXPECT_THAT(emergencies(), ElementsAre("obj_ptr is NULL:")) << "it was asked, and finds no volume";
  EXPECT_EQ(reviews(), 1u);
  WebSocket_Options::instance()->set_identity({});
}

TEST_F(Node_Rpc, AgentHearsNobodyWithoutTls) {
  start_agent();
  WebSocket_Options::instance()->ssl(false);
  expect_no_answer();
  EXPECT_EQ(reviews(), 0u);
}

}  // namespace
}  // namespace test_support
