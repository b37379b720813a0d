#include "k8s/api/k8s_pvc.h"

#include "claim_texts.h"
#include "json_spirit/assign.h"
#include "json_spirit/json_pointer.h"
#include "k8s/api/k8s_events.h"
#include "k8s/api/k8s_pv.h"
#include "resource_fixture.h"
#include "support/temp_dir.h"

namespace {

using json_spirit::Array;
using json_spirit::JSON_Pointer;
using json_spirit::Object;
using json_spirit::Value;
using testing::ElementsAre;
using namespace test_support;

const char events_url[] =
    "GET "
    "/api/v1/namespaces/ns/events/?fieldSelector=involvedObject.name=Data,involvedObject.kind=PersistentVolumeClaim";

/// The claim without what stands at a path such as "/spec/volumeMode".
std::string claim_without(const std::string& path) {
  Value claim = json(claim_text);
  const std::size_t slash = path.rfind('/');
  Object* parent = nullptr;
  EXPECT_TRUE(JSON_Pointer(path.substr(0, slash).c_str(), false, true).get(claim, parent));
  EXPECT_EQ(parent->erase(path.substr(slash + 1)), 1u) << path;
  return json_spirit::JSON_Dump(claim, false).str();
}

/// The claim with another value at the path.
std::string claim_with(const std::string& path, const char* value) {
  Value claim = json(claim_text);
  EXPECT_TRUE(JSON_Pointer(path.c_str(), false, true).set(claim, json(value)));
  return json_spirit::JSON_Dump(claim, false).str();
}

struct Pvc : Resource_Fixture {
  Pvc() { K8S_Cluster::instance()->get_resource_gv("volumesnapshots") = "snapshot.storage.k8s.io/v1"; }

  K8S_PVC claims() { return K8S_PVC(server.client(), "ns"); }
  /// clone_i() of a claim's text.
  bool clone(const std::string& text, const std::string& clone_name) {
    Value body = json(text);
    return claims().clone_i(body.get_obj(), clone_name);
  }
};

// clone

const char clone_body[] = R"({
  "kind": "PersistentVolumeClaim", "apiVersion": "v1",
  "metadata": {"name": "data-tessarin", "namespace": "ns", "labels": {"component": "tessarin-agent"}},
  "spec": {"storageClassName": "fast", "volumeMode": "Filesystem", "accessModes": ["ReadWriteOnce"],
           "resources": {"requests": {"storage": "1Gi"}, "limits": {"storage": "2Gi"}},
           "dataSource": {"kind": "PersistentVolumeClaim", "name": "Data"}}})";

TEST_F(Pvc, CloneTakesClassModesAndResourcesAndLeavesAllElseBehind) {
  server.expect({post_claim, 201, "", clone_body});
  EXPECT_TRUE(clone(claim_text, ""));
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(Pvc, CloneTakesTheCallersNameAsItStands) {
  server.expect({post_claim, 201});
  EXPECT_TRUE(clone(claim_text, "My-Clone"));
  std::string name, source;
  EXPECT_TRUE(JSON_Pointer("/metadata/name", false, true).get(server.sent(), name));
  EXPECT_TRUE(JSON_Pointer("/spec/dataSource/name", false, true).get(server.sent(), source));
  EXPECT_EQ(name, "My-Clone");
  EXPECT_EQ(source, "Data");
}

TEST_F(Pvc, CloneNamesTheSourcesNamespaceAndPostsToItsOwn) {
  server.expect({"POST /api/v1/namespaces/other/persistentvolumeclaims", 201, "", clone_body});
  Value body = json(claim_text);
  EXPECT_TRUE(K8S_PVC(server.client(), "other").clone_i(body.get_obj(), ""));
}

const std::pair<const char*, const char*> clone_needs[] = {
    {"/kind", "kind"},
    {"/apiVersion", "api_version"},
    {"/metadata/name", "name"},
    {"/metadata/namespace", "namespace_name"},
    {"/spec/storageClassName", "storage_class_name"},
    {"/spec/volumeMode", "volume_mode"},
    {"/spec/accessModes", "access_mode"},
    {"/spec/resources", "resources"},
};

TEST_F(Pvc, CloneSendsNothingWhenAPartIsMissingOrEmpty) {
  for (const auto& [path, word] : clone_needs) {
    for (const std::string& text :
         {claim_without(path), claim_with(path, "\"\""), claim_with(path, "[]"), claim_with(path, "{}")}) {
      log.clear();
      EXPECT_FALSE(clone(text, "c")) << text;
      EXPECT_THAT(emergencies(), ElementsAre(string_sprintf("k8s/api/k8s_pvc.cpp, %s is NULL or empty:", word)));
    }
  }
}

TEST_F(Pvc, CloneTellsTheFirstMissingPartOnly) {
  const char* first_missing[] = {"{}", R"({"kind":"k"})", R"({"kind":"k","apiVersion":"v"})",
                                 R"({"kind":"k","apiVersion":"v","metadata":{"name":"n"}})",
                                 R"({"kind":"k","apiVersion":"v","metadata":{"name":"n","namespace":"s"}})"};
  std::size_t i = 0;
  for (const char* text : first_missing) {
    log.clear();
    EXPECT_FALSE(clone(text, ""));
    EXPECT_THAT(emergencies(),
                ElementsAre(string_sprintf("k8s/api/k8s_pvc.cpp, %s is NULL or empty:", clone_needs[i++].second)));
  }
}

TEST_F(Pvc, CloneOfARecordedClaimIsWhatTheRealServerCloned) {
  Value claim = json(recorded("csi-provision-clone-snapshot", "get when bound").reply);
  server.expect({"POST /api/v1/namespaces/csi-demo/persistentvolumeclaims", 201, "", R"({
    "apiVersion": "v1", "kind": "PersistentVolumeClaim",
    "metadata": {"name": "data-tessarin", "namespace": "csi-demo", "labels": {"component": "tessarin-agent"}},
    "spec": {"accessModes": ["ReadWriteOnce"], "resources": {"requests": {"storage": "1Gi"}},
             "storageClassName": "csi-hostpath-sc", "volumeMode": "Filesystem",
             "dataSource": {"kind": "PersistentVolumeClaim", "name": "data"}}})"});
  EXPECT_TRUE(K8S_PVC(server.client(), "csi-demo").clone_i(claim.get_obj(), ""));
}

TEST_F(Pvc, CloneOfALiveClaimReadsItFirst) {
  server.expect_all({{get_claim, 200, claim_text}, {post_claim, 201, "", clone_body}});
  EXPECT_TRUE(claims().clone("Data", ""));
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(Pvc, CloneOfALiveClaimThatIsNotThereSendsNoPost) {
  server.expect({get_claim, 404, not_found});
  EXPECT_FALSE(claims().clone("Data", "c"));
  EXPECT_THAT(errors(), ElementsAre(get_failure<K8S_PVC>("Data", not_found, 404),
                                    "Failed to create PVC clone 'c' of PVC 'Data'\n"));
}

TEST_F(Pvc, CloneThatExistsAlreadyIsLoggedTwice) {
  server.expect_all({{get_claim, 200, claim_text}, {post_claim, 409}});
  EXPECT_FALSE(claims().clone("Data", ""));
  EXPECT_THAT(errors(), ElementsAre(create_failure<K8S_PVC>(server.sent(), 409),
                                    "Failed to create PVC clone '' of PVC 'Data'\n"));
}

TEST_F(Pvc, CloneOfALiveClaimWithoutAVolumeModeIsLoggedTwice) {
  server.expect({get_claim, 200, claim_without("/spec/volumeMode")});
  EXPECT_FALSE(claims().clone("Data", "c"));
  EXPECT_THAT(emergencies(), ElementsAre("k8s/api/k8s_pvc.cpp, volume_mode is NULL or empty:"));
  EXPECT_THAT(errors(), ElementsAre("Failed to create PVC clone 'c' of PVC 'Data'\n"));
}

struct PvcFile : Pvc {
  std::string write(const std::string& text) {
    const std::string path = dir.path() + "/claim.json";
    std::ofstream(path) << text;
    return path;
  }
  Temp_Dir dir;
};

TEST_F(PvcFile, CloneReadsTheClaimFromTheFile) {
  server.expect({post_claim, 201, "", clone_body});
  EXPECT_TRUE(claims().clone(write(claim_text)));
}

TEST_F(PvcFile, CloneOfAFileThatIsNoObjectFailsQuietly) {
  EXPECT_FALSE(claims().clone(dir.path() + "/missing"));
  EXPECT_FALSE(claims().clone(write("{")));
  EXPECT_FALSE(claims().clone(write("[]")));
  EXPECT_TRUE(log.lines().empty());
}

// create

TEST_F(Pvc, CreateSendsAnEmptyClaimWithTheLabel) {
  server.expect({post_claim, 201, "", R"({
    "kind": "PersistentVolumeClaim", "apiVersion": "v1",
    "metadata": {"name": "n", "namespace": "ns", "labels": {"component": "tessarin-agent"}},
    "spec": {"storageClassName": "fast", "volumeMode": "Block", "accessModes": ["ReadWriteOnce", "ReadOnlyMany"],
             "resources": {"requests": {"storage": "1Gi"}}}})"});
  const Object resources = {{"requests", Object{{"storage", "1Gi"}}}};
  EXPECT_TRUE(claims().create("n", "fast", resources, {"ReadWriteOnce", "ReadOnlyMany"}, "Block", "v1"));
}

TEST_F(Pvc, CreateDoesNotTestItsArguments) {
  server.expect({post_claim, 422, "", R"({
    "kind": "PersistentVolumeClaim", "apiVersion": "",
    "metadata": {"name": "", "namespace": "ns", "labels": {"component": "tessarin-agent"}},
    "spec": {"storageClassName": "", "volumeMode": "", "accessModes": [], "resources": {}}})"});
  EXPECT_FALSE(claims().create("", "", {}, {}, "", ""));
  EXPECT_THAT(errors(), ElementsAre(create_failure<K8S_PVC>(server.sent(), 422)));
}

// create_from_snapshot

struct PvcFromSnapshot : Pvc {
  /// The requests of get_pv(), with this volume.
  void expect_volume(const char* volume) {
    server.expect_all({{get_claim, 200, claim_text}, {get_claim, 200, claim_text}, {get_volume, 200, volume}});
  }
};

TEST_F(PvcFromSnapshot, WithANameBearsTheLabel) {
  expect_volume(R"({"spec":{"csi":{"driver":"d"}}})");
  server.expect({post_claim, 201, "", R"({
    "kind": "PersistentVolumeClaim", "apiVersion": "v1",
    "metadata": {"name": "restored", "namespace": "ns", "labels": {"component": "tessarin-agent"}, "annotations": {}},
    "spec": {"storageClassName": "fast", "accessModes": ["ReadWriteOnce"],
             "resources": {"requests": {"storage": "1Gi"}, "limits": {"storage": "2Gi"}},
             "dataSource": {"name": "data-tessarin", "kind": "VolumeSnapshot",
                            "apiGroup": "snapshot.storage.k8s.io"}}})"});
  EXPECT_TRUE(claims().create_from_snapshot(json(claim_text), "restored"));
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(PvcFromSnapshot, WithoutANameTakesTheSourcesNameAndNoLabel) {
  expect_volume("{}");
  server.expect({post_claim, 201, "", R"({
    "kind": "PersistentVolumeClaim", "apiVersion": "v1",
    "metadata": {"name": "Data", "namespace": "ns", "labels": {}, "annotations": {}},
    "spec": {"storageClassName": "fast", "accessModes": ["ReadWriteOnce"],
             "resources": {"requests": {"storage": "1Gi"}, "limits": {"storage": "2Gi"}},
             "dataSource": {"name": "data-tessarin", "kind": "VolumeSnapshot",
                            "apiGroup": "snapshot.storage.k8s.io"}}})"});
  EXPECT_TRUE(claims().create_from_snapshot(json(claim_text), ""));
}

TEST_F(PvcFromSnapshot, RepeatsTheDiskTypeOfTheSourceVolume) {
  expect_volume(R"({"spec":{"csi":{"volumeAttributes":{"everest.io/disk-volume-type":"SSD"}}}})");
  server.expect({post_claim, 201});
  EXPECT_TRUE(claims().create_from_snapshot(json(claim_text), "restored"));
  Object annotations;
  EXPECT_TRUE(JSON_Pointer("/metadata/annotations", false, true).get(server.sent(), annotations));
  EXPECT_EQ(annotations, (Object{{"everest.io/disk-volume-type", "SSD"}}));
}

TEST_F(PvcFromSnapshot, TakesNoDiskTypeThatIsEmptyOrNoText) {
  for (const char* type : {"\"\"", "7", "null"}) {
    const std::string volume =
        string_sprintf(R"({"spec":{"csi":{"volumeAttributes":{"everest.io/disk-volume-type":%s}}}})", type);
    expect_volume(volume.c_str());
    server.expect({post_claim, 201});
    EXPECT_TRUE(claims().create_from_snapshot(json(claim_text), "restored"));
    Object annotations = {{"a", "b"}};
    EXPECT_TRUE(JSON_Pointer("/metadata/annotations", false, true).get(server.sent(), annotations));
    EXPECT_TRUE(annotations.empty());
  }
}

TEST_F(PvcFromSnapshot, WithoutTheSnapshotApiSendsAnEmptyGroup) {
  K8S_Cluster::instance()->get_resource_gv("volumesnapshots").clear();
  expect_volume("{}");
  server.expect({post_claim, 201});
  EXPECT_TRUE(claims().create_from_snapshot(json(claim_text), "restored"));
  std::string group = "kept";
  EXPECT_TRUE(JSON_Pointer("/spec/dataSource/apiGroup", false, true).get(server.sent(), group));
  EXPECT_EQ(group, "");
}

TEST_F(PvcFromSnapshot, SendsNothingWhenAPartIsMissingOrEmpty) {
  const std::pair<const char*, const char*> needs[] = {{"/kind", "kind"},
                                                       {"/apiVersion", "api_version"},
                                                       {"/metadata/name", "name_clone"},
                                                       {"/metadata/namespace", "ns"},
                                                       {"/spec/storageClassName", "sc"},
                                                       {"/spec/resources", "resources"},
                                                       {"/spec/accessModes", "access_modes"}};
  for (const auto& [path, word] : needs) {
    for (const std::string& text :
         {claim_without(path), claim_with(path, "\"\""), claim_with(path, "[]"), claim_with(path, "{}")}) {
      log.clear();
      EXPECT_FALSE(claims().create_from_snapshot(json(text), "r")) << text;
      EXPECT_THAT(emergencies(), ElementsAre(string_sprintf("k8s/api/k8s_pvc.cpp, %s is NULL or empty:", word)));
    }
  }
}

TEST_F(PvcFromSnapshot, OfWhatIsNoObjectSendsNothing) {
  EXPECT_FALSE(claims().create_from_snapshot(Value(), "r"));
  EXPECT_THAT(emergencies(), ElementsAre("k8s/api/k8s_pvc.cpp, kind is NULL or empty:"));
}

TEST_F(PvcFromSnapshot, NeedsTheSourceClaim) {
  server.expect({get_claim, 404, not_found});
  EXPECT_FALSE(claims().create_from_snapshot(json(claim_text), "r"));
  EXPECT_THAT(errors(), ElementsAre(get_failure<K8S_PVC>("Data", not_found, 404), "Pvc 'Data' is not bound.\n"));
}

// is_bound

const char pending[] = R"({"status":{"phase":"Pending"}})";
const char bound[] = R"({"spec":{"volumeName":"v"},"status":{"phase":"Bound"}})";

TEST_F(Pvc, IsBoundAtTheFirstLookDoesNotSleep) {
  server.expect({get_claim, 200, bound});
  EXPECT_TRUE(claims().is_bound("Data", true, 100));
  EXPECT_EQ(sleeps(), 0u);
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(Pvc, IsBoundWaits) {
  server.expect_all({{get_claim, 200, pending}, {get_claim, 200, pending}, {get_claim, 200, bound}});
  EXPECT_TRUE(claims().is_bound("Data", true, 100));
  EXPECT_EQ(sleeps(), 2u);
  EXPECT_THAT(
      log.texts(LM_INFO),
      ElementsAre(testing::MatchesRegex("Retry\\(1\\) .*k8s/api/k8s_pvc.cpp:[0-9]+ at 1 second\\(s\\) later.\n"),
                  testing::StartsWith("Retry(2) ")));
  EXPECT_EQ(log.lines().size(), 2u);
}

TEST_F(Pvc, IsBoundWithoutRetriesIsOneLook) {
  server.expect({get_claim, 200, pending});
  EXPECT_FALSE(claims().is_bound("Data", false, 0));
  EXPECT_EQ(sleeps(), 0u);
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(Pvc, IsBoundLooksOnceMorePerRetry) {
  server.expect_all({{get_claim, 200, pending}, {get_claim, 200, pending}, {get_claim, 200, pending}});
  EXPECT_FALSE(claims().is_bound("Data", false, 2));
  EXPECT_EQ(sleeps(), 2u);
  EXPECT_TRUE(nothing_logged());
}

TEST_F(Pvc, IsBoundShowsTheEventsWhenItGivesUp) {
  server.expect_all({{get_claim, 200, pending}, {events_url, 200, R"({"items":[{"message":"no such class"}]})"}});
  EXPECT_FALSE(claims().is_bound("Data", true, 0));
  EXPECT_THAT(errors(),
              ElementsAre("no such class\n", "Persistent volume claim Data not bound to Persistent volume.\n"));
}

TEST_F(Pvc, IsBoundGivesUpAlsoWhenTheEventsCannotBeRead) {
  server.expect_all({{get_claim, 200, pending}, {events_url}});
  EXPECT_FALSE(claims().is_bound("Data", true, 0));
  ASSERT_EQ(errors().size(), 2u);
  EXPECT_EQ(errors()[1], "Persistent volume claim Data not bound to Persistent volume.\n");
}

TEST_F(Pvc, IsBoundEndsAfterAboutTenMinutesHoweverManyRetriesAreLeft) {
  server.expect({.request = get_claim, .status = 200, .reply = pending, .again = true});
  for (const int retry_times : {K8S_QVX_RETRY_TIMES + 0, -1}) {
    const long before = slept_sec();
    EXPECT_FALSE(claims().is_bound("Data", false, retry_times));
    EXPECT_GE(slept_sec() - before, 600);
    EXPECT_LT(slept_sec() - before, 660);
  }
  EXPECT_TRUE(nothing_logged());
}

TEST_F(Pvc, IsBoundDoesNotWaitForAClaimThatCannotBeRead) {
  server.expect_all({{get_claim, 200, pending}, {get_claim, 500, "{}"}});
  EXPECT_FALSE(claims().is_bound("Data", false, 100));
  EXPECT_EQ(sleeps(), 1u);
  EXPECT_THAT(errors(), ElementsAre(get_failure<K8S_PVC>("Data", "{}", 500)));
}

TEST_F(Pvc, IsBoundDoesNotWaitForAClaimWithoutAPhase) {
  for (const char* text : {"{}", R"({"status":{}})", R"({"status":{"phase":""}})", R"({"status":{"phase":1}})"}) {
    server.expect_all({{get_claim, 200, text}, {get_claim, 200, text}});
    log.clear();
    EXPECT_FALSE(claims().is_bound("Data", false, 100)) << text;
    EXPECT_TRUE(log.lines().empty());
    EXPECT_FALSE(claims().is_bound("Data", true, 100)) << text;
    EXPECT_THAT(errors(), ElementsAre(string_sprintf("Failed to extract pvc_status, value\n%s.\n",
                                                     json_spirit::JSON_Dump(json(text), true).c_str())));
  }
  EXPECT_EQ(sleeps(), 0u);
}

TEST_F(Pvc, IsBoundTakesNoOtherPhaseForAnEnd) {
  server.expect_all(
      {{get_claim, 200, R"({"status":{"phase":"Lost"}})"}, {get_claim, 200, R"({"status":{"phase":"bound"}})"}});
  EXPECT_FALSE(claims().is_bound("Data", false, 1));
}

TEST_F(Pvc, IsBoundSeesNoDifferenceInATerminatingClaim) {
  server.expect(recorded("csi-provision-clone-snapshot", "get the source claim: terminating"));
  EXPECT_TRUE(K8S_PVC(server.client(), "csi-demo").is_bound("data", true, 0));
}

// get_pv, get_pv_name

TEST_F(Pvc, GetPvReadsTheClaimTwiceAndThenItsVolume) {
  server.expect_all(
      {{get_claim, 200, bound}, {get_claim, 200, bound}, {get_volume, 200, R"({"kind":"PersistentVolume"})"}});
  Value val;
  EXPECT_TRUE(claims().get_pv("Data", val));
  EXPECT_EQ(val, json(R"({"kind":"PersistentVolume"})"));
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(Pvc, GetPvWaitsForTheBinding) {
  server.expect_all(
      {{get_claim, 200, pending}, {get_claim, 200, bound}, {get_claim, 200, bound}, {get_volume, 200, "{}"}});
  Value val;
  EXPECT_TRUE(claims().get_pv("Data", val));
  EXPECT_EQ(sleeps(), 1u);
}

TEST_F(Pvc, GetPvOfAClaimThatStaysPending) {
  server.expect_all({{.request = get_claim, .status = 200, .reply = pending, .again = true}, {events_url, 200, "{}"}});
  Value val;
  EXPECT_FALSE(claims().get_pv("Data", val));
  EXPECT_GE(slept_sec(), 600);
  EXPECT_THAT(errors(), ElementsAre("Persistent volume claim Data not bound to Persistent volume.\n",
                                    "Pvc 'Data' is not bound.\n"));
}

TEST_F(Pvc, GetPvOfAClaimThatVanishesAfterItsBinding) {
  server.expect_all({{get_claim, 200, bound}, {get_claim, 404, not_found}});
  Value val;
  EXPECT_FALSE(claims().get_pv("Data", val));
  EXPECT_THAT(errors(),
              ElementsAre(get_failure<K8S_PVC>("Data", not_found, 404), "Failed to get pvc info with name 'Data'.\n"));
}

TEST_F(Pvc, GetPvOfABoundClaimWithoutAVolumeName) {
  const char text[] = R"({"status":{"phase":"Bound"}})";
  server.expect_all({{get_claim, 200, text}, {get_claim, 200, text}});
  Value val;
  EXPECT_FALSE(claims().get_pv("Data", val));
  EXPECT_THAT(emergencies(), ElementsAre("k8s/api/k8s_pvc.cpp, volume_name is NULL or empty:"));
}

TEST_F(Pvc, GetPvOfAVolumeThatIsGone) {
  server.expect_all({{get_claim, 200, bound}, {get_claim, 200, bound}, {get_volume, 404, not_found}});
  Value val;
  EXPECT_FALSE(claims().get_pv("Data", val));
  EXPECT_THAT(errors(),
              ElementsAre(get_failure<K8S_PV>("v", not_found, 404), "Failed to get pv info with name 'v'.\n"));
}

TEST_F(Pvc, GetPvNameReadsItWithoutAWait) {
  server.expect({get_claim, 200, bound});
  std::string name;
  EXPECT_TRUE(claims().get_pv_name("Data", name));
  EXPECT_EQ(name, "v");
}

TEST_F(Pvc, GetPvNameOfAPendingClaim) {
  server.expect({get_claim, 200, pending});
  std::string name = "kept";
  EXPECT_FALSE(claims().get_pv_name("Data", name));
  EXPECT_EQ(name, "kept");
  EXPECT_THAT(emergencies(), ElementsAre("k8s/api/k8s_pvc.cpp, vol_name is NULL or empty:"));
}

TEST_F(Pvc, GetPvNameOfAClaimThatCannotBeRead) {
  server.expect({get_claim, 403, forbidden});
  std::string name = "kept";
  EXPECT_FALSE(claims().get_pv_name("Data", name));
  EXPECT_EQ(name, "kept");
  EXPECT_THAT(errors(), ElementsAre(get_failure<K8S_PVC>("Data", forbidden, 403)));
}

TEST_F(Pvc, NothingWorksWithoutAClient) {
  K8S_PVC claims(nullptr, "ns");
  Value val, body = json(claim_text);
  std::string name;
  EXPECT_FALSE(claims.clone("Data", "c"));
  EXPECT_FALSE(claims.clone_i(body.get_obj(), "c"));
  EXPECT_FALSE(claims.create("n", "fast", {}, {}, "Block", "v1"));
  EXPECT_FALSE(claims.create_from_snapshot(json(claim_text), "c"));
  EXPECT_FALSE(claims.is_bound("Data", true, 100));
  EXPECT_FALSE(claims.get_pv("Data", val));
  EXPECT_FALSE(claims.get_pv_name("Data", name));
  EXPECT_EQ(emergencies(), std::vector<std::string>(7, "k8s/api/k8s_resource.cpp, client_ is NULL:"));
}

}  // namespace
