// A claim is measured by the agent on its node: a whole agent with its plug-in, reached through TLS.
#include <sys/mount.h>
#include <sys/stat.h>

#include <regex>

#include "http/json_restful_client.h"
#include "integration/agent_process.h"
#include "k8s/api/k8s_pvc.h"
#include "k8s/api/k8s_utils.h"
#include "k8s/api/test/simulated_cluster.h"
#include "kolt/make_shared_nothrow.h"
#include "support/temp_dir.h"

namespace test_support {
namespace {

using json_spirit::JSON_Dump;
using json_spirit::Value;
using testing::ElementsAre;

/// Shows the agent the header that the relay was shown.
class Relay_Client : public JSON_RESTful_Client {
 public:
  Relay_Client(unsigned short port, const std::string& authorization)
      : JSON_RESTful_Client("127.0.0.1", port, false, false, true), authorization_(authorization) {}

 protected:
  void prepare(HTTP_Request& request) override { request.headers().put("Authorization", authorization_.c_str(), true); }

 private:
  const std::string authorization_;
};

/// Stands before the agent, whose channel has no TLS of its own, and passes on what it gets as it is.
class Tls_Relay : public kube_sim::Api {
 public:
  kube_sim::Answer answer(const kube_sim::Request& request) override {
    const Value body = json(request.body);
    HTTP_Response response;
    Value reply;
    Relay_Client(agent_port, request.header("authorization")).post(request.path.c_str(), &body, response, &reply);
    return kube_sim::json_answer(response.status(), JSON_Dump(reply, false).str());
  }

  unsigned short agent_port = 0;
};

class Node_Rpc : public Simulated_Cluster {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(mount("tmpfs", "/var/lib", "tmpfs", 0, "mode=755"), 0); }

  void SetUp() override {
    write_agent_token(account.token());
    create("", "persistentvolumeclaims", R"({"kind":"PersistentVolumeClaim","apiVersion":"v1",
        "metadata":{"name":"data","namespace":"shop"},"spec":{"accessModes":["ReadWriteOnce"],"volumeName":"pv-1",
        "resources":{"requests":{"storage":"1Gi"}}}})");
  }

  void write_agent_token(const std::string& token) {
    mkdir((dir_ / "state").c_str(), 0700);
    chmod(dir_.write("state/token", token + "\n").c_str(), 0600);
  }
  void start_agent() {
    ASSERT_TRUE(process_.start()) << process_.log();
    std::smatch port;
    const std::string log = process_.log();
    ASSERT_TRUE(std::regex_search(log, port, std::regex("Listening on 127.0.0.1 port ([0-9]+)"))) << log;
    relay_.agent_port = static_cast<unsigned short>(std::stoi(port[1]));
    call_port(relay_front_.port());
  }
  void call_port(unsigned short port) {
    environment.set("AUX_PORT", std::to_string(port).c_str());
    ASSERT_TRUE(K8S_Cluster::instance()->set_aux_info());
  }

  bool measure() {
    K8S_PVC claims(make_shared_nothrow<K8S_Client>(), "shop");
    const Value pod = json(R"({"kind":"Pod","apiVersion":"v1","metadata":{"name":"web","namespace":"shop"},
        "spec":{"volumes":[{"name":"v","persistentVolumeClaim":{"claimName":"data"}}],
                "containers":[{"volumeMounts":[{"name":"v","mountPath":"/data"}]}]}})");
    return k8s::get_pvc_size(claims, pod, "n1", "uid-1", "data", size_);
  }

  Temp_Dir dir_;
  Agent_Process process_{dir_ / "state", {"--listen", "127.0.0.1:0"}};
  Tls_Relay relay_;
  kube_sim::Front relay_front_{relay_, {.certificates = &certificates}};
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
  ASSERT_EQ(relay_front_.requests().size(), 1u);
  EXPECT_EQ(relay_front_.requests()[0].header("authorization"), "Bearer " + account.token());
  std::filesystem::remove_all("/var/lib/kubelet");
}

TEST_F(Node_Rpc, AgentThatFindsNoVolumeIsAFailure) {
  start_agent();
  EXPECT_FALSE(measure());
  EXPECT_THAT(emergencies(), ElementsAre("obj_ptr is NULL:"));
  EXPECT_EQ(errors().back(), "Failed to get pvc size from node 'n1'.\n");
}

TEST_F(Node_Rpc, AgentRefusesATokenThatIsNotItsOwn) {
  write_agent_token("another-token-of-some-length");
  start_agent();
  EXPECT_FALSE(measure());
  EXPECT_TRUE(log.has_containing(LM_ERROR, "Failed to send json rpc to '127.0.0.1', resp_data '")) << log.all();
}

TEST_F(Node_Rpc, AgentRefusesACallerWithoutTlsAsItShowsNoToken) {
  start_agent();
  WebSocket_Options::instance()->ssl(false);
  call_port(relay_.agent_port);
  EXPECT_FALSE(measure());
  EXPECT_TRUE(log.has_containing(LM_ERROR, "Failed to send json rpc to '127.0.0.1', resp_data '")) << log.all();
}

}  // namespace
}  // namespace test_support
