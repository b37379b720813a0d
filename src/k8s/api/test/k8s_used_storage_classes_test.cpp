#include "cluster_fixture.h"
#include "k8s/api/k8s_deployment.h"
#include "k8s/api/k8s_pod.h"
#include "k8s/api/k8s_pvc.h"
#include "k8s/api/k8s_utils.h"

namespace {

using json_spirit::Array;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using namespace test_support;

const char refused[] = R"({"kind":"Status","status":"Failure","reason":"Forbidden","code":403})";
const char pods_url[] = "/api/v1/namespaces/shop/pods";
const char no_pods[] = R"({"kind":"PodList","items":[]})";
const char no_classes[] = "Failed to get storage classes from namespace 'shop'.\n";

std::string pod_with(const std::string& volumes) {
  return R"({"spec":{"volumes":[)" + volumes + "]}}";
}
std::string claim(const std::string& name) {
  return R"({"name":"v","persistentVolumeClaim":{"claimName":")" + name + R"("}})";
}
std::string pods_reply(const std::string& pods) {
  return R"({"kind":"PodList","items":[)" + pods + "]}";
}

struct Used_Storage_Classes : Cluster_Fixture {
  void expect_claim(const std::string& name, const std::string& storage_class) {
    expect("/api/v1/namespaces/shop/persistentvolumeclaims/" + name, 200,
           R"({"spec":{"storageClassName":")" + storage_class + R"("}})");
  }
  void expect_no_claim(const std::string& name) {
    expect("/api/v1/namespaces/shop/persistentvolumeclaims/" + name, 404, "{}");
  }
  std::vector<std::string> warnings() const { return log.texts(LM_WARNING); }

  Storage_Class_Set classes{"before"};
  Array pods{json_spirit::Value("before")};
};

// list_pods_in_ns

TEST_F(Used_Storage_Classes, PodsOfANamespaceReplaceWhatTheArrayHeld) {
  expect(pods_url, 200, pods_reply(R"({"a":1},{"b":2})"));
  EXPECT_TRUE(k8s::list_pods_in_ns(pods, "shop"));
  EXPECT_EQ(json_spirit::JSON_Dump(pods, false).str(), R"([{"a":1},{"b":2}])");
}

TEST_F(Used_Storage_Classes, NamespaceWithoutPodsLeavesTheArrayAndWarns) {
  for (const char* reply : {no_pods, R"({"kind":"PodList"})", R"({"kind":"PodList","items":null})"}) {
    log.clear();
    expect(pods_url, 200, reply);
    EXPECT_TRUE(k8s::list_pods_in_ns(pods, "shop"));
    EXPECT_EQ(json_spirit::JSON_Dump(pods, false).str(), R"(["before"])");
    EXPECT_THAT(warnings(), ElementsAre("namespace 'shop' does not have pods.\n"));
  }
}

TEST_F(Used_Storage_Classes, PodsThatCannotBeListedAreAFailure) {
  expect(pods_url, 403, refused);
  EXPECT_FALSE(k8s::list_pods_in_ns(pods, "shop"));
  EXPECT_EQ(errors().back(), "Failed to list pods under namespace 'shop'.\n");
}

// get_scs_from_ns

TEST_F(Used_Storage_Classes, OfANamespaceAreThoseOfTheClaimsThatItsPodsMount) {
  expect(pods_url, 200,
         pods_reply(pod_with(claim("a") + R"(,{"name":"tmp","emptyDir":{}},7,)" + claim("b")) + "," +
                    pod_with(claim("c"))));
  expect_claim("a", "fast");
  expect_claim("b", "slow");
  expect_claim("c", "fast");
  EXPECT_TRUE(k8s::get_scs_from_ns("shop", classes));
  EXPECT_THAT(classes, UnorderedElementsAre("before", "fast", "slow"));
  EXPECT_THAT(errors(), IsEmpty());
  EXPECT_THAT(emergencies(), IsEmpty());
}

TEST_F(Used_Storage_Classes, OfANamespaceWithoutPodsAreNone) {
  expect(pods_url, 200, no_pods);
  EXPECT_TRUE(k8s::get_scs_from_ns("shop", classes));
  EXPECT_THAT(classes, ElementsAre("before"));
}

TEST_F(Used_Storage_Classes, OfANamespaceThatCannotBeListedAreAFailure) {
  expect(pods_url, 403, refused);
  EXPECT_FALSE(k8s::get_scs_from_ns("shop", classes));
  ASSERT_EQ(errors().size(), 3u);
  EXPECT_EQ(errors()[1], "Failed to list pods under namespace 'shop'.\n");
  EXPECT_EQ(errors()[2], "Failed to list pods in namespace 'shop'.\n");
}

TEST_F(Used_Storage_Classes, PodWithoutVolumesFailsItsNamespaceAndKeepsWhatWasFound) {
  expect(pods_url, 200, pods_reply(pod_with(claim("a")) + R"(,{"spec":{}},)" + pod_with(claim("b"))));
  expect_claim("a", "fast");
  EXPECT_FALSE(k8s::get_scs_from_ns("shop", classes));
  EXPECT_THAT(emergencies(), ElementsAre("volumes is NULL or empty:"));
  EXPECT_THAT(errors(), ElementsAre(no_classes));
  EXPECT_THAT(classes, UnorderedElementsAre("before", "fast"));
}

// extract_scs_from_pods

TEST_F(Used_Storage_Classes, ClaimThatCannotBeReadIsOnlyMissing) {
  expect_no_claim("gone");
  expect("/api/v1/namespaces/shop/persistentvolumeclaims/bare", 200, R"({"spec":{"storageClassName":""}})");
  expect_claim("b", "slow");
  const json_spirit::Value listed = json("[" + pod_with(claim("gone") + "," + claim("bare") + "," + claim("b")) + "]");
  EXPECT_TRUE(k8s::extract_scs_from_pods("shop", listed.get_array(), classes));
  EXPECT_THAT(classes, UnorderedElementsAre("before", "slow"));
  EXPECT_EQ(errors().size(), 1u);
  EXPECT_THAT(emergencies(), ElementsAre("sc is NULL or empty:"));
}

TEST_F(Used_Storage_Classes, ClaimWithoutANameIsAFailure) {
  for (const char* volume : {R"({"persistentVolumeClaim":{}})", R"({"persistentVolumeClaim":{"claimName":""}})"}) {
    log.clear();
    EXPECT_FALSE(k8s::extract_scs_from_pods("shop", json("[" + pod_with(volume) + "]").get_array(), classes));
    EXPECT_THAT(emergencies(), ElementsAre("pvc_name is NULL or empty:"));
  }
}

TEST_F(Used_Storage_Classes, PodsWithEmptyOrMalformedVolumesAreAFailure) {
  for (const char* pod : {R"({"spec":{"volumes":[]}})", R"({"spec":{"volumes":{}}})", "{}"}) {
    log.clear();
    EXPECT_FALSE(k8s::extract_scs_from_pods("shop", json(std::string("[") + pod + "]").get_array(), classes)) << pod;
    EXPECT_THAT(emergencies(), ElementsAre("volumes is NULL or empty:"));
  }
  EXPECT_TRUE(k8s::extract_scs_from_pods("shop", {}, classes));
}

// get_sc_from_pvc

TEST_F(Used_Storage_Classes, ClassOfAClaimIsAdded) {
  expect_claim("a", "fast");
  EXPECT_TRUE(k8s::get_sc_from_pvc("shop", "a", classes));
  EXPECT_THAT(classes, UnorderedElementsAre("before", "fast"));
}

TEST_F(Used_Storage_Classes, ClaimThatIsNotThereIsAFailureThatTheReadLogs) {
  expect_no_claim("a");
  EXPECT_FALSE(k8s::get_sc_from_pvc("shop", "a", classes));
  EXPECT_THAT(errors(), ElementsAre(testing::StartsWith("Failed to get type ")));
}

// extract_scs_from_workload

TEST_F(Used_Storage_Classes, OfAWorkloadAreThoseOfItsPods) {
  expect("/apis/apps/v1/namespaces/shop/deployments/web", 200,
         R"({"spec":{"selector":{"matchLabels":{"app":"web"}}}})");
  expect("/api/v1/namespaces/shop/pods?labelSelector=app%3Dweb", 200, pods_reply(pod_with(claim("a"))));
  expect_claim("a", "fast");
  EXPECT_TRUE(k8s::extract_scs_from_workload({"deployments", "shop", "web"}, classes));
  EXPECT_THAT(classes, UnorderedElementsAre("before", "fast"));
  EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(Used_Storage_Classes, OfABarePodAreItsOwn) {
  expect("/api/v1/namespaces/shop/pods/bare", 200, pod_with(claim("a")));
  expect_claim("a", "fast");
  EXPECT_TRUE(k8s::extract_scs_from_workload("shop", "pods", "bare", classes));
  EXPECT_THAT(classes, UnorderedElementsAre("before", "fast"));
}

TEST_F(Used_Storage_Classes, OfAWorkloadThatFailsInAnyStepAreAWarning) {
  const char web[] = "/apis/apps/v1/namespaces/shop/deployments/web";
  const char selector[] = R"({"spec":{"selector":{"matchLabels":{"app":"web"}}}})";
  const char selected[] = "/api/v1/namespaces/shop/pods?labelSelector=app%3Dweb";
  const std::function<void()> scripts[] = {
      [&] { expect(web, 404, "{}"); },
      [&] { expect(web, 200, "{}"); },
      [&] { expect(web, 200, selector), expect(selected, 403, refused); },
      [&] { expect(web, 200, selector), expect(selected, 200, no_pods); },
      [&] { expect(web, 200, selector), expect(selected, 200, pods_reply("{}")); },
  };
  for (const auto& script : scripts) {
    log.clear();
    script();
    EXPECT_FALSE(k8s::extract_scs_from_workload("shop", "deployments", "web", classes));
    EXPECT_THAT(warnings(), ElementsAre(no_classes));
    EXPECT_FALSE(log.has(LM_ERROR, no_classes));
  }
}

TEST_F(Used_Storage_Classes, OfATypeThatIsNoneAreAWarning) {
  EXPECT_FALSE(k8s::extract_scs_from_workload("shop", "namespace", "shop", classes));
  EXPECT_THAT(errors(), ElementsAre("Unkown workload type '8'.\n"));
  EXPECT_THAT(warnings(), ElementsAre(no_classes));
}

// is_entry_present

TEST_F(Used_Storage_Classes, NamespaceIsLookedUpByTheNameOfItsEntry) {
  expect("/api/v1/namespaces/shop", 200, "{}");
  EXPECT_TRUE(k8s::is_entry_present("shop", "other", "namespace"));
  expect("/api/v1/namespaces/gone", 404, "{}");
  EXPECT_FALSE(k8s::is_entry_present("gone", "shop", "namespace"));
  EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(Used_Storage_Classes, WorkloadIsLookedUpInItsNamespaceAndItsAbsenceLogged) {
  expect("/apis/apps/v1/namespaces/shop/deployments/web", 200, "{}");
  EXPECT_TRUE(k8s::is_entry_present("web", "shop", "deployments"));
  expect("/apis/apps/v1/namespaces/shop/deployments/gone", 404, "{}");
  EXPECT_FALSE(k8s::is_entry_present("gone", "shop", "deployments"));
  EXPECT_THAT(errors(), ElementsAre(testing::StartsWith("Failed to get type ")));
}

TEST_F(Used_Storage_Classes, EntryOfATypeThatIsNoneIsNotPresent) {
  EXPECT_FALSE(k8s::is_entry_present("web", "shop", "Deployment"));
  EXPECT_THAT(errors(), ElementsAre("Unkown workload type '8'.\n"));
  EXPECT_THAT(emergencies(), ElementsAre("workload is NULL:"));
}

}  // namespace
