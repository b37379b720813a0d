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
#include "support/kube_sim/scripted_api.h"
#include "support/kube_sim/service_account.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace {

using namespace ctl;
using json_spirit::Value;
using ::testing::AllOf;
using ::testing::ContainsRegex;
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
    for (const char* name :
         {"AUX_KEY", "AUX_VALUE", "AUX_PORT", "TESSARIN_CA", "TESSARIN_AGENT_NAME", "CURRENT_NAMESPACE"})
      unsetenv(name);
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

TEST_F(Cluster_Commands, Dry_run_of_cleaning_changes_nothing) {
  EXPECT_EQ(run({"pvc", "clone", "data", "-n", "shop"}), exit_ok) << failure;
  ASSERT_TRUE(controllers.settle());
  front.clear_requests();
  EXPECT_EQ(run({"clean", "shop", "--dry-run"}), exit_ok) << failure;
  EXPECT_EQ(out.str(), "KIND   NAME\nclaim  data-tessarin\n");
  for (const kube_sim::Request& request : front.requests()) EXPECT_EQ(request.method, "GET");
  EXPECT_EQ(run({"clean", "lab", "--dry-run", "--json"}), exit_ok) << failure;
  EXPECT_EQ(printed("/objects/0/name"), "(none)");
}

TEST_F(Cluster_Commands, Claim_that_is_not_there_has_no_clone) {
  EXPECT_EQ(run({"pvc", "clone", "gone", "-n", "shop"}), exit_refused);
  EXPECT_EQ(failure, "The claim 'gone' cannot be cloned: the server answered 404 (not found).");
}

TEST_F(Cluster_Commands, Copy_whose_name_is_taken_is_told) {
  EXPECT_EQ(run({"pvc", "clone", "data", "-n", "shop", "--as", "copy"}), exit_ok) << failure;
  EXPECT_EQ(run({"pvc", "clone", "data", "-n", "shop", "--as", "copy"}), exit_refused);
  EXPECT_EQ(failure, "The claim 'data' cannot be cloned: the server answered 409 (there already).");
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

constexpr char pod_of_two_containers[] = R"([
    {"kind": "PersistentVolumeClaim", "apiVersion": "v1", "metadata": {"name": "shared", "namespace": "lab"},
     "spec": {"accessModes": ["ReadWriteOnce"], "storageClassName": "fast", "volumeMode": "Filesystem",
              "resources": {"requests": {"storage": "1Gi"}}}},
    {"kind": "Pod", "apiVersion": "v1", "metadata": {"name": "two", "namespace": "lab"},
     "spec": {"containers": [{"name": "a", "image": "busybox",
                              "volumeMounts": [{"name": "v", "mountPath": "/data"}]},
                             {"name": "b", "image": "busybox"}],
              "volumes": [{"name": "v", "persistentVolumeClaim": {"claimName": "shared"}}]}}])";

TEST_F(Cluster_Commands, Size_in_a_pod_of_several_containers_is_left_to_the_agents) {
  preload(sim, json(pod_of_two_containers));
  ASSERT_TRUE(controllers.settle());
  EXPECT_EQ(run({"pvc", "size", "shared", "-n", "lab"}), exit_usage);
  EXPECT_THAT(failure, AllOf(HasSubstr("several containers"), HasSubstr("AUX_KEY")));
}

/// An agent that answers by TLS, on this machine.
class Called_Agent : public Cluster_Commands {
 protected:
  Called_Agent() {
    preload(sim, json(pod_of_two_containers));
    EXPECT_TRUE(controllers.settle());
    sim.update({"", "pods", "agents", "agent-1"}, [](json_spirit::Object& pod) {
      pod["status"].get_obj()["podIP"] = "127.0.0.1";
      return true;
    });
    know_agents();
    setenv("AUX_PORT", std::to_string(agent_front.port()).c_str(), 1);
    const std::string ca = containers.path() + "/agents.crt";
    std::ofstream(ca) << agent_front.ca();
    setenv("TESSARIN_CA", ca.c_str(), 1);
  }

  kube_sim::Scripted_Api agent;
  kube_sim::Front agent_front{agent};
};

TEST_F(Called_Agent, Is_shown_the_service_accounts_token) {
  setenv("TESSARIN_AGENT_NAME", "localhost", 1);
  agent.expect("POST", "/d2/jr", kube_sim::json_answer(200, R"({"result": {"size": 4711}})"));
  EXPECT_EQ(run({"pvc", "size", "shared", "-n", "lab", "--json"}), exit_ok) << failure << log.all();
  EXPECT_THAT(out.str(), HasSubstr("4711"));
  ASSERT_EQ(agent_front.requests().size(), 1U);
  EXPECT_EQ(agent_front.requests()[0].header("authorization"), "Bearer " + account.token());
  EXPECT_EQ(agent.verify(), "");
}

TEST_F(Called_Agent, Gets_no_request_under_another_name) {
  setenv("TESSARIN_AGENT_NAME", "tessarin-agent.tessarin.svc", 1);
  EXPECT_EQ(run({"pvc", "size", "shared", "-n", "lab"}), exit_refused);
  EXPECT_THAT(agent_front.requests(), IsEmpty());
}

TEST_F(Cluster_Commands, Exec_passes_words_as_they_are) {
  EXPECT_EQ(run({"exec", "tools", "-n", "lab", "-c", "side", "--", "printf", "%s|", "a b", "c+d&e"}), exit_ok)
      << failure << log.all();
  EXPECT_EQ(out.str(), "a b|c+d&e|");
}

TEST_F(Cluster_Commands, Exec_ends_with_the_commands_own_exit_code) {
  EXPECT_EQ(run({"exec", "tools", "-n", "lab", "-c", "main", "--", "sh", "-c", "echo before; exit 42"}), 42);
  EXPECT_EQ(out.str(), "before\n");
  EXPECT_EQ(err.str(), "tessarinctl: The command ended with exit code 42.\n");
}

TEST_F(Cluster_Commands, Exec_keeps_output_and_errors_apart) {
  EXPECT_EQ(run({"exec", "web", "-n", "shop", "--", "sh", "-c", "echo good; echo bad >&2"}), exit_ok) << failure;
  EXPECT_EQ(out.str(), "good\n");
  EXPECT_EQ(err.str(), "bad\n");
  EXPECT_EQ(run({"exec", "web", "-n", "shop", "--json", "--", "sh", "-c", "echo good; echo bad >&2; exit 5"}), 5);
  EXPECT_EQ(printed("/stdout"), "good\n");
  EXPECT_EQ(printed("/stderr"), "bad\n");
  EXPECT_THAT(out.str(), HasSubstr("\"exit_code\": 5"));
}

TEST_F(Cluster_Commands, Exec_passes_output_on_as_it_comes) {
  // What is printed last waits for a file that is written once the first output has been seen.
  const std::string seen = containers / "seen";
  class Watcher : public std::stringbuf {
   public:
    explicit Watcher(const std::string& file) : file_(file) {}
    int sync() override {
      if (str().find("first") != std::string::npos) std::ofstream(file_) << "1";
      return 0;
    }

   private:
    const std::string file_;
  } watcher(seen);
  static_cast<std::ostream&>(out).rdbuf(&watcher);
  const std::string script = "echo first; for i in $(seq 200); do [ -e " + seen + " ] && break; sleep 0.05; done; " +
                             "[ -e " + seen + " ] && echo last";
  EXPECT_EQ(run({"exec", "web", "-n", "shop", "--", "sh", "-c", script.c_str()}), exit_ok) << failure;
  static_cast<std::ostream&>(out).rdbuf(out.rdbuf());
  EXPECT_EQ(watcher.str(), "first\nlast\n");
}

TEST_F(Cluster_Commands, Exec_of_a_program_that_is_not_there_fails_with_the_servers_words) {
  EXPECT_EQ(run({"exec", "web", "-n", "shop", "--", "/no-such-program"}), exit_job_failed);
  EXPECT_THAT(err.str(), HasSubstr("no-such-program"));
  EXPECT_EQ(run({"exec", "web", "-n", "shop", "--json", "--", "/no-such-program"}), exit_job_failed);
  EXPECT_THAT(out.str(), HasSubstr("\"exit_code\": null"));
}

TEST_F(Cluster_Commands, Exec_needs_to_know_the_container_of_several) {
  EXPECT_EQ(run({"exec", "tools", "-n", "lab", "--", "true"}), exit_usage);
  EXPECT_EQ(failure, "The pod 'tools' has several containers; -c must name one of them: main, side.");
  EXPECT_EQ(run({"exec", "tools", "-n", "lab", "-c", "other", "--", "true"}), exit_usage);
  EXPECT_EQ(failure, "The pod 'tools' has no container 'other'. It has: main, side.");
}

TEST_F(Cluster_Commands, Exec_needs_a_pod_that_is_there_and_runs) {
  EXPECT_EQ(run({"exec", "gone", "-n", "lab", "--", "true"}), exit_refused);
  EXPECT_EQ(failure, "The pod 'gone' cannot be read: the server answered 404 (not found).");
  preload(sim, json(R"([{"kind": "Pod", "apiVersion": "v1", "metadata": {"name": "stuck", "namespace": "lab"},
                         "spec": {"nodeName": "", "containers": [{"name": "main", "image": "busybox",
                                  "volumeMounts": [{"name": "v", "mountPath": "/data"}]}],
                         "volumes": [{"name": "v", "persistentVolumeClaim": {"claimName": "missing"}}]}}])"));
  EXPECT_EQ(run({"exec", "stuck", "-n", "lab", "--", "true"}), exit_usage);
  EXPECT_EQ(failure, "The pod 'stuck' is not running, but Pending.");
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
  EXPECT_THAT(err.str(), IsEmpty());
  EXPECT_EQ(run({"sc", "show"}), exit_ok) << failure;
  EXPECT_THAT(err.str(), HasSubstr("-n tells the namespace"));
}

class Experiment_Command : public Cluster_Commands {
 protected:
  int check(const char* classes, std::vector<const char*> more = {}, const char* timeout = "60") {
    const std::string file = dir.write("classes.json", classes);
    std::vector<const char*> args{"sc", "check", "-n", "agents", "--timeout", timeout, "--file", file.c_str()};
    args.insert(args.end(), more.begin(), more.end());
    return run(args);
  }
  std::string published() const {
    const auto map = sim.get({"", "configmaps", "agents", "sc-capability-config"});
    std::string text;
    if (map != nullptr) json_spirit::pextract (*map)("/data/config.json", text);
    return text;
  }
  void expect_nothing_left() const {
    EXPECT_THAT(sim.list("", "persistentvolumeclaims", "agents"), IsEmpty());
    EXPECT_THAT(sim.list("snapshot.storage.k8s.io", "volumesnapshots", "agents"), IsEmpty());
    EXPECT_EQ(sim.list("storage.k8s.io", "storageclasses").size(), 2u);
  }
  void SetUp() override { add_storage_class(sim, "late", "csi.example.com", "WaitForFirstConsumer"); }

  const test_support::Temp_Dir dir;
};

TEST_F(Experiment_Command, Verdicts_are_printed_and_published_and_nothing_is_left) {
  EXPECT_EQ(check(R"({"csi": ["fast", "late", "ghost"], "nfs": ["share"]})"), exit_ok) << failure << log.all();
  EXPECT_THAT(out.str(), ContainsRegex("CLASS +TYPE +CLONE +SNAPSHOT +NOTE"));
  EXPECT_THAT(out.str(), ContainsRegex("fast +csi +yes +yes +-"));
  EXPECT_THAT(out.str(), ContainsRegex("late +csi +yes +yes +-"));
  EXPECT_THAT(out.str(), ContainsRegex("ghost +csi +no +no +not in the cluster"));
  EXPECT_THAT(out.str(), ContainsRegex("share +nfs +yes +yes +not tried out"));
  EXPECT_THAT(published(), AllOf(HasSubstr("late"), HasSubstr("ghost"), HasSubstr("share")));
  expect_nothing_left();
}

TEST_F(Experiment_Command, Way_there_is_told_in_lines_where_there_is_no_terminal) {
  EXPECT_EQ(check(R"({"csi": ["late"]})"), exit_ok) << failure << log.all();
  EXPECT_THAT(err.str(), AllOf(HasSubstr("Making claims and clones\n"), HasSubstr("late: claim pending\n"),
                               HasSubstr("late: claim bound, clone bound, snapshot"),
                               HasSubstr("Removing the temporary objects\n")));
  EXPECT_THAT(err.str(), Not(HasSubstr("\033")));
}

TEST_F(Experiment_Command, Document_holds_the_verdicts_and_nothing_else_is_said) {
  EXPECT_EQ(check(R"({"csi": ["fast"]})", {"--json"}), exit_ok) << failure << log.all();
  EXPECT_EQ(printed("/verdicts/0/name"), "fast");
  EXPECT_EQ(printed("/verdicts/0/type"), "csi");
  EXPECT_THAT(out.str(), AllOf(HasSubstr("\"clone\": true"), HasSubstr("\"snapshot\": true")));
  EXPECT_THAT(err.str(), IsEmpty());
}

TEST_F(Experiment_Command, Classes_of_the_agents_file_are_the_default) {
  EXPECT_EQ(run({"sc", "check", "-n", "agents"}), exit_usage);
  EXPECT_EQ(failure, "'/opt/storage_class/config.json' cannot be read. --file FILE names another one.");
  std::ofstream("/opt/storage_class/config.json") << R"({"local": ["disk"]})";
  EXPECT_EQ(run({"sc", "check", "-n", "agents"}), exit_ok) << failure;
  std::filesystem::remove("/opt/storage_class/config.json");
  EXPECT_THAT(out.str(), ContainsRegex("disk +local +yes +yes +not tried out"));
  EXPECT_THAT(err.str(), HasSubstr("none is tried out"));
}

TEST_F(Experiment_Command, Namespace_has_to_be_told) {
  EXPECT_EQ(run({"sc", "check"}), exit_usage);
  EXPECT_THAT(failure, HasSubstr("-n"));
}

TEST_F(Experiment_Command, Verdicts_that_cannot_be_published_are_printed_all_the_same) {
  sim.remove({"", "configmaps", "agents", "sc-capability-config"});
  front.fail({"POST", ".*/configmaps.*", 1, 0}, {.answer = kube_sim::Answer{403}});
  EXPECT_EQ(check(R"({"csi": ["fast"]})"), exit_refused);
  EXPECT_THAT(out.str(), ContainsRegex("fast +csi +yes +yes"));
  EXPECT_THAT(err.str(), HasSubstr("could not be written into the config map"));
  expect_nothing_left();
}

TEST_F(Experiment_Command, What_cannot_be_removed_is_told_by_name) {
  front.fail({"DELETE", ".*/storageclasses/.*", 1, 0}, {.answer = kube_sim::Answer{403}});
  EXPECT_EQ(check(R"({"csi": ["late"]})", {}, "6"), exit_job_failed);
  EXPECT_THAT(out.str(), ContainsRegex("late +csi +yes"));
  EXPECT_THAT(err.str(), ContainsRegex("Left behind in namespace agents:\n  storage class [a-z]{8}\n"));
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
  EXPECT_EQ(run({"entries", "check", "/nowhere"}), exit_usage);
  EXPECT_EQ(failure, "'/nowhere' cannot be read.");
  EXPECT_EQ(run({"entries", "check", dir.write("a", "{}").c_str()}), exit_usage);
  EXPECT_EQ(run({"entries", "check", dir.write("b", "[{}]").c_str()}), exit_usage);
}

TEST_F(Cluster_Commands, Server_that_refuses_is_told_with_its_status) {
  account.set_token("wrong");
  EXPECT_EQ(run({"pvc", "list"}), exit_refused);
  EXPECT_THAT(failure, HasSubstr("the server answered 401 (the token is not taken)"));
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
