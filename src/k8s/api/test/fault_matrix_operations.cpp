#include "fault_matrix_operations.h"

#include "k8s/api/k8s_cluster.h"
#include "k8s/api/k8s_deployment.h"
#include "k8s/api/k8s_pod.h"
#include "k8s/api/k8s_pvc.h"
#include "k8s/api/k8s_storage_class.h"
#include "k8s/api/k8s_volume_snapshot.h"
#include "support/scripted_session.h"

using json_spirit::Array;
using json_spirit::Value;

namespace test_support {

const char matrix_claim[] = R"({
  "kind": "PersistentVolumeClaim", "apiVersion": "v1", "metadata": {"name": "data", "namespace": "shop"},
  "spec": {"accessModes": ["ReadWriteOnce"], "volumeName": "pv-data", "storageClassName": "fast",
           "volumeMode": "Filesystem", "resources": {"requests": {"storage": "1Gi"}}},
  "status": {"phase": "Bound"}})";

namespace {

const std::string claims = "/api/v1/namespaces/shop/persistentvolumeclaims";
const std::string snapshots = "/apis/snapshot.storage.k8s.io/v1/namespaces/shop/volumesnapshots";
const std::string snapshot_classes = "/apis/snapshot.storage.k8s.io/v1/volumesnapshotclasses";
const std::string storage_classes = "/apis/storage.k8s.io/v1/storageclasses";
const std::string agent_label = "?labelSelector=component%3Dtessarin-agent";
const std::string get_data = "GET " + claims + "/data";
const std::string get_volume = "GET /api/v1/persistentvolumes/pv-data";

std::vector<Expected_Request> deletion(const std::string& url) {
  return {{"GET " + url, PROBE, "Failed to delete "}, {"DELETE " + url, DELETION}, {"GET " + url, WAIT}};
}

std::vector<Expected_Request> operator+(std::vector<Expected_Request> left,
                                        const std::vector<Expected_Request>& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

const std::vector<Expected_Request> init_requests = {
    {"GET /version", STOPS, "Failed to get version"},
    {"GET /apis/snapshot.storage.k8s.io", GOES_ON, "Failed to get snapshot version"}};

const std::vector<Operation> all_operations = {
    {"PvcClone",
     {{get_data, STOPS, "Failed to create PVC clone 'copy' of PVC 'data'\n"},
      {"POST " + claims, STOPS, "Failed to create PVC clone 'copy' of PVC 'data'\n"}},
     [](K8S_Client_var client) { return K8S_PVC(client, "shop").clone("data", "copy"); }},

    {"PvcCreateFromSnapshot",
     {{get_data, STOPS, "Pvc 'data' is not bound.\n"},
      {get_data, STOPS, "Failed to get pvc info with name 'data'.\n"},
      {get_volume, STOPS, "Failed to get pv info with name 'pv-data'.\n"},
      {"POST " + claims, STOPS, "Failed to create type "}},
     [](K8S_Client_var client) {
       return K8S_PVC(client, "shop").create_from_snapshot(json(matrix_claim), "restored");
     }},

    {"PvcGetPv",
     {{get_data, STOPS, "Pvc 'data' is not bound.\n"},
      {get_data, STOPS, "Failed to get pvc info with name 'data'.\n"},
      {get_volume, STOPS, "Failed to get pv info with name 'pv-data'.\n"}},
     [](K8S_Client_var client) {
       Value pv;
       return K8S_PVC(client, "shop").get_pv("data", pv);
     }},

    {"PvcIsBound",
     {{"GET " + claims + "/late", STOPS, "Failed to get type "},
      {"GET " + claims + "/late", STOPS, "Failed to get type "},
      {"GET " + claims + "/late", STOPS, "Failed to get type "}},
     [](K8S_Client_var client) { return K8S_PVC(client, "shop").is_bound("late", true, 100); }},

    {"SnapshotCreateWithName",
     {{get_data, STOPS, "Failed to create volume snapshot 's' of persistent volume claim 'data'"},
      {get_volume, STOPS, "Failed to get snapshot class name from driver name ''.\n"},
      {"GET " + snapshot_classes, STOPS, "Failed to get snapshot class list.\n"},
      {"POST " + snapshots, STOPS, "Failed to create volume snapshot 's' of persistent volume claim 'data'"}},
     [](K8S_Client_var client) {
       K8S_PVC pvc_client(client, "shop");
       return K8S_Volume_Snapshot(client, "shop").create_with_name(pvc_client, "data", "s");
     }},

    {"SnapshotDeleteAll",
     std::vector<Expected_Request>{{"GET " + snapshots + agent_label, STOPS, "Failed to list agent snapshots.\n"}} +
         deletion(snapshots + "/left-1") + deletion(snapshots + "/left-2"),
     [](K8S_Client_var client) { return K8S_Volume_Snapshot(client, "shop").delete_all(); }},

    {"Delete", deletion(snapshots + "/left-1"),
     [](K8S_Client_var client) {
       return K8S_Volume_Snapshot(client, "shop").delete_("left-1", true, K8S_QVX_RETRY_TIMES);
     }},

    {"CreateImmediateStorageClass",
     {{"GET " + storage_classes + "/fast", STOPS, "Failed to get type "},
      {"POST " + storage_classes, STOPS, "Failed to create immediate volume binding mode storage class '"}},
     [](K8S_Client_var client) {
       std::string name;
       return K8S_Storage_Class(client).create_immediate_sc("fast", name);
     }},

    {"ExtractPvcs",
     {{get_data, STOPS, "Failed to get type "}, {get_volume, GOES_ON, "Failed to get type "}},
     [](K8S_Client_var client) {
       const Value pod = json(R"({"spec":{"volumes":[{"name":"v","persistentVolumeClaim":{"claimName":"data"}}]}})");
       std::vector<std::string> names;
       return K8S_Pod(client, "shop").extract_pvcs(pod, names, "shop");
     }},

    {"GetPods",
     {{"GET /api/v1/namespaces/shop/pods?labelSelector=app%3Daux", STOPS, "Failed to list pods for workload web.\n"}},
     [](K8S_Client_var client) {
       Array pods;
       return K8S_Deployment(client, "shop")
           .get_pods(json(R"({"metadata":{"name":"web"},"spec":{"selector":{"matchLabels":{"app":"aux"}}}})"), pods);
     }},

    {"ClusterInit", init_requests,
     [](K8S_Client_var) {
       K8S_Cluster cluster;
       return cluster.init();
     },
     true},

    {"ClusterListNamespaces",
     init_requests + std::vector<Expected_Request>{{"GET /api/v1/namespaces", STOPS, "Failed to list namespace.\n"}},
     [](K8S_Client_var) {
       K8S_Cluster cluster;
       K8S_Namespaces namespaces;
       return cluster.init() && cluster.list_namespaces(namespaces, nullptr);
     },
     true},

    {"ClusterListAuxNodes",
     init_requests + std::vector<Expected_Request>{{"GET /api/v1/namespaces/shop/pods?labelSelector=app%3Daux", STOPS,
                                                    "Failed to list auxiliary pods.\n"}},
     [](K8S_Client_var) {
       K8S_Cluster cluster;
       Array nodes;
       return cluster.init() && cluster.list_aux_nodes(nodes);
     },
     true},
};

}  // namespace

const std::vector<Operation>& operations() {
  return all_operations;
}

}  // namespace test_support
