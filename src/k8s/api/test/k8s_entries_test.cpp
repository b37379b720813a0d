#include "k8s/api/k8s_replica_set.h"
#include "k8s/api/k8s_utils.h"
#include "resource_fixture.h"

namespace {

using json_spirit::Value;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace test_support;

// deduplicate_backup_entries

struct Entries : Resource_Fixture {
  /// What is left of @a entries: "type namespace/name".
  std::vector<std::string> reduce(const std::string& entries) {
    std::vector<Backup_Resource> result;
    good = k8s::deduplicate_backup_entries(json(entries).get_array(), result);
    std::vector<std::string> texts;
    for (const Backup_Resource& entry : result) texts.push_back(entry.type + " " + entry.ns + "/" + entry.name);
    return texts;
  }

  bool good = false;
};

TEST_F(Entries, WorkloadsOfANamespaceThatCameBeforeAreDropped) {
  EXPECT_THAT(reduce(R"([{"type":"namespace","name":"a","namespace":"a"},
                         {"type":"deployments","name":"d","namespace":"a"},
                         {"type":"deployments","name":"d","namespace":"b"}])"),
              ElementsAre("namespace a/a", "deployments b/d"));
  EXPECT_TRUE(good);
  EXPECT_TRUE(nothing_logged());
}

TEST_F(Entries, WorkloadsBeforeTheirNamespaceStay) {
  EXPECT_THAT(reduce(R"([{"type":"deployments","name":"d","namespace":"a"},
                         {"type":"namespace","name":"a","namespace":"a"}])"),
              ElementsAre("deployments a/d", "namespace a/a"));
  EXPECT_TRUE(good);
}

TEST_F(Entries, ThatSayTheSameAllStay) {
  EXPECT_THAT(reduce(R"([{"type":"pods","name":"p","namespace":"a"}, {"type":"pods","name":"p","namespace":"a"},
                         {"type":"namespace","name":"a","namespace":"a"},
                         {"type":"namespace","name":"a","namespace":"a"}])"),
              ElementsAre("pods a/p", "pods a/p", "namespace a/a", "namespace a/a"));
  EXPECT_TRUE(good);
}

TEST_F(Entries, OfANamespaceCountByTheirMemberNamespace) {
  EXPECT_THAT(reduce(R"([{"type":"namespace","name":"a","namespace":"b"},
                         {"type":"pods","name":"p","namespace":"a"}, {"type":"pods","name":"p","namespace":"b"}])"),
              ElementsAre("namespace b/a", "pods a/p"));
}

TEST_F(Entries, ThatAreNoObjectsArePassedOver) {
  EXPECT_THAT(reduce(R"([1, "pods", null, ["x"], {"type":"pods","name":"p","namespace":"a"}])"),
              ElementsAre("pods a/p"));
  EXPECT_TRUE(good);
  EXPECT_TRUE(nothing_logged());
}

TEST_F(Entries, NoneAreNoFailure) {
  EXPECT_THAT(reduce("[]"), IsEmpty());
  EXPECT_TRUE(good);
}

TEST_F(Entries, ThatAreIncompleteFailTheReductionAndKeepWhatCameBefore) {
  const std::pair<const char*, const char*> cases[] = {
      {R"({})", "type"},
      {R"({"type":"","name":"","namespace":""})", "type"},
      {R"({"type":"pods"})", "name"},
      {R"({"type":"pods","name":"","namespace":"a"})", "name"},  // would be dropped if it had a name
      {R"({"type":"pods","name":1,"namespace":"a"})", "name"},
      {R"({"type":"pods","name":"p"})", "ns"},
      {R"({"type":"pods","name":"p","namespace":""})", "ns"},
  };
  for (const auto& [entry, missing] : cases) {
    log.clear();
    EXPECT_THAT(reduce(std::string(R"([{"type":"namespace","name":"a","namespace":"a"},)") + entry +
                       R"(,{"type":"pods","name":"q","namespace":"b"}])"),
                ElementsAre("namespace a/a"))
        << entry;
    EXPECT_FALSE(good);
    EXPECT_THAT(emergencies(), ElementsAre(std::string("k8s/api/k8s_entries.cpp, ") + missing + " is NULL or empty:"));
  }
}

// should_skip_workload

struct Owned_Workload : Resource_Fixture {
  bool skipped(const std::string& metadata) {
    return k8s::should_skip_workload(server.client(), "shop", json(R"({"metadata":{)" + metadata + "}}"));
  }
  std::string owned_by(const std::string& owners, const std::string& labels = R"("app":"web","hash":"1")") {
    return R"("labels":{)" + labels + R"(},"ownerReferences":[)" + owners + "]";
  }
  void expect_replica_set(const std::string& match_labels, const std::string& name = "web-1") {
    server.expect({"GET /apis/apps/v1/namespaces/shop/replicasets/" + name, 200,
                   R"({"kind":"ReplicaSet","spec":{"selector":{"matchLabels":{)" + match_labels + "}}}}"});
  }

  const std::string replica_set = R"({"kind":"ReplicaSet","name":"web-1"})";
};

TEST_F(Owned_Workload, IsSkippedIfItHasAllKeysOfItsOwnersSelectorWhateverTheirValues) {
  expect_replica_set(R"("app":"another","hash":"another")");
  EXPECT_TRUE(skipped(owned_by(replica_set)));
  EXPECT_TRUE(nothing_logged());
}

TEST_F(Owned_Workload, IsSkippedIfItHasMoreLabelsThanItsOwnerAsksFor) {
  expect_replica_set(R"("hash":"1")");
  EXPECT_TRUE(skipped(owned_by(replica_set, R"("a":"1","hash":"1","z":"1")")));
}

TEST_F(Owned_Workload, IsKeptIfItLacksAKeyOfItsOwnersSelector) {
  expect_replica_set(R"("app":"web","hash":"1")");
  EXPECT_FALSE(skipped(owned_by(replica_set, R"("app":"web")")));
  EXPECT_TRUE(nothing_logged());
}

TEST_F(Owned_Workload, IsKeptWithoutARequestIfItHasNoOwnersOrNoLabels) {
  for (const char* metadata : {R"("labels":{"app":"web"})", R"("labels":{"app":"web"},"ownerReferences":[])",
                               R"("ownerReferences":[{"kind":"ReplicaSet","name":"web-1"}])",
                               R"("labels":{},"ownerReferences":[{"kind":"ReplicaSet","name":"web-1"}])", ""})
    EXPECT_FALSE(skipped(metadata)) << metadata;
  EXPECT_FALSE(k8s::should_skip_workload(server.client(), "shop", json("[]")));
  EXPECT_TRUE(nothing_logged());
}

TEST_F(Owned_Workload, IsKeptWithoutARequestIfItsOwnerIsOfAnotherKind) {
  EXPECT_FALSE(skipped(owned_by(R"({"kind":"Node","name":"n"},{"kind":"Namespace","name":"shop"})")));
  EXPECT_TRUE(nothing_logged());
}

TEST_F(Owned_Workload, IsSkippedAtEachLevelOfOwnership) {
  server.expect({"GET /apis/apps/v1/namespaces/shop/deployments/web", 200,
                 R"({"spec":{"selector":{"matchLabels":{"app":"web"}}}})"});
  EXPECT_TRUE(skipped(owned_by(R"({"kind":"Deployment","name":"web"})")));
}

TEST_F(Owned_Workload, IsKeptIfItsOwnerCannotBeRead) {
  server.expect({"GET /apis/apps/v1/namespaces/shop/replicasets/web-1", 404, not_found});
  EXPECT_FALSE(skipped(owned_by(replica_set)));
  EXPECT_THAT(errors(), ElementsAre(get_failure<K8S_Replica_Set>("web-1", not_found, 404)));
}

TEST_F(Owned_Workload, IsKeptIfItsOwnerHasNoMatchLabels) {
  for (const char* owner : {R"({"kind":"Job"})", R"({"spec":{"selector":{"matchLabels":{}}}})",
                            R"({"spec":{"selector":{"matchLabels":["app"]}}})"}) {
    log.clear();
    server.expect({"GET /apis/batch/v1/namespaces/shop/jobs/j", 200, owner});
    EXPECT_FALSE(skipped(owned_by(R"({"kind":"Job","name":"j"})"))) << owner;
    EXPECT_THAT(emergencies(), ElementsAre("k8s/api/k8s_entries.cpp, match_labels is NULL or empty:"));
  }
}

TEST_F(Owned_Workload, IsTestedAgainstItsOwnersUpToTheFirstThatStandsForIt) {
  expect_replica_set(R"("missing":"1")", "first");
  expect_replica_set(R"("app":"web")", "second");
  EXPECT_TRUE(skipped(owned_by(R"(7, {"name":"x"}, {"kind":"Pod","name":""}, {"kind":"Node","name":"n"},
                                  {"kind":"ReplicaSet","name":"first"}, {"kind":"ReplicaSet","name":"second"},
                                  {"kind":"ReplicaSet","name":"third"})")));
  EXPECT_THAT(emergencies(), ElementsAre("k8s/api/k8s_utils, v is not object!",
                                         "k8s/api/k8s_entries.cpp, owner_kind is NULL or empty:",
                                         "k8s/api/k8s_entries.cpp, owner_name is NULL or empty:"));
}

}  // namespace
