#include "support/kube_sim/controllers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "json_spirit/dump.h"
#include "json_spirit/extract.h"
#include "support/kube_sim/control_plane.h"
#include "support/kube_sim/preload.h"

using namespace kube_sim;
using json_spirit::Object;
using json_spirit::Value;
using std::chrono::milliseconds;
using testing::HasSubstr;

namespace {

constexpr char token[] = "kube-sim-token";
constexpr char snapshot_api[] = "/apis/snapshot.storage.k8s.io/v1/namespaces/default/volumesnapshots";
constexpr char claims_api[] = "/api/v1/namespaces/default/persistentvolumeclaims";
constexpr char pods_api[] = "/api/v1/namespaces/default/pods";

struct Controllers_Test : testing::Test {
  Cluster cluster;

  Controllers_Test() {
    add_node(cluster, "node-1");
    add_storage_class(cluster, "fast", "csi.example.com");
    add_storage_class(cluster, "late", "csi.example.com", "WaitForFirstConsumer");
    add_snapshot_class(cluster, "snaps", "csi.example.com");
  }

  /// A request as a client sends it; the status of the answer.
  int request(const std::string& method, const std::string& target, const std::string& body = "") {
    Request request;
    request.method = method;
    set_target(request, target);
    request.body = body;
    request.headers["authorization"] = std::string("Bearer ") + token;
    request.headers["content-type"] = method == "PATCH" ? "application/merge-patch+json" : "application/json";
    const Answer answer = cluster.answer(request);
    EXPECT_LT(answer.status, 500) << answer.body;
    return answer.status;
  }
  void post(const std::string& target, const std::string& body) {
    EXPECT_EQ(request("POST", target, body), 201) << body;
  }

  void post_claim(const std::string& name, const std::string& storage_class, const std::string& source = "") {
    post(claims_api, R"({"kind":"PersistentVolumeClaim","apiVersion":"v1","metadata":{"name":")" + name +
                         R"("},"spec":{"accessModes":["ReadWriteOnce"],"resources":{"requests":{"storage":"1Gi"}},)" +
                         R"("storageClassName":")" + storage_class + "\"" +
                         (source.empty() ? "" : ",\"dataSource\":" + source) + "}}");
  }
  void post_pod(const std::string& name, const std::string& claim) {
    post(pods_api,
         R"({"kind":"Pod","apiVersion":"v1","metadata":{"name":")" + name +
             R"("},"spec":{"terminationGracePeriodSeconds":1,"containers":[{"name":"main","image":"i"}],"volumes":[)" +
             R"({"name":"v","persistentVolumeClaim":{"claimName":")" + claim + R"("}}]}})");
  }
  void post_snapshot(const std::string& name, const std::string& claim, const std::string& snapshot_class = "snaps") {
    post(snapshot_api, R"({"kind":"VolumeSnapshot","apiVersion":"snapshot.storage.k8s.io/v1","metadata":{"name":")" +
                           name + R"("},"spec":{"volumeSnapshotClassName":")" + snapshot_class +
                           R"(","source":{"persistentVolumeClaimName":")" + claim + R"("}}})");
  }
  /// The body of a workload with one label.
  static std::string workload(const std::string& kind, const std::string& more = "") {
    return R"({"kind":")" + kind + R"(","apiVersion":")" + (kind == "Job" ? "batch/v1" : "apps/v1") +
           R"(","metadata":{"name":"web"},"spec":{)" + more +
           (kind == "Job" ? "" : R"("selector":{"matchLabels":{"app":"web"}},)") +
           R"("template":{"metadata":{"labels":{"app":"web"}},"spec":{)" +
           (kind == "Job" ? R"("restartPolicy":"Never",)" : "") + R"("containers":[{"name":"main","image":"i"}]}}}})";
  }

  Document_var claim(const std::string& name) { return cluster.get({"", "persistentvolumeclaims", "default", name}); }
  Document_var pod(const std::string& name) { return cluster.get({"", "pods", "default", name}); }
  Document_var snapshot(const std::string& name) {
    return cluster.get({"snapshot.storage.k8s.io", "volumesnapshots", "default", name});
  }
  std::string phase(const Document_var& document) { return document ? text_at(*document, "/status/phase") : "gone"; }
  bool ready(const std::string& name) {
    bool ready = false;
    if (const Document_var found = snapshot(name)) json_spirit::pextract (*found)("/status/readyToUse", ready);
    return ready;
  }
  /// "reason: message" of all events about @a name.
  std::vector<std::string> events(const std::string& name) {
    std::vector<std::string> texts;
    for (const Document_var& event : cluster.list("", "events"))
      if (text_at(*event, "/involvedObject/name") == name)
        texts.push_back(text_at(*event, "/reason") + ": " + text_at(*event, "/message"));
    return texts;
  }
  std::vector<std::string> pod_names(const std::string& selector = "app=web") {
    std::vector<std::string> names;
    for (const Document_var& found : cluster.list("", "pods", "default", selector)) names.push_back(name_of(*found));
    return names;
  }
};

TEST_F(Controllers_Test, a_claim_is_bound_to_a_volume_of_its_class) {
  const Controllers controllers(cluster);
  post_claim("data", "fast");
  ASSERT_TRUE(controllers.settle());
  EXPECT_EQ(phase(claim("data")), "Bound");
  const std::string volume_name = text_at(*claim("data"), "/spec/volumeName");
  EXPECT_EQ(volume_name, "pvc-" + uid_of(*claim("data")));
  const Document_var volume = cluster.get({"", "persistentvolumes", "", volume_name});
  ASSERT_TRUE(volume);
  EXPECT_EQ(text_at(*volume, "/spec/csi/driver"), "csi.example.com");
  EXPECT_EQ(text_at(*volume, "/spec/claimRef/name"), "data");
  EXPECT_EQ(text_at(*volume, "/spec/capacity/storage"), "1Gi");
  EXPECT_EQ(text_at(*claim("data"), "/status/capacity/storage"), "1Gi");
  EXPECT_EQ(text_at(*claim("data"), "/metadata/annotations/volume.kubernetes.io~1storage-provisioner"),
            "csi.example.com");
}

TEST_F(Controllers_Test, a_claim_that_waits_for_its_consumer_is_bound_when_a_pod_uses_it) {
  const Controllers controllers(cluster);
  post_claim("data", "late");
  ASSERT_TRUE(controllers.settle());
  EXPECT_EQ(phase(claim("data")), "Pending");
  EXPECT_THAT(events("data"),
              testing::Contains("WaitForFirstConsumer: waiting for first consumer to be created before binding"));
  post_pod("user", "data");
  ASSERT_TRUE(controllers.settle());
  EXPECT_EQ(phase(claim("data")), "Bound");
  EXPECT_EQ(phase(pod("user")), "Running");
}

TEST_F(Controllers_Test, a_claim_of_an_unknown_class_has_an_event) {
  const Controllers controllers(cluster);
  post_claim("data", "manual");
  ASSERT_TRUE(controllers.settle());
  EXPECT_EQ(phase(claim("data")), "Pending");
  EXPECT_THAT(events("data"),
              testing::ElementsAre("ProvisioningFailed: storageclass.storage.k8s.io \"manual\" not found"));
}

TEST_F(Controllers_Test, a_claim_of_a_stuck_class_stays_pending_and_says_what_it_waits_for) {
  Behaviour behaviour;
  behaviour.stuck_classes = {"fast"};
  Controllers controllers(cluster, behaviour);
  post_claim("data", "fast");
  ASSERT_TRUE(controllers.settle());
  EXPECT_EQ(phase(claim("data")), "Pending");
  EXPECT_THAT(events("data"),
              testing::Contains(HasSubstr("ExternalProvisioning: Waiting for a volume to be created either "
                                          "by the external provisioner 'csi.example.com' or manually")));
  controllers.set({});
  ASSERT_TRUE(controllers.settle());
  EXPECT_EQ(phase(claim("data")), "Bound");
}

TEST_F(Controllers_Test, a_clone_is_bound_once_its_source_is) {
  const Controllers controllers(cluster);
  post_claim("clone", "fast", R"({"kind":"PersistentVolumeClaim","name":"data"})");
  ASSERT_TRUE(controllers.settle());
  EXPECT_EQ(phase(claim("clone")), "Pending");
  post_claim("data", "fast");
  ASSERT_TRUE(controllers.settle());
  EXPECT_EQ(phase(claim("clone")), "Bound");
}

TEST_F(Controllers_Test, a_clone_is_refused_by_a_class_that_cannot) {
  Behaviour behaviour;
  behaviour.classes_without_clones = {"fast"};
  const Controllers controllers(cluster, behaviour);
  post_claim("data", "fast");
  post_claim("clone", "fast", R"({"kind":"PersistentVolumeClaim","name":"data"})");
  ASSERT_TRUE(controllers.settle());
  EXPECT_EQ(phase(claim("data")), "Bound");
  EXPECT_EQ(phase(claim("clone")), "Pending");
  EXPECT_THAT(
      events("clone"),
      testing::Contains(HasSubstr("ProvisioningFailed: failed to provision volume with StorageClass \"fast\"")));
}

TEST_F(Controllers_Test, a_snapshot_gets_its_content_and_becomes_ready) {
  const Controllers controllers(cluster);
  post_claim("data", "fast");
  post_snapshot("snap", "data");
  ASSERT_TRUE(controllers.settle());
  EXPECT_TRUE(ready("snap"));
  const std::string content_name = text_at(*snapshot("snap"), "/status/boundVolumeSnapshotContentName");
  EXPECT_EQ(content_name, "snapcontent-" + uid_of(*snapshot("snap")));
  EXPECT_EQ(text_at(*snapshot("snap"), "/status/restoreSize"), "1Gi");
  const Document_var content = cluster.get({"snapshot.storage.k8s.io", "volumesnapshotcontents", "", content_name});
  ASSERT_TRUE(content);
  EXPECT_EQ(text_at(*content, "/spec/driver"), "csi.example.com");
  EXPECT_EQ(text_at(*content, "/spec/volumeSnapshotRef/name"), "snap");
  long size = 0;
  json_spirit::pextract (*content)("/status/restoreSize", size);
  EXPECT_EQ(size, 1 << 30);
  EXPECT_THAT(events("snap"), testing::Contains("SnapshotReady: Snapshot default/snap is ready to use."));
}

TEST_F(Controllers_Test, a_snapshot_of_a_stuck_class_is_bound_but_never_ready) {
  Behaviour behaviour;
  behaviour.stuck_snapshot_classes = {"snaps"};
  const Controllers controllers(cluster, behaviour);
  post_claim("data", "fast");
  post_snapshot("snap", "data");
  ASSERT_TRUE(controllers.settle());
  EXPECT_FALSE(ready("snap"));
  EXPECT_NE(text_at(*snapshot("snap"), "/status/boundVolumeSnapshotContentName"), "");
}

TEST_F(Controllers_Test, a_snapshot_of_a_missing_claim_tells_its_error) {
  const Controllers controllers(cluster);
  post_snapshot("snap", "nothing");
  ASSERT_TRUE(controllers.settle());
  EXPECT_FALSE(ready("snap"));
  EXPECT_THAT(text_at(*snapshot("snap"), "/status/error/message"), HasSubstr("cannot get claim from snapshot"));
}

TEST_F(Controllers_Test, a_claim_is_restored_from_a_snapshot) {
  const Controllers controllers(cluster);
  post_claim("data", "fast");
  post_snapshot("snap", "data");
  post_claim("restored", "fast", R"({"apiGroup":"snapshot.storage.k8s.io","kind":"VolumeSnapshot","name":"snap"})");
  ASSERT_TRUE(controllers.settle());
  EXPECT_EQ(phase(claim("restored")), "Bound");
  EXPECT_EQ(text_at(*claim("restored"), "/spec/dataSource/name"), "snap");
}

TEST_F(Controllers_Test, a_source_without_the_plain_group_is_dropped_and_the_claim_is_empty) {
  const Controllers controllers(cluster);
  post_claim("one", "fast", R"({"kind":"VolumeSnapshot","name":"snap"})");
  post_claim("two", "fast", R"({"apiGroup":"snapshot.storage.k8s.io/v1","kind":"VolumeSnapshot","name":"snap"})");
  ASSERT_TRUE(controllers.settle());
  for (const char* name : {"one", "two"}) {
    EXPECT_EQ(phase(claim(name)), "Bound");
    EXPECT_EQ(text_at(*claim(name), "/spec/dataSource/name"), "");
  }
}

TEST_F(Controllers_Test, a_deleted_snapshot_goes_with_its_content) {
  const Controllers controllers(cluster);
  post_claim("data", "fast");
  post_snapshot("snap", "data");
  ASSERT_TRUE(controllers.settle());
  EXPECT_EQ(request("DELETE", std::string(snapshot_api) + "/snap"), 200);
  ASSERT_TRUE(controllers.settle());
  EXPECT_FALSE(snapshot("snap"));
  EXPECT_TRUE(cluster.list("snapshot.storage.k8s.io", "volumesnapshotcontents").empty());
}

TEST_F(Controllers_Test, a_pod_is_given_a_node_and_runs) {
  const Controllers controllers(cluster);
  post_claim("data", "fast");
  post_pod("user", "data");
  ASSERT_TRUE(controllers.settle());
  const Document_var found = pod("user");
  EXPECT_EQ(phase(found), "Running");
  EXPECT_EQ(text_at(*found, "/spec/nodeName"), "node-1");
  EXPECT_THAT(text_at(*found, "/status/podIP"), testing::StartsWith("10.244."));
  EXPECT_EQ(text_at(*found, "/status/hostIP"), "10.77.0.1");
  EXPECT_EQ(text_at(*found, "/status/containerStatuses/0/name"), "main");
  EXPECT_NE(text_at(*found, "/status/containerStatuses/0/state/running/startedAt"), "");
}

TEST_F(Controllers_Test, a_pod_whose_claim_is_missing_stays_pending) {
  const Controllers controllers(cluster);
  post_pod("user", "nothing");
  ASSERT_TRUE(controllers.settle());
  EXPECT_EQ(phase(pod("user")), "Pending");
  EXPECT_THAT(
      events("user"),
      testing::Contains("FailedScheduling: 0/1 nodes are available: persistentvolumeclaim \"nothing\" not found."));
}

TEST_F(Controllers_Test, a_claim_in_use_stays_in_deletion_until_its_pod_is_gone) {
  Behaviour behaviour;
  behaviour.stuck_deletions = {"user"};
  Controllers controllers(cluster, behaviour);
  post_claim("data", "fast");
  post_pod("user", "data");
  ASSERT_TRUE(controllers.settle());
  EXPECT_EQ(request("DELETE", std::string(claims_api) + "/data"), 200);
  EXPECT_EQ(request("DELETE", std::string(pods_api) + "/user"), 200);
  ASSERT_TRUE(controllers.settle());
  ASSERT_TRUE(claim("data"));
  EXPECT_TRUE(is_terminating(*claim("data")));
  EXPECT_EQ(phase(claim("data")), "Bound");
  EXPECT_TRUE(is_terminating(*pod("user")));
  controllers.set({});
  ASSERT_TRUE(controllers.settle());
  EXPECT_FALSE(pod("user"));
  EXPECT_FALSE(claim("data"));
  EXPECT_TRUE(cluster.list("", "persistentvolumes").empty());
}

TEST_F(Controllers_Test, delays_hold_things_up) {
  Behaviour behaviour;
  behaviour.bind_delay = milliseconds(150);
  const Controllers controllers(cluster, behaviour);
  const auto begin = std::chrono::steady_clock::now();
  post_claim("data", "fast");
  ASSERT_TRUE(controllers.settle());
  while (phase(claim("data")) != "Bound") std::this_thread::sleep_for(milliseconds(2));
  EXPECT_GE(std::chrono::steady_clock::now() - begin, milliseconds(150));
}

TEST_F(Controllers_Test, a_deployment_makes_pods_through_a_replica_set) {
  const Controllers controllers(cluster);
  post("/apis/apps/v1/namespaces/default/deployments", workload("Deployment", R"("replicas":2,)"));
  ASSERT_TRUE(controllers.settle());
  EXPECT_EQ(pod_names().size(), 2u);
  const Document_var first = cluster.list("", "pods", "default", "app=web")[0];
  EXPECT_EQ(text_at(*first, "/metadata/ownerReferences/0/kind"), "ReplicaSet");
  const Document_var set =
      cluster.get({"apps", "replicasets", "default", text_at(*first, "/metadata/ownerReferences/0/name")});
  ASSERT_TRUE(set);
  EXPECT_EQ(text_at(*set, "/metadata/ownerReferences/0/name"), "web");
  int ready_replicas = 0;
  json_spirit::pextract (*cluster.get({"apps", "deployments", "default", "web"}))("/status/readyReplicas",
                                                                                  ready_replicas);
  EXPECT_EQ(ready_replicas, 2);
}

TEST_F(Controllers_Test, a_deployment_that_is_scaled_follows) {
  const Controllers controllers(cluster);
  const std::string target = "/apis/apps/v1/namespaces/default/deployments";
  post(target, workload("Deployment", R"("replicas":2,)"));
  ASSERT_TRUE(controllers.settle());
  EXPECT_EQ(request("PATCH", target + "/web/scale", R"({"spec":{"replicas":0}})"), 200);
  ASSERT_TRUE(controllers.settle());
  EXPECT_TRUE(pod_names().empty());
  EXPECT_EQ(request("PATCH", target + "/web/scale", R"({"spec":{"replicas":3}})"), 200);
  ASSERT_TRUE(controllers.settle());
  EXPECT_EQ(pod_names().size(), 3u);
}

TEST_F(Controllers_Test, a_deleted_deployment_goes_with_all_that_it_made) {
  const Controllers controllers(cluster);
  const std::string target = "/apis/apps/v1/namespaces/default/deployments";
  post(target, workload("Deployment"));
  ASSERT_TRUE(controllers.settle());
  EXPECT_EQ(request("DELETE", target + "/web?propagationPolicy=Foreground"), 200);
  ASSERT_TRUE(controllers.settle());
  EXPECT_TRUE(cluster.list("apps", "deployments").empty());
  EXPECT_TRUE(cluster.list("apps", "replicasets").empty());
  EXPECT_TRUE(pod_names().empty());
}

TEST_F(Controllers_Test, a_stateful_set_makes_pods_in_order_with_their_claims) {
  const Controllers controllers(cluster);
  post(
      "/apis/apps/v1/namespaces/default/statefulsets",
      workload(
          "StatefulSet",
          R"("replicas":2,"serviceName":"web","volumeClaimTemplates":[{"metadata":{"name":"store"},"spec":)"
          R"({"accessModes":["ReadWriteOnce"],"storageClassName":"late","resources":{"requests":{"storage":"1Gi"}}}}],)"));
  ASSERT_TRUE(controllers.settle());
  EXPECT_THAT(pod_names(), testing::ElementsAre("web-0", "web-1"));
  EXPECT_EQ(phase(claim("store-web-1")), "Bound");
  EXPECT_EQ(phase(pod("web-1")), "Running");
  EXPECT_EQ(text_at(*pod("web-1"), "/spec/volumes/0/persistentVolumeClaim/claimName"), "store-web-1");
}

TEST_F(Controllers_Test, a_daemon_set_makes_a_pod_on_each_node) {
  add_node(cluster, "node-2");
  const Controllers controllers(cluster);
  post("/apis/apps/v1/namespaces/default/daemonsets", workload("DaemonSet"));
  ASSERT_TRUE(controllers.settle());
  std::set<std::string> nodes;
  for (const Document_var& found : cluster.list("", "pods", "default", "app=web"))
    nodes.insert(text_at(*found, "/spec/nodeName"));
  EXPECT_THAT(nodes, testing::ElementsAre("node-1", "node-2"));
}

TEST_F(Controllers_Test, a_job_makes_a_pod_and_leaves_it_behind_when_nothing_else_is_said) {
  const Controllers controllers(cluster);
  post("/apis/batch/v1/namespaces/default/jobs", workload("Job"));
  ASSERT_TRUE(controllers.settle());
  EXPECT_EQ(pod_names("job-name=web").size(), 1u);
  EXPECT_EQ(request("DELETE", "/apis/batch/v1/namespaces/default/jobs/web"), 200);
  ASSERT_TRUE(controllers.settle());
  EXPECT_TRUE(cluster.list("batch", "jobs").empty());
  EXPECT_EQ(pod_names("job-name=web").size(), 1u);
}

TEST_F(Controllers_Test, a_deleted_namespace_goes_with_all_that_is_in_it) {
  const Controllers controllers(cluster);
  post("/api/v1/namespaces", R"({"kind":"Namespace","apiVersion":"v1","metadata":{"name":"shop"}})");
  post(
      "/api/v1/namespaces/shop/persistentvolumeclaims",
      R"({"kind":"PersistentVolumeClaim","apiVersion":"v1","metadata":{"name":"data"},"spec":{"accessModes":["ReadWriteOnce"],)"
      R"("resources":{"requests":{"storage":"1Gi"}},"storageClassName":"fast"}})");
  ASSERT_TRUE(controllers.settle());
  EXPECT_EQ(request("DELETE", "/api/v1/namespaces/shop"), 200);
  ASSERT_TRUE(controllers.settle());
  EXPECT_FALSE(cluster.get({"", "namespaces", "", "shop"}));
  EXPECT_TRUE(cluster.list("", "persistentvolumeclaims").empty());
}

TEST(Preload, objects_keep_their_status_and_their_references) {
  Cluster cluster;
  Value document;
  ASSERT_TRUE(json_spirit::loads_json(
      R"({"kind":"List","apiVersion":"v1","items":[
      {"kind":"Pod","apiVersion":"v1","metadata":{"name":"p","namespace":"shop","uid":"pod-uid",
       "ownerReferences":[{"kind":"ReplicaSet","apiVersion":"apps/v1","name":"r","uid":"set-uid"}]},
       "spec":{"containers":[{"name":"main","image":"i"}]},"status":{"phase":"Failed"}},
      {"kind":"ReplicaSet","apiVersion":"apps/v1","metadata":{"name":"r","namespace":"shop","uid":"set-uid"},
       "spec":{"replicas":0,"selector":{"matchLabels":{"a":"b"}},"template":{"metadata":{"labels":{"a":"b"}},
       "spec":{"containers":[{"name":"main","image":"i"}]}}}}]})",
      document));
  EXPECT_EQ(preload(cluster, document), 2u);
  const Document_var pod = cluster.get({"", "pods", "shop", "p"}),
                     set = cluster.get({"apps", "replicasets", "shop", "r"});
  ASSERT_TRUE(pod && set);
  EXPECT_EQ(text_at(*pod, "/status/phase"), "Failed");
  EXPECT_EQ(text_at(*pod, "/metadata/ownerReferences/0/uid"), uid_of(*set));
  EXPECT_TRUE(cluster.get({"", "namespaces", "", "shop"}));
}

TEST(Preload, an_unknown_kind_throws) {
  Cluster cluster;
  Value document;
  ASSERT_TRUE(json_spirit::loads_json(R"({"kind":"Nothing","apiVersion":"v1"})", document));
  EXPECT_THROW(preload(cluster, document), std::runtime_error);
}

TEST(Preload, many_pods_are_left_in_peace_by_the_controllers) {
  Cluster cluster;
  add_node(cluster, "node-1");
  preload_pods(cluster, 250);
  const Controllers controllers(cluster);
  ASSERT_TRUE(controllers.settle());
  EXPECT_EQ(cluster.list("", "pods", "", "app=bench").size(), 250u);
  EXPECT_EQ(cluster.list("", "persistentvolumes").size(), 250u);
  EXPECT_EQ(cluster.list("", "pods", "bench-2").size(), 50u);
  EXPECT_TRUE(cluster.list("", "events").empty());
}

}  // namespace
