#include <gtest/gtest.h>

#include "support/kube_sim/test/cluster_call.h"

// What the recordings don't show, or not alone.
namespace kube_sim {
namespace {

class RestApi : public testing::Test {
 protected:
  void create(const std::string& name, const std::string& labels = "{}") {
    EXPECT_EQ(call(cluster_, "POST", config_maps, config_map_text(name, labels)).status, 201);
  }

  Answer get(const std::string& target) { return call(cluster_, "GET", target); }

  Cluster cluster_;
};

TEST_F(RestApi, TakesABodyOfThreeMebibytesAtMost) {
  const Answer answer = call(cluster_, "POST", config_maps, std::string(3'145'729, ' '));
  EXPECT_EQ(answer.status, 413);
  EXPECT_EQ(text_at(answer, "/message"), "Request entity too large: limit is 3145728");
}

TEST_F(RestApi, LimitsTheDataOfAConfigMap) {
  const std::string big(1'048'586, 'x');
  const Answer answer =
      call(cluster_, "POST", config_maps, R"({"metadata":{"name":"big"},"data":{"key":")" + big + "\"}}");
  EXPECT_EQ(answer.status, 422);
  EXPECT_EQ(text_at(answer, "/message"),
            "ConfigMap \"big\" is invalid: []: Too long: may not be more than 1048576 bytes");
}

TEST_F(RestApi, CountsVersionsUpAndKeepsThemWhenNothingChanges) {
  create("a");
  const std::string before = text_at(get(std::string(config_maps) + "/a"), "/metadata/resourceVersion");
  const auto patch = [&](const char* body) {
    return text_at(call(cluster_, "PATCH", std::string(config_maps) + "/a", body, "application/merge-patch+json"),
                   "/metadata/resourceVersion");
  };
  EXPECT_EQ(patch(R"({"data":{"key":"value"}})"), before);
  EXPECT_GT(std::stol(patch(R"({"data":{"key":"other"}})")), std::stol(before));
}

TEST_F(RestApi, ListsInTheOrderOfNames) {
  for (const char* name : {"c", "a", "b"}) create(name);
  EXPECT_EQ(text_at(get(config_maps), "/items/0/metadata/name"), "a");
  EXPECT_EQ(text_at(get(config_maps), "/items/2/metadata/name"), "c");
}

TEST_F(RestApi, ListsOfOneNamespaceLeaveOutNamespacesWithTheSameBeginning) {
  for (const char* name : {"def", "default-2"}) {
    json_spirit::Object object;
    object["metadata"].to_object()["name"] = name;
    cluster_.create("", "namespaces", object);
  }
  EXPECT_EQ(count_at(get(config_maps), "/items"), 1u);
}

TEST_F(RestApi, RefusesAContinuedListOnceItsStateIsForgotten) {
  Cluster cluster({.history = 3});
  const auto list = [&](const std::string& query) { return call(cluster, "GET", config_maps + query); };
  for (const char* name : {"a", "b"}) call(cluster, "POST", config_maps, config_map_text(name));
  const std::string token = text_at(list("?limit=1"), "/metadata/continue");
  ASSERT_FALSE(token.empty());
  EXPECT_EQ(list("?limit=1&continue=" + token).status, 200);
  for (const char* name : {"c", "d", "e", "f"}) call(cluster, "POST", config_maps, config_map_text(name));
  const Answer late = list("?limit=1&continue=" + token);
  EXPECT_EQ(late.status, 410);
  EXPECT_EQ(text_at(late, "/reason"), "Expired");
}

TEST_F(RestApi, ShowsAContinuedListAsItWas) {
  for (const char* name : {"a", "b", "c"}) create(name);
  const std::string token = text_at(get(std::string(config_maps) + "?limit=1"), "/metadata/continue");
  call(cluster_, "DELETE", std::string(config_maps) + "/b");
  create("bb");
  const Answer rest = get(std::string(config_maps) + "?continue=" + token);
  EXPECT_EQ(text_at(rest, "/items/0/metadata/name"), "b");
  EXPECT_EQ(text_at(rest, "/items/1/metadata/name"), "c");
  EXPECT_EQ(count_at(rest, "/items"), 3u);  // the third is kube-root-ca.crt
}

TEST_F(RestApi, DeletesOnlyTheSelectedOfACollection) {
  create("a", R"({"x":"1"})");
  create("b", R"({"x":"2"})");
  EXPECT_EQ(call(cluster_, "DELETE", std::string(config_maps) + "?labelSelector=x=1").status, 200);
  EXPECT_EQ(get(std::string(config_maps) + "/a").status, 404);
  EXPECT_EQ(get(std::string(config_maps) + "/b").status, 200);
}

TEST_F(RestApi, AForeignUidInThePreconditionsKeepsTheObject) {
  create("a");
  const Answer answer =
      call(cluster_, "DELETE", std::string(config_maps) + "/a", R"({"preconditions":{"uid":"another"}})");
  EXPECT_EQ(answer.status, 409);
  EXPECT_EQ(text_at(answer, "/reason"), "Conflict");
  EXPECT_EQ(get(std::string(config_maps) + "/a").status, 200);
}

TEST_F(RestApi, ADryDeletionKeepsTheObject) {
  create("a");
  EXPECT_EQ(call(cluster_, "DELETE", std::string(config_maps) + "/a?dryRun=All").status, 200);
  EXPECT_EQ(get(std::string(config_maps) + "/a").status, 200);
}

TEST_F(RestApi, PutRefusesAnotherName) {
  create("a");
  EXPECT_EQ(call(cluster_, "PUT", std::string(config_maps) + "/a", config_map_text("b")).status, 400);
}

TEST_F(RestApi, TheObjectAndItsStatusAreWrittenApart) {
  const std::string nodes = "/api/v1/nodes";
  call(cluster_, "POST", nodes, R"({"metadata":{"name":"n"}})");
  const std::string merge = "application/merge-patch+json";
  call(cluster_, "PATCH", nodes + "/n", R"({"status":{"phase":"x"},"spec":{"providerID":"p"}})", merge);
  EXPECT_EQ(text_at(get(nodes + "/n"), "/status/phase"), "");
  EXPECT_EQ(text_at(get(nodes + "/n"), "/spec/providerID"), "p");
  call(cluster_, "PATCH", nodes + "/n/status", R"({"status":{"phase":"x"},"spec":{"providerID":"q"}})", merge);
  EXPECT_EQ(text_at(get(nodes + "/n"), "/status/phase"), "x");
  EXPECT_EQ(text_at(get(nodes + "/n"), "/spec/providerID"), "p");
}

TEST_F(RestApi, ScaleIsSetByPut) {
  const std::string sets = "/apis/apps/v1/namespaces/default/statefulsets";
  call(
      cluster_, "POST", sets,
      R"({"metadata":{"name":"s"},"spec":{"selector":{"matchLabels":{"a":"b"}},"template":{"metadata":{"labels":{"a":"b"}}}}})");
  EXPECT_EQ(call(cluster_, "PUT", sets + "/s/scale",
                 R"({"kind":"Scale","apiVersion":"autoscaling/v1","metadata":{"name":"s"},"spec":{"replicas":5}})")
                .status,
            200);
  int replicas = 0;
  json_spirit::pextract(json_of(get(sets + "/s")))("/spec/replicas", replicas);
  EXPECT_EQ(replicas, 5);
}

TEST_F(RestApi, RefusesAnythingWithoutAName) {
  for (const char* target : {"/api/v1/namespaces", "/api/v1/nodes", "/api/v1/namespaces/default/pods",
                             "/apis/batch/v1/namespaces/default/jobs", "/apis/apps/v1/namespaces/default/statefulsets"})
    EXPECT_EQ(call(cluster_, "POST", target, "{}").status, 422) << target;
}

TEST_F(RestApi, AClaimGetsTheDefaultClass) {
  call(cluster_, "POST", "/apis/storage.k8s.io/v1/storageclasses",
       R"({"metadata":{"name":"main","annotations":{"storageclass.kubernetes.io/is-default-class":"true"}},
           "provisioner":"p"})");
  const Answer claim = call(
      cluster_, "POST", "/api/v1/namespaces/default/persistentvolumeclaims",
      R"({"metadata":{"name":"c"},"spec":{"accessModes":["ReadWriteOnce"],"resources":{"requests":{"storage":"1Gi"}}}})");
  EXPECT_EQ(text_at(claim, "/spec/storageClassName"), "main");
}

TEST_F(RestApi, OldServersHaveCronJobsInTheBetaVersion) {
  Cluster old({.version = "v1.20.2"}), middle({.version = "v1.22.0"});
  EXPECT_EQ(call(old, "GET", "/apis/batch/v1beta1/cronjobs").status, 200);
  EXPECT_EQ(call(old, "GET", "/apis/batch/v1/cronjobs").status, 404);
  EXPECT_EQ(call(middle, "GET", "/apis/batch/v1beta1/cronjobs").status, 200);
  EXPECT_EQ(call(middle, "GET", "/apis/batch/v1/cronjobs").status, 200);
  EXPECT_EQ(call(cluster_, "GET", "/apis/batch/v1beta1/cronjobs").status, 404);
}

TEST_F(RestApi, AnObjectIsShownInEachVersionOfItsGroup) {
  Cluster middle({.version = "v1.22.0"});
  call(middle, "POST", "/apis/batch/v1/namespaces/default/cronjobs",
       R"({"metadata":{"name":"c"},"spec":{"schedule":"* * * * *"}})");
  EXPECT_EQ(text_at(call(middle, "GET", "/apis/batch/v1beta1/namespaces/default/cronjobs/c"), "/apiVersion"),
            "batch/v1beta1");
  EXPECT_EQ(text_at(call(middle, "GET", "/version"), "/gitVersion"), "v1.22.0");
}

}  // namespace
}  // namespace kube_sim
