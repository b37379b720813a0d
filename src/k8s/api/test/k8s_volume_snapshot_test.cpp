#include "k8s/api/k8s_volume_snapshot.h"

#include "claim_texts.h"
#include "json_spirit/json_pointer.h"
#include "k8s/api/k8s_pv.h"
#include "k8s/api/k8s_pvc.h"
#include "k8s/api/k8s_volume_snapshot_class.h"
#include "resource_fixture.h"
#include "support/temp_dir.h"

namespace {

using json_spirit::JSON_Pointer;
using json_spirit::Object;
using json_spirit::Value;
using testing::ElementsAre;
using namespace test_support;

const char group_version[] = "snapshot.storage.k8s.io/v1";
const char classes_url[] = "GET /apis/snapshot.storage.k8s.io/v1/volumesnapshotclasses";
const char snapshots_url[] = "GET /apis/snapshot.storage.k8s.io/v1/namespaces/ns/volumesnapshots";
const char agents_url[] =
    "GET /apis/snapshot.storage.k8s.io/v1/namespaces/ns/volumesnapshots?labelSelector=component%3Dtessarin-agent";
const char post_snapshot[] = "POST /apis/snapshot.storage.k8s.io/v1/namespaces/ns/volumesnapshots";
const char get_snapshot[] = "GET /apis/snapshot.storage.k8s.io/v1/namespaces/ns/volumesnapshots/s";

const char volume[] = R"({"spec":{"csi":{"driver":"d"}}})";
const char classes[] = R"({"items":[{"driver":"x","metadata":{"name":"cx"}},{"driver":"d","metadata":{"name":"c1"}},
                                    {"driver":"d","metadata":{"name":"c2"}}]})";

struct Snapshot_Fixture : Resource_Fixture {
  Snapshot_Fixture() { set_group_version(group_version); }

  void set_group_version(const std::string& text) {
    for (const char* resource : {"volumesnapshots", "volumesnapshotclasses"})
      K8S_Cluster::instance()->get_resource_gv(resource) = text;
  }
  K8S_Volume_Snapshot snapshots() { return K8S_Volume_Snapshot(server.client(), "ns"); }
};

// K8S_Volume_Snapshot_Class

struct SnapshotClass : Snapshot_Fixture {
  bool find(const std::string& driver, int status, const std::string& reply) {
    server.expect({classes_url, status, reply});
    return K8S_Volume_Snapshot_Class(server.client()).get_snapshot_class_name(driver, name);
  }
  std::string name;
};

TEST_F(SnapshotClass, IsTheFirstThatIsListedWithTheDriver) {
  EXPECT_TRUE(find("d", 200, classes));
  EXPECT_EQ(name, "c1");
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(SnapshotClass, OfARecordedList) {
  server.expect(recorded("csi-provision-clone-snapshot", "list the snapshot classes"));
  EXPECT_TRUE(K8S_Volume_Snapshot_Class(server.client()).get_snapshot_class_name("hostpath.csi.k8s.io", name));
  EXPECT_EQ(name, "csi-hostpath-snapclass");
}

TEST_F(SnapshotClass, ThatIsNotListedIsAQuietFailure) {
  EXPECT_FALSE(find("D", 200, classes));
  EXPECT_EQ(name, "");
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(SnapshotClass, WithoutANameIsAQuietFailure) {
  for (const char* metadata : {"{}", R"({"name":""})", R"({"name":1})", "7"})
    EXPECT_FALSE(find("d", 200, std::string(R"({"items":[{"driver":"d","metadata":)") + metadata + "}]}")) << metadata;
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(SnapshotClass, ListThatIsRefused) {
  EXPECT_FALSE(find("d", 403, forbidden));
  EXPECT_THAT(errors(), ElementsAre(list_failure<K8S_Volume_Snapshot_Class>(forbidden, 403),
                                    "Failed to get snapshot class list.\n"));
}

TEST_F(SnapshotClass, ListOfAServerWithoutTheApi) {
  server.expect(recorded("snapshot-api-absent", "list volume snapshot classes before the CRDs"));
  EXPECT_FALSE(K8S_Volume_Snapshot_Class(server.client()).get_snapshot_class_name("d", name));
  EXPECT_THAT(errors(),
              ElementsAre(list_failure<K8S_Volume_Snapshot_Class>("", 404), "Failed to get snapshot class list.\n"));
}

TEST_F(SnapshotClass, ListWhoseItemsAreNoArray) {
  for (const char* items : {"{}", "null", "7"}) {
    log.clear();
    EXPECT_FALSE(find("d", 200, std::string(R"({"items":)") + items + "}")) << items;
    EXPECT_THAT(emergencies(), ElementsAre("k8s/api/k8s_volume_snapshot_class, *items_val is not array!"));
  }
}

TEST_F(SnapshotClass, ListWithoutItems) {
  for (const char* reply : {R"({"items":[]})", "{}"}) {
    log.clear();
    EXPECT_FALSE(find("d", 200, reply)) << reply;
    EXPECT_THAT(errors(), ElementsAre(string_sprintf("Failed to extract snapshot class items from '%s'.\n", reply)));
  }
}

TEST_F(SnapshotClass, AnItemThatIsNoObjectEndsTheSearch) {
  EXPECT_FALSE(find("d", 200, R"({"items":[7,{"driver":"d","metadata":{"name":"c"}}]})"));
  EXPECT_THAT(errors(), ElementsAre("Class items is not object type.\n"));
}

TEST_F(SnapshotClass, AClassWithoutADriverEndsTheSearch) {
  for (const char* bad : {"{}", R"({"driver":""})", R"({"driver":1})"}) {
    log.clear();
    EXPECT_FALSE(find("d", 200, string_sprintf(R"({"items":[{"driver":"x"},%s,{"driver":"d"}]})", bad)));
    EXPECT_THAT(errors(), ElementsAre(string_sprintf("Failed to extract driver with name form %s.\n", bad)));
  }
}

TEST_F(SnapshotClass, NeedsAClient) {
  EXPECT_FALSE(K8S_Volume_Snapshot_Class(nullptr).get_snapshot_class_name("d", name));
  EXPECT_THAT(emergencies(), ElementsAre("k8s/api/k8s_volume_snapshot_class.cpp, client_ is NULL:"));
}

// create_i, create_with_name, create

const char snapshot_body[] = R"({
  "kind": "VolumeSnapshot", "apiVersion": "snapshot.storage.k8s.io/v1",
  "metadata": {"name": "data-tessarin", "namespace": "ns", "labels": {"component": "tessarin-agent"}},
  "spec": {"volumeSnapshotClassName": "c1", "source": {"persistentVolumeClaimName": "Data"}}})";

struct SnapshotCreate : Snapshot_Fixture {
  void expect_class() { server.expect_all({{get_volume, 200, volume}, {classes_url, 200, classes}}); }
  K8S_PVC claims() { return K8S_PVC(server.client(), "ns"); }
};

TEST_F(SnapshotCreate, NamesTheClassOfTheVolumesDriver) {
  expect_class();
  server.expect({post_snapshot, 201, "", snapshot_body});
  EXPECT_TRUE(snapshots().create_i(json(claim_text).get_obj(), ""));
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(SnapshotCreate, TakesTheCallersNameAsItStands) {
  expect_class();
  server.expect({post_snapshot, 201});
  EXPECT_TRUE(snapshots().create_i(json(claim_text).get_obj(), "My-Snap"));
  std::string name;
  EXPECT_TRUE(JSON_Pointer("/metadata/name", false, true).get(server.sent(), name));
  EXPECT_EQ(name, "My-Snap");
}

TEST_F(SnapshotCreate, SendsNothingWhenAPartIsMissingOrEmpty) {
  const std::pair<const char*, const char*> cases[] = {
      {R"({"metadata":{"namespace":"ns","name":"n"}})", "pv_name"},
      {R"({"spec":{"volumeName":""},"metadata":{"namespace":"ns","name":"n"}})", "pv_name"},
      {"{}", "pv_name"},
      {R"({"spec":{"volumeName":"v"}})", "ns"},
      {R"({"spec":{"volumeName":"v"},"metadata":{"namespace":"","name":"n"}})", "ns"},
      {R"({"spec":{"volumeName":"v"},"metadata":{"namespace":"ns"}})", "name"},
      {R"({"spec":{"volumeName":"v"},"metadata":{"namespace":"ns","name":1}})", "name"},
  };
  for (const auto& [claim, word] : cases) {
    log.clear();
    EXPECT_FALSE(snapshots().create_i(json(claim).get_obj(), "s")) << claim;
    EXPECT_THAT(emergencies(),
                ElementsAre(string_sprintf("k8s/api/k8s_volume_snapshot.cpp, %s is NULL or empty:", word)));
  }
}

TEST_F(SnapshotCreate, OfAVolumeWithoutADriverTellsAnEmptyOne) {
  server.expect({get_volume, 200, R"({"spec":{}})"});
  EXPECT_FALSE(snapshots().create_i(json(claim_text).get_obj(), ""));
  EXPECT_THAT(errors(), ElementsAre("Failed to get snapshot class name from driver name ''.\n"));
}

TEST_F(SnapshotCreate, OfAVolumeThatIsGone) {
  server.expect({get_volume, 404, not_found});
  EXPECT_FALSE(snapshots().create_i(json(claim_text).get_obj(), ""));
  EXPECT_THAT(errors(), ElementsAre(get_failure<K8S_PV>("v", not_found, 404),
                                    "Failed to get snapshot class name from driver name ''.\n"));
}

TEST_F(SnapshotCreate, WithoutAClassOfTheDriverTellsTheDriver) {
  server.expect_all({{get_volume, 200, volume}, {classes_url, 200, R"({"items":[{"driver":"x"}]})"}});
  EXPECT_FALSE(snapshots().create_i(json(claim_text).get_obj(), ""));
  EXPECT_THAT(errors(), ElementsAre("Failed to get snapshot class name from driver name 'd'.\n"));
}

TEST_F(SnapshotCreate, ThatExistsAlready) {
  expect_class();
  server.expect({post_snapshot, 409});
  EXPECT_FALSE(snapshots().create_i(json(claim_text).get_obj(), ""));
  EXPECT_THAT(errors(), ElementsAre(create_failure<K8S_Volume_Snapshot>(server.sent(), 409)));
}

TEST_F(SnapshotCreate, WithNameReadsTheClaimFirst) {
  server.expect({get_claim, 200, claim_text});
  expect_class();
  server.expect({post_snapshot, 201, "", snapshot_body});
  K8S_PVC pvc_client = claims();
  EXPECT_TRUE(snapshots().create_with_name(pvc_client, "Data", ""));
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(SnapshotCreate, WithNameOfAClaimThatIsGone) {
  server.expect({get_claim, 404, not_found});
  K8S_PVC pvc_client = claims();
  EXPECT_FALSE(snapshots().create_with_name(pvc_client, "Data", "s"));
  EXPECT_THAT(errors(), ElementsAre(get_failure<K8S_PVC>("Data", not_found, 404),
                                    "Failed to create volume snapshot 's' of persistent volume claim 'Data'"));
}

TEST_F(SnapshotCreate, WithNameTellsAFailedPostToo) {
  server.expect({get_claim, 200, claim_text});
  expect_class();
  server.expect({post_snapshot, 403});
  K8S_PVC pvc_client = claims();
  EXPECT_FALSE(snapshots().create_with_name(pvc_client, "Data", ""));
  EXPECT_THAT(errors(), ElementsAre(create_failure<K8S_Volume_Snapshot>(server.sent(), 403),
                                    "Failed to create volume snapshot '' of persistent volume claim 'Data'"));
}

TEST_F(SnapshotCreate, WithNameDoesNotTestTheGroupVersion) {
  set_group_version("");
  server.expect_all(
      {{get_claim, 200, claim_text}, {get_volume, 200, volume}, {"GET /apis//volumesnapshotclasses", 404}});
  K8S_PVC pvc_client = claims();
  EXPECT_FALSE(snapshots().create_with_name(pvc_client, "Data", "s"));
  EXPECT_THAT(errors(),
              ElementsAre(list_failure<K8S_Volume_Snapshot_Class>("", 404), "Failed to get snapshot class list.\n",
                          "Failed to get snapshot class name from driver name 'd'.\n",
                          "Failed to create volume snapshot 's' of persistent volume claim 'Data'"));
}

struct SnapshotFile : SnapshotCreate {
  std::string write(const std::string& text) {
    const std::string path = dir.path() + "/claim.json";
    std::ofstream(path) << text;
    return path;
  }
  Temp_Dir dir;
};

TEST_F(SnapshotFile, CreateReadsTheClaimFromTheFile) {
  expect_class();
  server.expect({post_snapshot, 201, "", snapshot_body});
  EXPECT_TRUE(snapshots().create(write(claim_text)));
}

TEST_F(SnapshotFile, CreateNeedsAFileWithAnObject) {
  for (const std::string& path : {dir.path() + "/missing", write("[]")}) {
    log.clear();
    EXPECT_FALSE(snapshots().create(path));
    EXPECT_THAT(errors(), ElementsAre("Failed to load json from path '" + path + "'.\n"));
  }
}

TEST_F(SnapshotFile, CreateTestsTheGroupVersionThenTheClientThenTheFile) {
  K8S_Volume_Snapshot without_client(nullptr, "ns");
  EXPECT_FALSE(without_client.create(dir.path() + "/missing"));
  EXPECT_THAT(emergencies(), ElementsAre("k8s/api/k8s_volume_snapshot.cpp, client_ is NULL:"));
  EXPECT_TRUE(errors().empty());

  log.clear();
  set_group_version("");
  EXPECT_FALSE(without_client.create(dir.path() + "/missing"));
  EXPECT_THAT(errors(), ElementsAre("The snapshot version is not set.\n"));
  EXPECT_TRUE(emergencies().empty());
}

// is_ready_to_use

struct SnapshotReady : Snapshot_Fixture {
  bool is_ready(const std::string& status, bool logging = true) {
    server.expect({get_snapshot, 200, status.empty() ? "{}" : R"({"status":)" + status + "}"});
    return snapshots().is_ready_to_use("s", logging, 0);
  }
};

TEST_F(SnapshotReady, WhenBoundAndReady) {
  EXPECT_TRUE(is_ready(R"({"boundVolumeSnapshotContentName":"c","readyToUse":true})"));
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(SnapshotReady, NotInAnyOtherState) {
  for (const char* status :
       {"", "{}", R"({"readyToUse":true})", R"({"boundVolumeSnapshotContentName":"","readyToUse":true})",
        R"({"boundVolumeSnapshotContentName":1,"readyToUse":true})", R"({"boundVolumeSnapshotContentName":"c"})",
        R"({"boundVolumeSnapshotContentName":"c","readyToUse":false})",
        R"({"boundVolumeSnapshotContentName":"c","readyToUse":"true"})", R"({"error":{"message":"m"}})"}) {
    log.clear();
    EXPECT_FALSE(is_ready(status)) << status;
    EXPECT_THAT(errors(), ElementsAre("Volume snapshot 's' is not created.\n"));
    EXPECT_EQ(log.lines().size(), 1u);
  }
  EXPECT_EQ(sleeps(), 0u);
}

TEST_F(SnapshotReady, GivesUpQuietlyWhenToldSo) {
  EXPECT_FALSE(is_ready("", false));
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(SnapshotReady, WaitsAsARecordedSnapshotGetsReady) {
  const char group[] = "csi-provision-clone-snapshot";
  server.expect_all({recorded(group, "get the snapshot at once"),
                     recorded(group, "get the snapshot half a second later"),
                     recorded(group, "get the snapshot when ready")});
  EXPECT_TRUE(K8S_Volume_Snapshot(server.client(), "csi-demo").is_ready_to_use("data-snap", true, 100));
  EXPECT_EQ(sleeps(), 2u);
  EXPECT_THAT(log.texts(LM_INFO),
              ElementsAre(testing::MatchesRegex(
                              "Retry\\(1\\) .*k8s/api/k8s_volume_snapshot.cpp:[0-9]+ at 1 second\\(s\\) later.\n"),
                          testing::StartsWith("Retry(2) ")));
}

TEST_F(SnapshotReady, EndsAfterAboutTenMinutes) {
  server.expect({.request = get_snapshot,
                 .status = 200,
                 .reply = R"({"status":{"boundVolumeSnapshotContentName":"c"}})",
                 .again = true});
  for (const int retry_times : {K8S_QVX_RETRY_TIMES + 0, -1}) {
    const long before = slept_sec();
    EXPECT_FALSE(snapshots().is_ready_to_use("s", true, retry_times));
    EXPECT_GE(slept_sec() - before, 600);
    EXPECT_LT(slept_sec() - before, 660);
  }
}

TEST_F(SnapshotReady, LooksOnceMorePerRetry) {
  server.expect_all({{get_snapshot, 200, "{}"}, {get_snapshot, 200, "{}"}});
  EXPECT_FALSE(snapshots().is_ready_to_use("s", false, 1));
  EXPECT_EQ(sleeps(), 1u);
}

TEST_F(SnapshotReady, DoesNotWaitForASnapshotThatCannotBeRead) {
  server.expect({get_snapshot, 404, not_found});
  EXPECT_FALSE(snapshots().is_ready_to_use("s", false, 100));
  EXPECT_EQ(sleeps(), 0u);
  EXPECT_THAT(errors(), ElementsAre(get_failure<K8S_Volume_Snapshot>("s", not_found, 404)));
}

TEST_F(SnapshotReady, NeedsTheGroupVersion) {
  set_group_version("");
  EXPECT_FALSE(snapshots().is_ready_to_use("s", true, 100));
  EXPECT_THAT(errors(), ElementsAre("The snapshot version is not set.\n"));
}

// delete_all

struct SnapshotSweep : Snapshot_Fixture {
  void expect_deleted(const std::string& name) {
    const std::string url = "/apis/snapshot.storage.k8s.io/v1/namespaces/ns/volumesnapshots/" + name;
    server.expect_all({{"GET " + url, 200, "{}"}, {"DELETE " + url, 200}, {"GET " + url, 404, not_found}});
  }
};

TEST_F(SnapshotSweep, DeletesTheAgentsSnapshotsOneAfterTheOther) {
  server.expect({agents_url, 200, R"({"items":[{"metadata":{"name":"b"}},{"metadata":{"name":"a"}}]})"});
  expect_deleted("b");
  expect_deleted("a");
  EXPECT_TRUE(snapshots().delete_all());
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(SnapshotSweep, WithoutSnapshotsDeletesNothing) {
  server.expect({agents_url, 200, R"({"items":[]})"});
  EXPECT_TRUE(snapshots().delete_all());
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(SnapshotSweep, GoesOnAfterASnapshotWithoutAName) {
  for (const char* bad : {"{}", R"({"metadata":{"name":""}})", R"({"metadata":{"name":1}})"}) {
    log.clear();
    server.expect({agents_url, 200, string_sprintf(R"({"items":[%s,{"metadata":{"name":"a"}}]})", bad)});
    expect_deleted("a");
    EXPECT_FALSE(snapshots().delete_all()) << bad;
    EXPECT_THAT(errors(), ElementsAre(string_sprintf("Failed to extract snapshot name with value.\n%s\n", bad)));
  }
}

TEST_F(SnapshotSweep, GoesOnAfterASnapshotThatCannotBeDeleted) {
  const std::string url = "/apis/snapshot.storage.k8s.io/v1/namespaces/ns/volumesnapshots/b";
  server.expect({agents_url, 200, R"({"items":[{"metadata":{"name":"b"}},{"metadata":{"name":"a"}}]})"});
  server.expect_all({{"GET " + url, 200, "{}"}, {"DELETE " + url}});
  expect_deleted("a");
  EXPECT_FALSE(snapshots().delete_all());
  EXPECT_THAT(errors(), ElementsAre(string_sprintf("Failed to delete type %s name b status 0\n",
                                                   typeid(K8S_Volume_Snapshot).name()),
                                    "Failed to delete snapshot with value.\n{\"metadata\":{\"name\":\"b\"}}\n"));
}

TEST_F(SnapshotSweep, WaitsForEachSnapshotInItsOwnBudget) {
  const std::string url = "/apis/snapshot.storage.k8s.io/v1/namespaces/ns/volumesnapshots/b";
  server.expect({agents_url, 200, R"({"items":[{"metadata":{"name":"b"}},{"metadata":{"name":"a"}}]})"});
  server.expect_all({{"GET " + url, 200, "{}"},
                     {"DELETE " + url, 200},
                     {.request = "GET " + url, .status = 200, .reply = "{}", .again = true}});
  expect_deleted("a");
  EXPECT_FALSE(snapshots().delete_all());
  EXPECT_GE(slept_sec(), 600);
  EXPECT_THAT(errors(),
              ElementsAre(string_sprintf("Type %s name b exists after delete\n", typeid(K8S_Volume_Snapshot).name()),
                          "Failed to delete snapshot with value.\n{\"metadata\":{\"name\":\"b\"}}\n"));
}

TEST_F(SnapshotSweep, ListThatIsRefused) {
  server.expect({agents_url, 403, forbidden});
  EXPECT_FALSE(snapshots().delete_all());
  EXPECT_THAT(errors(),
              ElementsAre(list_failure<K8S_Volume_Snapshot>(forbidden, 403), "Failed to list agent snapshots.\n"));
}

TEST_F(SnapshotSweep, ListWithoutItems) {
  for (const char* reply : {"{}", R"({"items":{}})"}) {
    log.clear();
    server.expect({agents_url, 200, reply});
    EXPECT_FALSE(snapshots().delete_all()) << reply;
    EXPECT_THAT(emergencies(), ElementsAre("k8s/api/k8s_volume_snapshot.cpp, items is NULL:"));
  }
}

TEST_F(SnapshotSweep, NeedsTheGroupVersion) {
  set_group_version("");
  EXPECT_FALSE(snapshots().delete_all());
  EXPECT_THAT(errors(), ElementsAre("The snapshot version is not set.\n"));
}

TEST_F(SnapshotSweep, KeepsTheUrlOfItsMaking) {
  K8S_Volume_Snapshot old = snapshots();
  set_group_version("snapshot.storage.k8s.io/v2");
  server.expect({snapshots_url, 200, "{}"});
  Value val;
  EXPECT_TRUE(old.list(val, {}));
}

}  // namespace
