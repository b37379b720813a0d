#include <functional>
#include <set>

#include "json_spirit/extract.h"
#include "k8s/api/k8s_pvc.h"
#include "k8s/api/k8s_utils.h"
#include "k8s/api/k8s_workload_factory.h"
#include "kolt/make_shared_nothrow.h"
#include "simulated_cluster.h"
#include "support/fake_clock.h"
#include "support/kube_sim/scripted_exec.h"

/**
 * Each address that an operation asks meets each fault, for as long as the operation lasts. It ends, tells the truth
 * about itself, and leaves alone what it does not own.
 */
namespace {

using json_spirit::Array;
using json_spirit::Value;
using kube_sim::Fault;
using namespace test_support;

struct Named_Fault {
  const char* name;
  Fault fault;
  bool lost = false;  // there is no reply, or none that can be read
};

Named_Fault refusal(const char* name, int status) {
  return {name, {.answer = kube_sim::json_answer(status, R"({"kind":"Status","status":"Failure"})")}};
}

const Named_Fault faults[] = {
    refusal("401", 401),
    refusal("403", 403),
    refusal("429", 429),
    refusal("500", 500),
    {"reset", {.end = Fault::End::RESET}, true},
    {"head cut", {.end = Fault::End::DROP_IN_HEAD}, true},
    {"body cut", {.end = Fault::End::CUT_BODY, .body_bytes = 5}, true},
    {"no JSON", {.answer = kube_sim::json_answer(200, "<html>")}, true},
};

/// Whether an operation succeeds although an address fails.
enum Survival { NEVER, WHEN_LOST, ALWAYS };

struct Operation {
  const char* name;
  std::vector<std::pair<const char*, Survival>> addresses;
  std::function<bool()> run;
};

void PrintTo(const Operation& operation, std::ostream* stream) {
  *stream << operation.name;
}

bool measure(bool in_pod) {
  const Value pod = json(string_sprintf(
      R"({"kind":"Pod","apiVersion":"v1","metadata":{"name":"web-1","namespace":"shop"},"spec":{"volumes":[{"name":"v",
          "persistentVolumeClaim":{"claimName":"data"}}],"containers":[%s]}})",
      in_pod ? R"({"volumeMounts":[{"name":"v","mountPath":"/data"}]})" : ""));
  K8S_PVC claims(make_shared_nothrow<K8S_Client>(), "shop");
  std::int64_t size = 0;
  return k8s::get_pvc_size(claims, pod, "n1", "uid-1", "data", size) && size == 9;
}

// A probe that is lost reads as "not there", so that the deletion succeeds.
const Operation operations[] = {
    {"CleanEnv",
     {{"/api/v1/namespaces/shop/pods", NEVER},
      {"/api/v1/namespaces/shop/pods/agent", WHEN_LOST},
      {"/api/v1/namespaces/shop/persistentvolumeclaims", NEVER},
      {"/api/v1/namespaces/shop/persistentvolumeclaims/agent", WHEN_LOST},
      {"/apis/snapshot.storage.k8s.io/v1/namespaces/shop/volumesnapshots", ALWAYS},
      {"/apis/snapshot.storage.k8s.io/v1/namespaces/shop/volumesnapshots/agent", ALWAYS}},
     [] { return k8s::clean_env("shop"); }},
    {"GetScsFromNs",
     {{"/api/v1/namespaces/shop/pods", NEVER}, {"/api/v1/namespaces/shop/persistentvolumeclaims/data", ALWAYS}},
     [] {
       Storage_Class_Set classes;
       return k8s::get_scs_from_ns("shop", classes);
     }},
    {"ExtractScsFromWorkload",
     {{"/apis/apps/v1/namespaces/shop/replicasets/web", NEVER},
      {"/api/v1/namespaces/shop/pods", NEVER},
      {"/api/v1/namespaces/shop/persistentvolumeclaims/data", ALWAYS}},
     [] {
       Storage_Class_Set classes;
       return k8s::extract_scs_from_workload({"replicasets", "shop", "web"}, classes);
     }},
    {"IsEntryPresent",
     {{"/apis/apps/v1/namespaces/shop/replicasets/web", NEVER}},
     [] { return k8s::is_entry_present("web", "shop", "replicasets"); }},
    {"ListWorkloadObjects",
     {{"/apis/batch/v1/cronjobs", NEVER},
      {"/apis/apps/v1/deployments", NEVER},
      {"/apis/apps/v1/daemonsets", NEVER},
      {"/apis/batch/v1/jobs", NEVER},
      {"/api/v1/pods", NEVER},
      {"/apis/apps/v1/replicasets", NEVER},
      {"/apis/apps/v1/statefulsets", NEVER},
      {"/apis/apps/v1/namespaces/shop/replicasets/web", ALWAYS}},
     [] {
       Array workloads;
       return K8S_Workload_Helper(make_shared_nothrow<K8S_Client>()).list_workload_objects(workloads, nullptr, nullptr);
     }},
    {"GetPvcSizeInThePod",
     {{"/api/v1/namespaces/shop/persistentvolumeclaims/data", NEVER},
      {"/api/v1/namespaces/shop/pods/web-1/exec", ALWAYS}},
     [] { return measure(true); }},
    {"GetPvcSizeOnTheNode",
     {{"/api/v1/namespaces/shop/persistentvolumeclaims/data", NEVER}, {"/api/v1/namespaces/agents/pods", NEVER}},
     [] { return measure(false); }},
};

/// The agent of the node: everything there is 9 bytes large.
class Small_Volumes : public kube_sim::Api {
 public:
  kube_sim::Answer answer(const kube_sim::Request&) override {
    return kube_sim::json_answer(200, R"({"jsonrpc":"2.0","id":"1","result":{"size":9}})");
  }
};

struct PlanningFaults : Simulated_Cluster, testing::WithParamInterface<Operation> {
  PlanningFaults() {
    environment.set("AUX_PORT", std::to_string(node_front.port()).c_str());
    K8S_Cluster::instance()->set_aux_info();
    cluster.make_exec = [](const kube_sim::Request&) {
      return std::make_unique<kube_sim::Scripted_Exec>(kube_sim::Exec_Script().output("9\t/data\n").exit(0));
    };
    const std::string owner = R"(,"ownerReferences":[{"apiVersion":"apps/v1","kind":"ReplicaSet","name":"web",
                                                      "uid":"u"}])";
    const std::string pod_spec = R"({"containers":[{"name":"c","image":"i"}],
        "volumes":[{"name":"v","persistentVolumeClaim":{"claimName":"data"}}]})";
    make("apps", "replicasets", "ReplicaSet", "apps/v1", "web", R"({"app":"web"})",
         R"({"selector":{"matchLabels":{"app":"web"}},"template":{"metadata":{"labels":{"app":"web"}},"spec":)" +
             pod_spec + "}}");
    make("", "pods", "Pod", "v1", "web-1", R"({"app":"web"})" + owner, pod_spec);
    make("", "persistentvolumeclaims", "PersistentVolumeClaim", "v1", "data", "{}",
         R"({"accessModes":["ReadWriteOnce"],"storageClassName":"fast","volumeName":"pv-1",
             "resources":{"requests":{"storage":"1Gi"}}})");
    make_marked();
    users_objects = objects("!component");
  }

  void make(const std::string& group, const std::string& resource, const std::string& kind, const std::string& version,
            const std::string& name, const std::string& labels, const std::string& spec) {
    if (!cluster.get({group, resource, "shop", name}))
      create(group, resource,
             R"({"kind":")" + kind + R"(","apiVersion":")" + version + R"(","metadata":{"namespace":"shop","name":")" +
                 name + R"(","labels":)" + labels + R"(},"spec":)" + spec + "}");
  }
  /// What clean_env() is to remove, as far as it is not there.
  void make_marked() {
    const std::string mark = R"({"component":"tessarin-agent"})";
    const std::string spec = R"({"containers":[{"name":"c","image":"i"}],"volumes":[{"name":"v","emptyDir":{}}]})";
    make("", "pods", "Pod", "v1", "agent", mark, spec);
    make("", "persistentvolumeclaims", "PersistentVolumeClaim", "v1", "agent", mark,
         R"({"accessModes":["ReadWriteOnce"],"resources":{"requests":{"storage":"1Gi"}}})");
    make("snapshot.storage.k8s.io", "volumesnapshots", "VolumeSnapshot", "snapshot.storage.k8s.io/v1", "agent", mark,
         R"({"source":{"persistentVolumeClaimName":"data"}})");
  }
  std::vector<Value> objects(const std::string& selector) const {
    std::vector<Value> result;
    for (const auto& [group, resource] :
         {std::pair("", "pods"), std::pair("", "persistentvolumeclaims"), std::pair("apps", "replicasets")})
      for (const auto& object : cluster.list(group, resource, "shop", selector)) result.push_back(*object);
    return result;
  }
  bool something_logged() const { return !errors().empty() || !log.texts(LM_EMERGENCY).empty(); }

  Small_Volumes node;
  kube_sim::Front node_front{node, {.certificates = &certificates}};
  Fake_Clock clock;
  std::vector<Value> users_objects;
};

TEST_P(PlanningFaults, WithoutAFaultItSucceeds) {
  EXPECT_TRUE(GetParam().run()) << log.all();
  std::set<std::string> asked;
  for (const kube_sim::Request& request : front.requests()) asked.insert(request.path);
  for (const auto& [address, survival] : GetParam().addresses) EXPECT_TRUE(asked.contains(address)) << address;
  EXPECT_EQ(asked.size(), GetParam().addresses.size());
}

TEST_P(PlanningFaults, AnAddressThatFailsEndsItOrIsDoneWithout) {
  for (const auto& [address, survival] : GetParam().addresses)
    for (const Named_Fault& fault : faults) {
      SCOPED_TRACE(std::string(fault.name) + " at " + address);
      make_marked();
      log.clear();
      front.clear_faults();
      front.fail({.path = address, .count = 0}, fault.fault);
      const bool survives = survival == ALWAYS || (survival == WHEN_LOST && fault.lost);
      const bool result = GetParam().run();
      EXPECT_EQ(result, survives) << log.all();
      EXPECT_GT(front.faults_hit(), 0u);
      EXPECT_TRUE(result || something_logged());
      EXPECT_EQ(objects("!component"), users_objects);
    }
}

INSTANTIATE_TEST_SUITE_P(Operations, PlanningFaults, testing::ValuesIn(operations),
                         [](const auto& info) { return info.param.name; });

}  // namespace
