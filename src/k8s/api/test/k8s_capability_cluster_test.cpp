// The experiment on a simulated cluster: over TLS, with controllers that bind claims and take snapshots.
#include <unistd.h>

#include <fstream>
#include <set>

#include "json_spirit/dump.h"
#include "json_spirit/extract.h"
#include "k8s/api/k8s_cluster.h"
#include "k8s/api/k8s_pvc_data_helper.h"
#include "support/fake_clock.h"
#include "support/kube_sim/controllers.h"
#include "support/kube_sim/front.h"
#include "support/kube_sim/service_account.h"
#include "support/log_capture.h"

namespace {

using testing::Contains;
using testing::HasSubstr;
using namespace test_support;

constexpr char path[] = "/opt/storage_class/config.json";
const std::vector<std::string> all_classes = {"gold", "lazy", "no-clones", "no-snapshots", "stuck", "absent"};
const std::vector<std::pair<const char*, const char*>> kinds = {{"", "persistentvolumeclaims"},
                                                                {"", "persistentvolumes"},
                                                                {"", "configmaps"},
                                                                {"storage.k8s.io", "storageclasses"},
                                                                {"snapshot.storage.k8s.io", "volumesnapshots"},
                                                                {"snapshot.storage.k8s.io", "volumesnapshotcontents"}};
const std::string start_line =
    "Start to clean up all temporary resources from the storage class capability validation.\n";
const std::string success_line =
    "Successfully clean up all temporary resources from the storage class capability validation.\n";
const std::string failure_line =
    "Failed to clean up all temporary resources, Please clean up them in namespace 'backup' manually.\n";

/// Waits pass at once, but not before the controllers have done what there was to do.
class Settling_Clock : public Fake_Clock {
 public:
  explicit Settling_Clock(const kube_sim::Controllers& controllers) : controllers_(controllers) {}
  void sleep(std::chrono::milliseconds span) override {
    EXPECT_TRUE(controllers_.settle());
    Fake_Clock::sleep(span);
  }

 private:
  const kube_sim::Controllers& controllers_;
};

struct Verdict {
  bool clone = false, snapshot = false;
};

/// What a run finds out that takes the classes in this @a order: a wait does not get past the first class that is not
/// there yet.
std::map<std::string, Verdict> expected_verdicts(const std::vector<std::string>& order) {
  std::map<std::string, Verdict> verdicts;
  bool blocked = false;
  for (const std::string& sc : order) {
    verdicts[sc].clone = !blocked && sc != "absent" && sc != "stuck";
    blocked = blocked || sc == "stuck" || sc == "no-clones";
  }
  blocked = false;
  for (const std::string& sc : order) {
    if (!verdicts[sc].clone) continue;
    blocked = blocked || sc == "no-snapshots";
    verdicts[sc].snapshot = !blocked;
  }
  return verdicts;
}

std::string document_of(const std::map<std::string, Verdict>& verdicts) {
  const auto text = [](bool value) { return value ? "true" : "false"; };
  std::string csi;
  for (const auto& [sc, verdict] : verdicts)
    csi += (csi.empty() ? "\"" : ",\"") + sc + R"(":{"clone":)" + text(verdict.clone) + R"(,"snapshot":)" +
           text(verdict.snapshot) + "}";
  return R"({"csi":{)" + csi +
         R"(},"local":{"disk":{"clone":true,"snapshot":true}},"nfs":{"share":{"clone":true,"snapshot":true}}})";
}

class Capability_On_Cluster : public testing::Test {
 protected:
  Capability_On_Cluster() {
    setenv("CURRENT_NAMESPACE", "backup", 1);
    setenv("AUX_KEY", "app", 1);
    setenv("AUX_VALUE", "agent", 1);
    setenv("AUX_PORT", "1", 1);
    namespace json = json_spirit;
    cluster.create(
        "", "namespaces",
        json::Object{{"kind", "Namespace"}, {"apiVersion", "v1"}, {"metadata", json::Object{{"name", "backup"}}}});
    add_storage_class(cluster, "gold", "csi.example.com");
    add_storage_class(cluster, "lazy", "csi.example.com", "WaitForFirstConsumer");
    add_storage_class(cluster, "no-clones", "csi.example.com");
    add_storage_class(cluster, "no-snapshots", "unready.example.com");
    add_storage_class(cluster, "stuck", "csi.example.com");
    add_snapshot_class(cluster, "snaps", "csi.example.com");
    add_snapshot_class(cluster, "unready-snaps", "unready.example.com");
    kube_sim::Behaviour behaviour;
    behaviour.stuck_classes = {"stuck"};
    behaviour.classes_without_clones = {"no-clones"};
    behaviour.stuck_snapshot_classes = {"unready-snaps"};
    controllers.set(behaviour);
    EXPECT_TRUE(controllers.settle());
    EXPECT_TRUE(K8S_Cluster::instance()->init());
    front.clear_requests();
  }
  ~Capability_On_Cluster() override {
    std::remove(path);
    Storage_Class_Config::close_instance();
    K8S_Cluster::close_instance();
    for (const char* name : {"CURRENT_NAMESPACE", "AUX_KEY", "AUX_VALUE", "AUX_PORT"}) unsetenv(name);
  }

  /// A run over these classes, from a fresh table. @return what init() gave.
  bool run(const std::vector<std::string>& classes, int retry_time_out) {
    std::string names;
    for (const std::string& sc : classes) names += (names.empty() ? "\"" : ",\"") + sc + "\"";
    std::ofstream(path) << R"({"csi":[)" + names + R"(],"local":["disk"],"nfs":["share"]})";
    Storage_Class_Config::close_instance();
    log.clear();
    const bool good = config().init(true, retry_time_out);
    EXPECT_TRUE(controllers.settle());
    return good;
  }
  static Storage_Class_Config& config() { return *Storage_Class_Config::instance(); }
  /// In the order in which a run takes them.
  static std::vector<std::string> order_of(const std::vector<std::string>& classes) {
    Storage_Class_Map scs;
    for (const std::string& sc : classes) scs.emplace(sc, CAPABILITY_NONE);
    std::vector<std::string> order;
    for (const auto& sc : scs) order.push_back(sc.first);
    return order;
  }
  std::string published() const {
    const auto map = cluster.get({"", "configmaps", "backup", "sc-capability-config"});
    std::string text;
    if (map) pextract (*map)("/data/config.json", text);
    return text;
  }
  /// "persistentvolumeclaims backup/abc" of all objects, but for the config map of the verdicts.
  std::set<std::string> objects() const {
    std::set<std::string> result;
    for (const auto& [group, resource] : kinds)
      for (const auto& object : cluster.list(group, resource)) {
        std::string ns, name;
        pextract (*object)("/metadata/namespace", ns)("/metadata/name", name);
        if (name != "sc-capability-config") result.insert(resource + (" " + ns) + "/" + name);
      }
    return result;
  }
  /// They pile up from run to run, and the controllers look at all that there is.
  void forget_events() {
    for (const auto& event : cluster.list("", "events", "backup")) {
      std::string name;
      pextract (*event)("/metadata/name", name);
      cluster.remove({"", "events", "backup", name});
    }
  }
  std::string last_info() const {
    const std::vector<std::string> infos = log.texts(LM_INFO);
    return infos.empty() ? "" : infos.back();
  }

  kube_sim::Cluster cluster;
  kube_sim::Controllers controllers{cluster};
  kube_sim::Front front{cluster};
  kube_sim::Service_Account account{front, kube_sim::Cluster_Options().token};
  Settling_Clock clock{controllers};
  Log_Capture log;
};

TEST_F(Capability_On_Cluster, EachClassByItselfGetsItsVerdict) {
  const std::set<std::string> before = objects();
  for (const std::string& sc : all_classes) {
    EXPECT_TRUE(run({sc}, 15)) << log.all();
    const Verdict expected = expected_verdicts({sc}).at(sc);
    EXPECT_EQ(published(), document_of({{sc, expected}})) << sc;
    EXPECT_EQ(config().check_clone(sc), expected.clone) << sc;
    EXPECT_EQ(config().check_snapshot(sc), expected.snapshot) << sc;
    EXPECT_EQ(objects(), before) << sc;
    EXPECT_EQ(last_info(), success_line) << sc;
  }
}

TEST_F(Capability_On_Cluster, ACloneThatTheDriverRefusesIsToldWithItsEvents) {
  EXPECT_TRUE(run({"no-clones"}, 15));
  EXPECT_TRUE(log.has_containing(LM_ERROR, "Volume cloning is not supported by this driver"));
  EXPECT_TRUE(
      log.has_containing(LM_WARNING, "-clone' associated with storage class 'no-clones' is not in bound status.\n"));
}

TEST_F(Capability_On_Cluster, AClaimThatIsNeverBoundIsTold) {
  EXPECT_TRUE(run({"stuck"}, 15));
  EXPECT_TRUE(log.has_containing(LM_WARNING, "' associated with storage class 'stuck' is not in bound status.\n"));
}

TEST_F(Capability_On_Cluster, ASnapshotThatIsNeverReadyIsTold) {
  EXPECT_TRUE(run({"no-snapshots"}, 15));
  EXPECT_TRUE(log.has_containing(LM_WARNING, "-snap' associated with storage class 'no-snapshots' was not created.\n"));
}

TEST_F(Capability_On_Cluster, SixClassesAreJudgedTogetherAndNothingIsLeft) {
  const std::set<std::string> before = objects();
  EXPECT_TRUE(run(all_classes, 30)) << log.all();
  EXPECT_EQ(published(), document_of(expected_verdicts(order_of(all_classes))));
  EXPECT_EQ(objects(), before);
  EXPECT_EQ(last_info(), success_line);
}

TEST_F(Capability_On_Cluster, AnotherRunReplacesTheVerdictsAndNothingElseInTheConfigMap) {
  ASSERT_TRUE(run({"stuck"}, 3));
  cluster.update({"", "configmaps", "backup", "sc-capability-config"}, [](json_spirit::Object& map) {
    map["data"].to_object()["note"] = "mine";
    return true;
  });
  ASSERT_TRUE(run({"gold"}, 15));
  EXPECT_EQ(published(), document_of({{"gold", {true, true}}}));
  const auto map = cluster.get({"", "configmaps", "backup", "sc-capability-config"});
  EXPECT_EQ(map->get_obj().at("data").get_obj().at("note"), "mine");
}

// A fault at every request in turn.

struct Fault_Kind {
  const char* name;
  kube_sim::Fault fault;
};

class Capability_Faults : public Capability_On_Cluster, public testing::WithParamInterface<Fault_Kind> {};

TEST_P(Capability_Faults, LeaveNothingBehindAtAnyRequest) {
  const std::set<std::string> before = objects();
  std::size_t n = 1;
  for (;; ++n) {
    forget_events();
    front.clear_requests();
    front.clear_faults();
    const std::size_t hit_before = front.faults_hit();
    front.fail({.nth = static_cast<int>(n)}, GetParam().fault);
    const bool good = run(all_classes, 3);
    if (front.faults_hit() == hit_before) break;
    const kube_sim::Request hit = front.requests().at(n - 1);
    SCOPED_TRACE(testing::Message() << "request " << n << ": " << hit.method << " " << hit.target);
    EXPECT_EQ(objects(), before);
    EXPECT_EQ(config().get_status(), good ? COMPLETED : ERROR);
    EXPECT_EQ(good, log.has(LM_INFO, "Successfully check storage classes capability.\n"));
    EXPECT_NE(good, log.has(LM_ERROR, "Failed to update sc-capability-config.\n"));
    EXPECT_TRUE(log.has(LM_INFO, start_line));
    EXPECT_TRUE(hit.method != "POST" || log.has_containing(LM_ERROR, "Failed to create type "));
    EXPECT_NE(last_info() == success_line, log.has(LM_WARNING, failure_line));
    if (HasFailure()) break;
  }
  EXPECT_GT(n, 60u);
}

kube_sim::Fault refusal(int status) {
  kube_sim::Answer answer;
  answer.status = status;
  answer.body = R"({"kind":"Status","apiVersion":"v1","status":"Failure","message":"made for the test"})";
  return {.answer = answer};
}

INSTANTIATE_TEST_SUITE_P(Of, Capability_Faults,
                         testing::Values(Fault_Kind{"Status500", refusal(500)}, Fault_Kind{"Status409", refusal(409)},
                                         Fault_Kind{"Reset", {.end = kube_sim::Fault::End::RESET}}),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
