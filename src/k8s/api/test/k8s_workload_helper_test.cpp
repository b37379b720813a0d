#include "k8s/api/k8s_deployment.h"
#include "k8s/api/k8s_workload_factory.h"
#include "kolt/check_macros.h"
#include "resource_fixture.h"

namespace {

using json_spirit::Array;
using json_spirit::JSON_Dump;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace test_support;

std::string named(const std::string& ns, const std::string& name, const std::string& more = "") {
  return R"({"metadata":{"name":")" + name + R"(","uid":"u-)" + name + R"(","namespace":")" + ns + '"' + more + "}}";
}
std::string list(const std::string& kind, const std::string& items = "") {
  return R"({"kind":")" + kind + R"(List","items":[)" + items + "]}";
}

struct Workload_Helper : Resource_Fixture {
  Workload_Helper() { K8S_Cluster::instance()->get_resource_gv("cronjobs") = "batch/v1"; }

  K8S_Workload_Helper helper() { return K8S_Workload_Helper(server.client()); }
  std::vector<std::string> names() const {
    std::vector<std::string> result;
    for (const json_spirit::Value& entry : arr)
      result.push_back(entry.is_null() ? "before" : entry.get_obj().at("name").get_str());
    return result;
  }

  const std::string ns = "shop", all = "", web = "WEB";
  Array arr{json_spirit::Value()};
};

TEST_F(Workload_Helper, ListsAllKindsOfANamespaceOneAfterTheOther) {
  const std::string apps = "GET /apis/apps/v1/namespaces/shop/", batch = "GET /apis/batch/v1/namespaces/shop/";
  server.expect_all({{batch + "cronjobs", 200, list("CronJob", named("shop", "c"))},
                     {apps + "deployments", 200, list("Deployment", named("shop", "d"))},
                     {apps + "daemonsets", 200, list("DaemonSet", named("shop", "ds"))},
                     {batch + "jobs", 200, list("Job", named("shop", "j"))},
                     {"GET /api/v1/namespaces/shop/pods", 200, list("Pod", named("shop", "p"))},
                     {apps + "replicasets", 200, list("ReplicaSet", named("shop", "r"))},
                     {apps + "statefulsets", 200, list("StatefulSet", named("shop", "s"))}});
  EXPECT_TRUE(helper().list_workload_objects(arr, &ns, nullptr));
  std::vector<std::string> texts;
  for (const json_spirit::Value& entry : arr) texts.push_back(JSON_Dump(entry, false).str());
  const auto entry = [](const std::string& name, const std::string& type) {
    return R"({"has_children":false,"name":")" + name + R"(","namespace":"shop","type":")" + type + R"(","uid":"u-)" +
           name + R"("})";
  };
  EXPECT_THAT(texts, ElementsAre(entry("c", "cronjobs"), entry("d", "deployments"), entry("ds", "daemonsets"),
                                 entry("j", "jobs"), entry("p", "pods"), entry("r", "replicasets"),
                                 entry("s", "statefulsets")));
  EXPECT_TRUE(nothing_logged());
}

TEST_F(Workload_Helper, AsksForAllNamespacesWithoutOne) {
  for (const std::string* no_namespace : {&all, static_cast<const std::string*>(nullptr)}) {
    server.expect({"GET /apis/apps/v1/deployments", 200, list("Deployment", named("a", "x") + "," + named("b", "y"))});
    EXPECT_TRUE(helper().get_workload_objects(DEPLOYMENT_WORKLOAD, arr, no_namespace, nullptr));
    EXPECT_THAT(names(), ElementsAre("x", "y"));
  }
}

TEST_F(Workload_Helper, StopsAtTheFirstKindThatFailsAndKeepsWhatItHas) {
  server.expect_all({{"GET /apis/batch/v1/namespaces/shop/cronjobs", 200, list("CronJob", named("shop", "c"))},
                     {"GET /apis/apps/v1/namespaces/shop/deployments", 403, forbidden}});
  EXPECT_FALSE(helper().list_workload_objects(arr, &ns, nullptr));
  EXPECT_THAT(names(), ElementsAre("c"));
  EXPECT_THAT(errors(), ElementsAre(list_failure<K8S_Deployment>(forbidden, 403), "Failed to list workload in shop\n"));
}

TEST_F(Workload_Helper, TellsWhereItFailedToList) {
  const std::pair<const std::string*, const char*> cases[] = {
      {&ns, "Failed to list workload in shop\n"},
      {&all, "Failed to list workload in \n"},
      {nullptr, "Failed to list workload in all namespaces\n"},
  };
  for (const auto& [where, text] : cases) {
    log.clear();
    server.expect({kolt::is_null_or_empty(where) ? "GET /api/v1/pods" : "GET /api/v1/namespaces/shop/pods", 500, "{}"});
    EXPECT_FALSE(helper().get_workload_objects(POD_WORKLOAD, arr, where, nullptr));
    EXPECT_EQ(errors().back(), text);
  }
}

TEST_F(Workload_Helper, GetReplacesAndAppendAdds) {
  server.expect_all({{"GET /api/v1/namespaces/shop/pods", 200, list("Pod", named("shop", "a"))},
                     {"GET /api/v1/namespaces/shop/pods", 200, list("Pod", named("shop", "b"))}});
  EXPECT_TRUE(helper().get_workload_objects(POD_WORKLOAD, arr, &ns, nullptr));
  EXPECT_TRUE(helper().append_workload_objects(POD_WORKLOAD, arr, &ns, nullptr));
  EXPECT_THAT(names(), ElementsAre("a", "b"));
}

TEST_F(Workload_Helper, RefusesAnUnknownKindWithTwoLinesAndAClearedArray) {
  EXPECT_FALSE(helper().get_workload_objects(UNKNOWN_WORKLOAD, arr, &ns, nullptr));
  EXPECT_THAT(errors(), ElementsAre("Unkown workload type '8'.\n", "Failed to get client for (null).\n"));
  EXPECT_THAT(arr, IsEmpty());
}

TEST_F(Workload_Helper, AppendOfAnUnknownKindLeavesTheArray) {
  EXPECT_FALSE(helper().append_workload_objects(UNKNOWN_WORKLOAD, arr, &ns, nullptr));
  EXPECT_THAT(names(), ElementsAre("before"));
}

TEST_F(Workload_Helper, RefusesAReplyWithoutAKind) {
  for (const char* reply : {R"({"items":[]})", R"({"kind":"","items":[]})", R"({"kind":7})"}) {
    log.clear();
    server.expect({"GET /api/v1/namespaces/shop/pods", 200, reply});
    EXPECT_FALSE(helper().get_workload_objects(POD_WORKLOAD, arr, &ns, nullptr)) << reply;
    EXPECT_THAT(emergencies(), ElementsAre("k8s/api/k8s_workload_helper.cpp, kind is NULL or empty:"));
  }
}

TEST_F(Workload_Helper, RefusesAKindThatIsTooShortToBeAList) {
  for (const std::string kind : {"List", "Pod", "x"}) {
    log.clear();
    server.expect({"GET /api/v1/namespaces/shop/pods", 200, R"({"kind":")" + kind + R"(","items":[]})"});
    EXPECT_FALSE(helper().get_workload_objects(POD_WORKLOAD, arr, &ns, nullptr));
    EXPECT_THAT(errors(), ElementsAre("Invalid kind " + kind + ".\n"));
  }
}

TEST_F(Workload_Helper, DropsFourCharactersOfTheKindWhateverTheyAre) {
  server.expect({"GET /api/v1/namespaces/shop/pods", 200, R"({"kind":"Pxxxx","items":[)" + named("shop", "a") + "]}"});
  EXPECT_TRUE(helper().get_workload_objects(POD_WORKLOAD, arr, &ns, nullptr));
  EXPECT_EQ(arr.at(0).get_obj().at("type"), json_spirit::Value("P"));
}

TEST_F(Workload_Helper, ReplyWithoutItemsAddsNothing) {
  for (const char* reply :
       {R"({"kind":"PodList"})", R"({"kind":"PodList","items":[]})", R"({"kind":"PodList","items":null})"}) {
    server.expect({"GET /api/v1/namespaces/shop/pods", 200, reply});
    EXPECT_TRUE(helper().append_workload_objects(POD_WORKLOAD, arr, &ns, nullptr)) << reply;
  }
  EXPECT_THAT(names(), ElementsAre("before"));
  EXPECT_TRUE(nothing_logged());
}

TEST_F(Workload_Helper, FindsTheSearchedTextAnywhereInANameInEitherCase) {
  server.expect({"GET /apis/apps/v1/deployments", 200,
                 list("Deployment", named("a", "web") + "," + named("b", "my-wEb-1") + "," + named("c", "we") + "," +
                                        named("kube-system", "web") + "," + named("Kube-x", "WEB") + "," +
                                        named("kubeflow", "web-2"))});
  EXPECT_TRUE(helper().get_workload_objects(DEPLOYMENT_WORKLOAD, arr, nullptr, &web));
  EXPECT_THAT(names(), ElementsAre("web", "my-wEb-1", "WEB", "web-2"));
}

TEST_F(Workload_Helper, AnEmptySearchedTextFindsAll) {
  server.expect({"GET /api/v1/namespaces/shop/pods", 200, list("Pod", named("shop", "a"))});
  EXPECT_TRUE(helper().get_workload_objects(POD_WORKLOAD, arr, &ns, &all));
  EXPECT_THAT(names(), ElementsAre("a"));
}

TEST_F(Workload_Helper, NamespacesOfTheSystemAreEmptyAlsoWhenAskedFor) {
  const std::string system = "kube-system";
  server.expect({"GET /api/v1/namespaces/kube-system/pods", 200, list("Pod", named(system, "a"))});
  EXPECT_TRUE(helper().get_workload_objects(POD_WORKLOAD, arr, &system, nullptr));
  EXPECT_THAT(arr, IsEmpty());
  EXPECT_TRUE(nothing_logged());
}

TEST_F(Workload_Helper, LeavesOutItemsWithoutANameAndTakesThoseWithoutTheRest) {
  server.expect({"GET /api/v1/pods", 200,
                 list("Pod", R"(7, {}, {"metadata":{"name":"","uid":"u"}}, {"metadata":{"uid":"u","namespace":"a"}},
                                {"metadata":{"name":"bare"}})")});
  EXPECT_TRUE(helper().get_workload_objects(POD_WORKLOAD, arr, nullptr, nullptr));
  ASSERT_EQ(arr.size(), 1u);
  EXPECT_EQ(JSON_Dump(arr[0], false).str(),
            R"({"has_children":false,"name":"bare","namespace":"","type":"pods","uid":""})");
}

TEST_F(Workload_Helper, LeavesOutWhatAnOwnerStandsFor) {
  const std::string owned = R"(,"labels":{"app":"web"},"ownerReferences":[{"kind":"ReplicaSet","name":"web-1"}])";
  server.expect_all(
      {{"GET /api/v1/pods", 200, list("Pod", named("shop", "web-1-x", owned) + "," + named("shop", "bare"))},
       {"GET /apis/apps/v1/namespaces/shop/replicasets/web-1", 200,
        R"({"spec":{"selector":{"matchLabels":{"app":"web"}}}})"}});
  EXPECT_TRUE(helper().get_workload_objects(POD_WORKLOAD, arr, nullptr, nullptr));
  EXPECT_THAT(names(), ElementsAre("bare"));
}

TEST_F(Workload_Helper, AsksForAnOwnerAlsoWhereAnotherTestWouldLeaveTheWorkloadOut) {
  const std::string owned = R"(,"labels":{"app":"x"},"ownerReferences":[{"kind":"ReplicaSet","name":"r"}])";
  server.expect_all({{"GET /api/v1/pods", 200, list("Pod", named("kube-system", "x", owned))},
                     {"GET /apis/apps/v1/namespaces/kube-system/replicasets/r", 404, not_found}});
  EXPECT_TRUE(helper().get_workload_objects(POD_WORKLOAD, arr, nullptr, &web));
  EXPECT_THAT(arr, IsEmpty());
}

}  // namespace
