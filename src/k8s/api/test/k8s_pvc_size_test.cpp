#include "json_spirit/extract.h"
#include "k8s/api/k8s_pvc.h"
#include "k8s/api/k8s_utils.h"
#include "kolt/make_shared_nothrow.h"
#include "simulated_cluster.h"
#include "support/kube_sim/process_exec.h"
#include "support/kube_sim/scripted_exec.h"
#include "support/temp_dir.h"

namespace {

using json_spirit::Value;
using kube_sim::Exec_Script;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace test_support;

const char link[] = "/api/v1/namespaces/shop/pods/web";
const char exec_link[] =
    "/api/v1/namespaces/shop/pods/web/exec?stderr=True&stdin=True&stdout=True&tty=False"
    "&command=/bin/sh&command=-c&command=";
const char size_of_9[] = R"({"jsonrpc":"2.0","result":{"size":9}})";

/// The claim "data" on the volume "pv-1", mounted by the pod "web" on the node "n1".
struct Pvc_Size : Simulated_Cluster {
  Pvc_Size() {
    create("", "persistentvolumeclaims", R"({"kind":"PersistentVolumeClaim","apiVersion":"v1",
        "metadata":{"name":"data","namespace":"shop"},"spec":{"accessModes":["ReadWriteOnce"],"volumeName":"pv-1",
        "resources":{"requests":{"storage":"1Gi"}}}})");
  }

  bool ask() { return k8s::get_pvc_size(claims, pod, "n1", "uid-1", "data", size); }

  Value pod_mounting_at(const std::string& path) {
    return json(R"({"kind":"Pod","apiVersion":"v1","metadata":{"name":"web","namespace":"shop"},
        "spec":{"volumes":[{"name":"v","persistentVolumeClaim":{"claimName":"data"}}],
                "containers":[{"volumeMounts":[{"name":"v","mountPath":")" +
                path + R"("}]}]}})");
  }
  void du_says(Exec_Script script) {
    cluster.make_exec = [script](const kube_sim::Request&) {
      return std::make_unique<kube_sim::Scripted_Exec>(script);
    };
  }
  void node_says(const std::string& body) { agent.expect("POST", "/d2/jr", kube_sim::json_answer(200, body)); }
  std::string instead(const std::string& self_link) {
    return "Failed to get pvc size from self link '" + self_link + "', use node rpc instead.\n";
  }

  K8S_PVC claims{make_shared_nothrow<K8S_Client>(), "shop"};
  Value pod = pod_mounting_at("/data");
  std::int64_t size = 1;
};

TEST_F(Pvc_Size, IsMeasuredInThePod) {
  Temp_Dir dir;
  dir.write("sub/a", std::string(12345, 'x'));
  std::vector<std::string> command;
  cluster.make_exec = [&](const kube_sim::Request& request) {
    command = request.parameters("command");
    return std::make_unique<kube_sim::Process_Exec>(command, dir / "work", true);
  };
  pod = pod_mounting_at(dir / "sub");
  ASSERT_TRUE(ask()) << log.all();
  EXPECT_GE(size, 12345);  // du counts the directory itself as well
  EXPECT_LE(size, 12345 + 4096);
  ASSERT_EQ(command.size(), 3u);
  EXPECT_THAT(command[2], testing::StartsWith("echo \"du -sb " + dir / "sub" + "\" > /tmp/"));
  EXPECT_THAT(requests(), ElementsAre("GET /api/v1/namespaces/shop/persistentvolumeclaims/data",
                                      testing::StartsWith(std::string("GET ") + exec_link)));
  EXPECT_THAT(errors(), IsEmpty());
  EXPECT_THAT(log.texts(LM_WARNING), IsEmpty());
}

TEST_F(Pvc_Size, IsTheNumberBeforeWhateverDuPrintsBehindIt) {
  du_says(Exec_Script().output("40961\t/data\n").exit(0));
  EXPECT_TRUE(ask());
  EXPECT_EQ(size, 40961);
}

TEST_F(Pvc_Size, IsAskedOfTheNodeWhenThePodTellsNone) {
  const std::pair<const char*, Exec_Script> scripts[] = {
      {"no number", Exec_Script().output("du: not found\n").exit(0)},
      {"0", Exec_Script().output("0\t/data\n").exit(0)},
      {"negative", Exec_Script().output("-5\t/data\n").exit(0)},
      {"silence", Exec_Script().exit(0)},
      {"failed command", Exec_Script().output("77\t/data\n").exit(1)},
      {"lost connection", Exec_Script().output("77\t/data\n").drop()},
  };
  for (const auto& [name, script] : scripts) {
    SCOPED_TRACE(name);
    log.clear();
    size = 1;
    du_says(script);
    node_says(size_of_9);
    EXPECT_TRUE(ask());
    EXPECT_EQ(size, 9);
    EXPECT_THAT(log.texts(LM_WARNING), ElementsAre(instead(exec_link)));
  }
}

TEST_F(Pvc_Size, IsAskedOfTheNodeWhenThePodRunsNoCommands) {
  node_says(size_of_9);
  EXPECT_TRUE(ask());
  EXPECT_EQ(size, 9);
  EXPECT_THAT(log.texts(LM_WARNING), ElementsAre(instead(exec_link)));
}

TEST_F(Pvc_Size, IsAskedOfTheNodeWithoutACommandWhenThePodMountsNothing) {
  pod = json(R"({"kind":"Pod","apiVersion":"v1","metadata":{"name":"web","namespace":"shop"}})");
  node_says(size_of_9);
  EXPECT_TRUE(ask());
  EXPECT_THAT(log.texts(LM_WARNING), ElementsAre(instead(link)));
  EXPECT_THAT(requests(), ElementsAre("GET /api/v1/namespaces/shop/persistentvolumeclaims/data",
                                      "GET /api/v1/namespaces/agents/pods?fieldSelector=spec.nodeName%3Dn1"
                                      "&labelSelector=app%3Daux"));
  const json_spirit::Value sent = json(agent_front.requests().at(0).body);
  EXPECT_EQ(sent.get_obj().at("method"), Value("k8s.get_pvc_size"));
  EXPECT_EQ(sent.get_obj().at("params"), json(R"({"path":"/var/lib/kubelet/pods/uid-1/volumes/*/pv-1"})"));
}

TEST_F(Pvc_Size, MayBeZeroOnTheNode) {
  node_says(R"({"result":{"size":0}})");
  EXPECT_TRUE(ask());
  EXPECT_EQ(size, 0);
}

TEST_F(Pvc_Size, IsUnknownWhenTheNodeFailsTooAndKeepsWhatThePodTold) {
  const std::pair<const char*, std::int64_t> told[] = {{"-5\t/data\n", -5}, {"du: not found\n", 0}};
  for (const auto& [output, number] : told) {
    size = 1;
    du_says(Exec_Script().output(output).exit(0));
    node_says(R"({"error":{"code":-32602,"message":"Invalid params: failed to get path."}})");
    EXPECT_FALSE(ask());
    EXPECT_EQ(errors().back(), "Failed to get pvc size from node 'n1'.\n");
    EXPECT_EQ(size, number) << output;
  }
}

TEST_F(Pvc_Size, IsUnknownWhenTheNodeTellsNoNumber) {
  for (const char* result : {R"({"result":{}})", R"({"result":{"size":"9"}})", R"({"result":{"size":null}})"}) {
    log.clear();
    node_says(result);
    EXPECT_FALSE(ask()) << result;
    EXPECT_THAT(errors().back(), testing::MatchesRegex("Failed to extract pvc size, err '.+'.\n"));
  }
}

TEST_F(Pvc_Size, IsUnknownWithoutAVolume) {
  EXPECT_FALSE(k8s::get_pvc_size(claims, pod, "n1", "uid-1", "gone", size));
  EXPECT_EQ(errors().back(), "Failed to get pv name for pvc 'gone'.\n");
  EXPECT_EQ(requests().size(), 1u);
  EXPECT_EQ(size, 1);
}

TEST_F(Pvc_Size, IsUnknownForAPodWithoutAnAddress) {
  pod = json(R"({"kind":"Pod","metadata":{"name":"web"}})");
  EXPECT_FALSE(ask());
  EXPECT_THAT(errors(), ElementsAre("Failed to build self link.\n"));
  EXPECT_EQ(requests().size(), 1u);
}

}  // namespace
