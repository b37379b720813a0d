#include "cluster_fixture.h"
#include "json_spirit/json_pointer.h"
#include "k8s/api/k8s_cluster.h"
#include "k8s/api/k8s_pvc.h"
#include "k8s/api/k8s_storage_class.h"
#include "k8s/api/k8s_utils.h"
#include "k8s/api/k8s_volume_snapshot.h"
#include "support/fake_clock.h"
#include "support/kube_sim/cluster.h"
#include "support/kube_sim/controllers.h"

/**
 * The life of copies in a cluster whose controllers work: what the server makes of what is sent.
 */
namespace {

using json_spirit::Array;
using json_spirit::JSON_Pointer;
using json_spirit::Object;
using json_spirit::Value;
using namespace test_support;

/// Whoever waits lets the controllers finish what they are at.
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

struct Copies : testing::Test {
  Copies() {
    add_node(sim, "n1");
    add_storage_class(sim, "fast", "csi.example.com");
    add_storage_class(sim, "late", "csi.example.com", "WaitForFirstConsumer");
    add_snapshot_class(sim, "snaps", "csi.example.com");
    EXPECT_TRUE(K8S_Cluster::instance()->init()) << log.all();
    EXPECT_TRUE(create("data", "fast")) << log.all();
  }
  ~Copies() override { K8S_Cluster::close_instance(); }

  bool create(const std::string& name, const std::string& storage_class) {
    const Object resources = {{"requests", Object{{"storage", "1Gi"}}}};
    return claims.create(name, storage_class, resources, {"ReadWriteOnce"}, "Filesystem", "v1");
  }
  /// The text at a path of a claim as the server stored it.
  std::string stored(const std::string& claim, const char* path) const {
    const std::shared_ptr<const Value> object = sim.get({"", "persistentvolumeclaims", "default", claim});
    std::string text = "(none)";
    if (object) JSON_Pointer(path, false, true).get(*object, text);
    return text;
  }
  bool exists(const std::string& claim) const {
    return sim.get({"", "persistentvolumeclaims", "default", claim}) != nullptr;
  }

  kube_sim::Cluster sim;
  kube_sim::Controllers controllers{sim};
  kube_sim::Front front{sim};
  kube_sim::Service_Account account{front, kube_sim::Cluster_Options().token};
  Aux_Environment environment;
  Settling_Clock clock{controllers};
  Log_Capture log;
  K8S_Client_var client = std::make_shared<K8S_Client>();
  K8S_PVC claims{client, "default"};
};

TEST_F(Copies, CloneIsBoundAndRemembersItsSource) {
  EXPECT_TRUE(claims.clone("data", "")) << log.all();
  EXPECT_TRUE(claims.is_bound("data-tessarin", true, K8S_QVX_RETRY_TIMES)) << log.all();
  EXPECT_EQ(stored("data-tessarin", "/spec/dataSource/kind"), "PersistentVolumeClaim");
  EXPECT_EQ(stored("data-tessarin", "/spec/dataSource/name"), "data");
  EXPECT_EQ(stored("data-tessarin", "/metadata/labels/component"), "tessarin-agent");
}

TEST_F(Copies, ClaimFromASnapshotKeepsItsSource) {
  Value source;
  ASSERT_TRUE(claims.is_bound("data", true, K8S_QVX_RETRY_TIMES)) << log.all();
  ASSERT_TRUE(claims.get("data", source, true));
  K8S_Volume_Snapshot snapshots(client, "default");
  EXPECT_TRUE(snapshots.create_with_name(claims, "data", "")) << log.all();
  EXPECT_TRUE(snapshots.is_ready_to_use("data-tessarin", true, K8S_QVX_RETRY_TIMES)) << log.all();
  EXPECT_TRUE(claims.create_from_snapshot(source, "restored")) << log.all();
  EXPECT_TRUE(claims.is_bound("restored", true, K8S_QVX_RETRY_TIMES)) << log.all();
  // A server drops a source whose group it does not know, and makes an empty volume.
  EXPECT_EQ(stored("restored", "/spec/dataSource/apiGroup"), "snapshot.storage.k8s.io");
  EXPECT_EQ(stored("restored", "/spec/dataSource/name"), "data-tessarin");
}

TEST_F(Copies, AreFoundByTheSelectorAndNothingElseIs) {
  sim.create(
      "", "persistentvolumeclaims",
      json(R"({"kind":"PersistentVolumeClaim","apiVersion":"v1","metadata":{"name":"users","namespace":"default"},
                      "spec":{"accessModes":["ReadWriteOnce"],"resources":{"requests":{"storage":"1Gi"}}}})")
          .get_obj());
  EXPECT_TRUE(claims.clone("data", "copy")) << log.all();
  Value found;
  EXPECT_TRUE(claims.list(found, k8s::selector()));
  std::vector<std::string> names;
  for (const Value& item : json_spirit::object_get_array_or_throw(found.get_obj(), "items")) {
    std::string name;
    JSON_Pointer("/metadata/name", false, true).get(item, name);
    names.push_back(name);
  }
  EXPECT_THAT(names, testing::ElementsAre("copy", "data"));
}

TEST_F(Copies, ClaimIsDeletedWhenItsFinalizerIsGone) {
  EXPECT_TRUE(claims.delete_("data", true, K8S_QVX_RETRY_TIMES)) << log.all();
  EXPECT_FALSE(exists("data"));
}

TEST_F(Copies, SweepTakesOnlyTheAgentsSnapshots) {
  ASSERT_TRUE(claims.is_bound("data", true, K8S_QVX_RETRY_TIMES)) << log.all();
  K8S_Volume_Snapshot snapshots(client, "default");
  EXPECT_TRUE(snapshots.create_with_name(claims, "data", "a")) << log.all();
  EXPECT_TRUE(snapshots.create_with_name(claims, "data", "b")) << log.all();
  ASSERT_TRUE(sim.create("snapshot.storage.k8s.io", "volumesnapshots",
                         json(R"({"kind":"VolumeSnapshot","apiVersion":"snapshot.storage.k8s.io/v1",
                                  "metadata":{"name":"users","namespace":"default"},
                                  "spec":{"source":{"persistentVolumeClaimName":"data"}}})")
                             .get_obj()));
  EXPECT_TRUE(snapshots.delete_all()) << log.all();
  EXPECT_EQ(sim.list("snapshot.storage.k8s.io", "volumesnapshots").size(), 1u);
  EXPECT_TRUE(sim.get({"snapshot.storage.k8s.io", "volumesnapshots", "default", "users"}));
}

TEST_F(Copies, ClassThatBindsLateHasACopyThatBindsAtOnce) {
  std::string copy;
  ASSERT_TRUE(K8S_Storage_Class(client).create_immediate_sc("late", copy)) << log.all();
  EXPECT_TRUE(create("waits", "late"));
  EXPECT_TRUE(create("bound", copy));
  EXPECT_FALSE(claims.is_bound("waits", false, 3));
  EXPECT_TRUE(claims.is_bound("bound", true, K8S_QVX_RETRY_TIMES)) << log.all();
}

}  // namespace
