// Commands that ask the cluster, against a simulated one.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "ctl/commands.h"
#include "json_spirit/extract.h"
#include "json_spirit/json_spirit_helper.h"
#include "support/kube_sim/cluster_api.h"
#include "support/kube_sim/controllers.h"
#include "support/kube_sim/front.h"
#include "support/kube_sim/preload.h"
#include "support/kube_sim/process_exec.h"
#include "support/kube_sim/service_account.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace {

using namespace ctl;
using json_spirit::Value;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

Value json(const std::string& text) {
  Value value;
  EXPECT_TRUE(json_spirit::loads_json(text.c_str(), value)) << text;
  return value;
}

constexpr char objects[] = R"([
  {"kind": "PersistentVolumeClaim", "apiVersion": "v1", "metadata": {"name": "data", "namespace": "shop"},
   "spec": {"accessModes": ["ReadWriteOnce"], "storageClassName": "fast", "volumeMode": "Filesystem",
            "resources": {"requests": {"storage": "1Gi"}}}},
  {"kind": "Pod", "apiVersion": "v1", "metadata": {"name": "web", "namespace": "shop"},
   "spec": {"containers": [{"name": "main", "image": "busybox",
                            "volumeMounts": [{"name": "v", "mountPath": "/data"}]}],
            "volumes": [{"name": "v", "persistentVolumeClaim": {"claimName": "data"}}]}},
  {"kind": "Pod", "apiVersion": "v1", "metadata": {"name": "tools", "namespace": "lab"},
   "spec": {"containers": [{"name": "main", "image": "busybox"}, {"name": "side", "image": "busybox"}]}},
  {"kind": "Pod", "apiVersion": "v1",
   "metadata": {"name": "agent-1", "namespace": "agents", "labels": {"app": "aux"}},
   "spec": {"nodeName": "n1", "containers": [{"name": "main", "image": "busybox"}]}},
  {"kind": "ConfigMap", "apiVersion": "v1", "metadata": {"name": "sc-capability-config", "namespace": "agents"},
   "data": {"config.json": "{\"csi\": {\"fast\": {\"clone\": true, \"snapshot\": false}}}"}}
])";

class Cluster_Commands : public ::testing::Test {
 protected:
  Cluster_Commands() {
    forget_agents();
    add_node(sim, "n1");
    add_storage_class(sim, "fast", "csi.example.com");
    add_snapshot_class(sim, "snaps", "csi.example.com");
    preload(sim, json(objects));
    EXPECT_TRUE(controllers.settle());
  }
  ~Cluster_Commands() override { forget_agents(); }

  static void forget_agents() {
    for (const char* name : {"AUX_KEY", "AUX_VALUE", "AUX_PORT", "CURRENT_NAMESPACE"}) unsetenv(name);
  }
  static void know_agents() {
    setenv("AUX_KEY", "app", 1);
    setenv("AUX_VALUE", "aux", 1);
    setenv("AUX_PORT", "9100", 1);
    setenv("CURRENT_NAMESPACE", "agents", 1);
  }

  /// The exit code; what was printed is in out and err, what was thrown in failure.
  int run(std::vector<const char*> args) {
    args.insert(args.begin(), "tessarinctl");
    out.str("");
    err.str("");
    failure.clear();
    Options options;
    int code = -1;
    if (!parse_options(static_cast<int>(args.size()), args.data(), options, code, out, err)) return code;
    try {
      return run_command(options, out, err);
    } catch (const Failure& e) {
      failure = e.what();
      return e.code();
    }
  }
  /// The text at a path of the document that was printed.
  std::string printed(const char* path) {
    std::string text = "(none)";
    json_spirit::pextract(json(out.str()))(path, text);
    return text;
  }
  bool exists(const char* group, const char* resource, const char* ns, const char* name) const {
    return sim.get({group, resource, ns, name}) != nullptr;
  }

  kube_sim::Cluster sim;
  kube_sim::Controllers controllers{sim};
  test_support::Temp_Dir containers;
  kube_sim::Cluster_Api api{sim, containers.path()};
  kube_sim::Front front{api};
  kube_sim::Service_Account account{front, kube_sim::Cluster_Options().token};
  test_support::Log_Capture log;
  std::ostringstream out;
  std::ostringstream err;
  std::string failure;
};

TEST_F(Cluster_Commands, Info_does_without_the_agents_environment) {
  EXPECT_EQ(run({"cluster", "info"}), exit_ok) << failure;
  EXPECT_THAT(out.str(), AllOf(HasSubstr("v1.36.2"), HasSubstr("snapshot.storage.k8s.io/"), HasSubstr("unknown")));
}

TEST_F(Cluster_Commands, Info_counts_the_agents) {
  know_agents();
  EXPECT_EQ(run({"cluster", "info", "--json"}), exit_ok) << failure;
  EXPECT_EQ(printed("/version"), "v1.36.2");
  EXPECT_EQ(printed("/agents_namespace"), "agents");
  EXPECT_THAT(out.str(), HasSubstr("\"agents\": 1"));
}

TEST_F(Cluster_Commands, Namespaces_are_searched) {
  EXPECT_EQ(run({"cluster", "namespaces"}), exit_ok) << failure;
  EXPECT_THAT(out.str(), AllOf(HasSubstr("shop"), HasSubstr("agents"), Not(HasSubstr("kube-"))));
  EXPECT_EQ(run({"cluster", "namespaces", "--search", "SHO"}), exit_ok) << failure;
  EXPECT_THAT(out.str(), AllOf(HasSubstr("shop"), Not(HasSubstr("agents"))));
}

TEST_F(Cluster_Commands, Nodes_tell_their_condition) {
  EXPECT_EQ(run({"cluster", "nodes", "--json"}), exit_ok) << failure;
  EXPECT_EQ(printed("/nodes/0/name"), "n1");
  EXPECT_THAT(out.str(), AllOf(HasSubstr("\"ready\": true"), HasSubstr("\"schedulable\": false")));
}

TEST_F(Cluster_Commands, Agents_are_found_by_the_environment_only) {
  EXPECT_EQ(run({"cluster", "aux"}), exit_usage);
  EXPECT_THAT(failure, HasSubstr("AUX_KEY"));
  know_agents();
  EXPECT_EQ(run({"cluster", "aux", "--json"}), exit_ok) << failure << log.all();
  EXPECT_EQ(printed("/agents/0/node"), "n1");
}

TEST_F(Cluster_Commands, Workloads_are_those_of_a_namespace) {
  EXPECT_EQ(run({"cluster", "workloads", "-n", "shop", "--json"}), exit_ok) << failure;
  EXPECT_EQ(printed("/workloads/0/name"), "web");
  EXPECT_EQ(printed("/workloads/0/type"), "pods");
  EXPECT_EQ(printed("/workloads/1/name"), "(none)");
}

TEST_F(Cluster_Commands, Claims_are_listed) {
  EXPECT_EQ(run({"pvc", "list", "-n", "shop"}), exit_ok) << failure;
  EXPECT_THAT(out.str(), AllOf(HasSubstr("data"), HasSubstr("Bound"), HasSubstr("fast")));
  EXPECT_EQ(run({"pvc", "list", "--json"}), exit_ok) << failure;
  EXPECT_EQ(printed("/claims/0/name"), "(none)");
}

TEST_F(Cluster_Commands, Clone_and_snapshot_of_a_claim_are_removed_again) {
  EXPECT_EQ(run({"pvc", "clone", "data", "-n", "shop", "--wait"}), exit_ok) << failure << log.all();
  EXPECT_EQ(out.str(), "claim data-tessarin\n");
  EXPECT_EQ(run({"pvc", "snapshot", "data", "-n", "shop", "--as", "snap", "--wait"}), exit_ok) << failure << log.all();
  EXPECT_EQ(out.str(), "snapshot snap\n");
  EXPECT_TRUE(exists("", "persistentvolumeclaims", "shop", "data-tessarin"));
  EXPECT_TRUE(exists("snapshot.storage.k8s.io", "volumesnapshots", "shop", "snap"));

  EXPECT_EQ(run({"clean", "shop"}), exit_usage);
  EXPECT_EQ(run({"clean", "shop", "--dry-run", "--json"}), exit_ok) << failure;
  EXPECT_EQ(printed("/objects/0/name"), "data-tessarin");
  EXPECT_EQ(printed("/objects/1/name"), "snap");
  EXPECT_TRUE(exists("", "persistentvolumeclaims", "shop", "data-tessarin"));

  EXPECT_EQ(run({"clean", "shop", "--yes"}), exit_ok) << failure << log.all();
  EXPECT_FALSE(exists("", "persistentvolumeclaims", "shop", "data-tessarin"));
  EXPECT_FALSE(exists("snapshot.storage.k8s.io", "volumesnapshots", "shop", "snap"));
  EXPECT_TRUE(exists("", "persistentvolumeclaims", "shop", "data"));
}

TEST_F(Cluster_Commands, Claim_that_is_not_there_has_no_clone) {
  EXPECT_EQ(run({"pvc", "clone", "gone", "-n", "shop"}), exit_refused);
  EXPECT_EQ(failure, "The claim 'gone' cannot be cloned: the server answered 404.");
}

TEST_F(Cluster_Commands, Size_is_measured_in_a_pod_that_mounts_the_claim) {
  std::vector<std::string> command;
  api.set_exec([&](const kube_sim::Exec_Target& target) -> std::unique_ptr<kube_sim::Exec> {
    command = target.command;
    return std::make_unique<kube_sim::Process_Exec>(std::vector<std::string>{"/bin/echo", "2048\t/data"},
                                                    containers.path(), false);
  });
  EXPECT_EQ(run({"pvc", "size", "data", "-n", "shop"}), exit_ok) << failure << log.all();
  EXPECT_EQ(out.str(), "2.0 KiB\n");
  ASSERT_FALSE(command.empty());
  EXPECT_THAT(command.back(), HasSubstr("du -sb /data"));
}

TEST_F(Cluster_Commands, Size_needs_a_pod_that_mounts_the_claim) {
  EXPECT_EQ(run({"pvc", "size", "other", "-n", "shop"}), exit_usage);
  EXPECT_THAT(failure, HasSubstr("mounts the claim 'other'"));
}

TEST_F(Cluster_Commands, Exec_passes_words_as_they_are) {
  EXPECT_EQ(run({"exec", "tools", "-n", "lab", "-c", "side", "--", "printf", "%s|", "a b", "c+d&e"}), exit_ok)
      << failure << log.all();
  EXPECT_EQ(out.str(), "a b|c+d&e|");
}

TEST_F(Cluster_Commands, Exec_tells_how_a_command_failed) {
  EXPECT_EQ(run({"exec", "tools", "-n", "lab", "-c", "main", "--", "sh", "-c", "echo before; exit 3"}),
            exit_job_failed);
  EXPECT_EQ(out.str(), "before\n");
  EXPECT_THAT(err.str(), HasSubstr("exit code 3"));
}

TEST_F(Cluster_Commands, Storage_classes_show_their_published_verdicts) {
  EXPECT_EQ(run({"sc", "show", "-n", "agents", "--json"}), exit_ok) << failure;
  EXPECT_EQ(printed("/storage_classes/0/name"), "fast");
  EXPECT_EQ(printed("/storage_classes/0/type"), "csi");
  EXPECT_EQ(printed("/storage_classes/0/clone"), "yes");
  EXPECT_EQ(printed("/storage_classes/0/snapshot"), "no");
}

TEST_F(Cluster_Commands, Storage_classes_without_verdicts_are_shown_too) {
  EXPECT_EQ(run({"sc", "show", "--json"}), exit_ok) << failure;
  EXPECT_EQ(printed("/storage_classes/0/name"), "fast");
  EXPECT_EQ(printed("/storage_classes/0/clone"), "");
}

TEST_F(Cluster_Commands, Storage_classes_are_tried_out_and_nothing_is_left) {
  std::ofstream("/opt/storage_class/config.json") << R"({"csi": ["fast"]})";
  EXPECT_EQ(run({"sc", "check", "-n", "agents", "--timeout", "60"}), exit_ok) << failure << log.all();
  EXPECT_THAT(out.str(), ::testing::ContainsRegex("fast +csi[.]example[.]com +Immediate +csi +yes +yes"));
  EXPECT_THAT(err.str(), AllOf(HasSubstr("CLASS"), HasSubstr("fast")));
  EXPECT_THAT(sim.list("", "persistentvolumeclaims", "agents"), IsEmpty());
  std::filesystem::remove("/opt/storage_class/config.json");
}

TEST_F(Cluster_Commands, Experiment_needs_the_file_that_lists_the_classes) {
  EXPECT_EQ(run({"sc", "check"}), exit_usage);
  EXPECT_THAT(failure, HasSubstr("-n"));
  EXPECT_EQ(run({"sc", "check", "-n", "agents"}), exit_refused);
}

TEST_F(Cluster_Commands, Selection_is_reduced_and_its_missing_entries_are_told) {
  const test_support::Temp_Dir dir;
  const std::string file = dir.write("entries.json", R"([
    {"type": "namespace", "name": "shop", "namespace": "shop"},
    {"type": "pods", "name": "web", "namespace": "shop"},
    {"type": "pods", "name": "gone", "namespace": "agents"}])");
  EXPECT_EQ(run({"entries", "check", file.c_str(), "--json"}), exit_job_failed) << failure;
  EXPECT_EQ(printed("/entries/0/name"), "shop");
  EXPECT_EQ(printed("/entries/1/name"), "gone");
  EXPECT_EQ(printed("/storage_classes/0"), "fast");
  EXPECT_THAT(out.str(), HasSubstr("\"left_out\": 1"));
}

TEST_F(Cluster_Commands, Selection_that_is_none_is_wrong_usage) {
  const test_support::Temp_Dir dir;
  EXPECT_EQ(run({"entries", "check", dir.write("a", "{}").c_str()}), exit_usage);
  EXPECT_EQ(run({"entries", "check", dir.write("b", "[{}]").c_str()}), exit_usage);
}

TEST_F(Cluster_Commands, Server_that_refuses_is_told_with_its_status) {
  account.set_token("wrong");
  EXPECT_EQ(run({"pvc", "list"}), exit_refused);
  EXPECT_THAT(failure, HasSubstr("the server answered 401"));
  EXPECT_THAT(out.str(), IsEmpty());
}

TEST_F(Cluster_Commands, Outside_of_a_cluster_the_server_has_to_be_named) {
  unsetenv("KUBERNETES_SERVICE_HOST");
  EXPECT_EQ(run({"cluster", "info"}), exit_usage);
  EXPECT_THAT(failure, HasSubstr("--server"));
}

TEST_F(Cluster_Commands, Server_token_and_CA_go_together) {
  EXPECT_EQ(run({"cluster", "info", "--server", "https://127.0.0.1:1"}), exit_usage);
  EXPECT_EQ(run({"cluster", "info", "--token-file", "/t"}), exit_usage);
}

}  // namespace
