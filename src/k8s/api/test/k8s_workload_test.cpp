#include "k8s/api/k8s_workload.h"

#include "k8s/api/k8s_deployment.h"
#include "k8s/api/k8s_pod.h"
#include "k8s/api/k8s_pv.h"
#include "k8s/api/k8s_pvc.h"
#include "k8s/api/k8s_workload_factory.h"
#include "resource_fixture.h"

namespace {

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;
using testing::ElementsAre;
using namespace test_support;

// The table of kinds.

struct Kind {
  K8S_Workload_Type type;
  const char* url;
  const char* all_url;
  const char* vol_path;
};

const Kind kinds[] = {
    {CRONJOB_WORKLOAD, "/apis/batch/v1beta1/namespaces/ns/cronjobs", "/apis/batch/v1beta1/cronjobs",
     "/spec/jobTemplate/spec/volumes"},
    {DEPLOYMENT_WORKLOAD, "/apis/apps/v1/namespaces/ns/deployments", "/apis/apps/v1/deployments",
     "/spec/template/spec/volumes"},
    {DAEMONSET_WORKLOAD, "/apis/apps/v1/namespaces/ns/daemonsets", "/apis/apps/v1/daemonsets",
     "/spec/jobTemplate/spec/volumes"},
    {JOB_WORKLOAD, "/apis/batch/v1/namespaces/ns/jobs", "/apis/batch/v1/jobs", "/spec/template/spec/volumes"},
    {POD_WORKLOAD, "/api/v1/namespaces/ns/pods", "/api/v1/pods", "/spec/volumes"},
    {REPLICASET_WORKLOAD, "/apis/apps/v1/namespaces/ns/replicasets", "/apis/apps/v1/replicasets",
     "/spec/template/spec/volumes"},
    {STATEFULSET_WORKLOAD, "/apis/apps/v1/namespaces/ns/statefulsets", "/apis/apps/v1/statefulsets",
     "/spec/template/spec/volumes"},
};

struct WorkloadKinds : Resource_Fixture {
  WorkloadKinds() { K8S_Cluster::instance()->get_resource_gv("cronjobs") = "batch/v1beta1"; }

  K8S_Workload_ptr create(K8S_Workload_Type type) {
    const std::string ns = "ns";
    return K8S_Workload_Factory::create(server.client(), type, &ns);
  }
};

TEST_F(WorkloadKinds, HaveTheirCollections) {
  Value val;
  for (const Kind& kind : kinds) {
    server.expect_all({{std::string("GET ") + kind.url, 200, "{}"}, {std::string("GET ") + kind.all_url, 200, "{}"}});
    const K8S_Workload_ptr workload = create(kind.type);
    ASSERT_TRUE(workload);
    EXPECT_TRUE(workload->list(val, {}));
    EXPECT_TRUE(workload->list_all(val, {}));
  }
}

TEST_F(WorkloadKinds, AreReadByTheirNames) {
  Value val;
  for (const Kind& kind : kinds) {
    server.expect({std::string("GET ") + kind.url + "/a", 200, "{}"});
    EXPECT_TRUE(create(kind.type)->get("a", val, true)) << kind.url;
  }
}

TEST_F(WorkloadKinds, HaveTheirVolumesInTheirPlaces) {
  // A volume that is no object shows where it was looked for.
  for (const Kind& kind : kinds) {
    const K8S_Workload_ptr workload = create(kind.type);
    for (const char* path : {"/spec/volumes", "/spec/template/spec/volumes", "/spec/jobTemplate/spec/volumes",
                             "/spec/jobTemplate/spec/template/spec/volumes"}) {
      Value object = json("[7]");
      for (std::string rest = path; !rest.empty(); rest.resize(rest.rfind('/')))
        object = Object{{rest.substr(rest.rfind('/') + 1), object}};
      log.clear();
      std::vector<std::string> names;
      EXPECT_EQ(workload->extract_pvcs(object, names, "ns"), std::string(path) != kind.vol_path) << kind.url << path;
    }
  }
}

TEST_F(WorkloadKinds, WithoutANamespaceAreListedAcrossAll) {
  server.expect({"GET /apis/apps/v1/namespaces//deployments", 200, "{}"});
  Value val;
  EXPECT_TRUE(K8S_Workload_Factory::create(server.client(), DEPLOYMENT_WORKLOAD, nullptr)->list(val, {}));
}

TEST_F(WorkloadKinds, CronJobKeepsTheGroupVersionOfItsMaking) {
  const K8S_Workload_ptr cron_job = create(CRONJOB_WORKLOAD);
  K8S_Cluster::instance()->get_resource_gv("cronjobs") = "batch/v1";
  server.expect({"GET /apis/batch/v1beta1/cronjobs", 200, "{}"});
  Value val;
  EXPECT_TRUE(cron_job->list_all(val, {}));
}

TEST_F(WorkloadKinds, AnUnknownKindGivesNone) {
  for (const int type : {8, 0, 99, -1}) {
    log.clear();
    EXPECT_FALSE(create(static_cast<K8S_Workload_Type>(type)));
    EXPECT_THAT(errors(), ElementsAre(string_sprintf("Unkown workload type '%d'.\n", type)));
  }
}

// K8S_Deployment::patch

struct Scale : Resource_Fixture {
  bool patch(int status) {
    server.expect({.request = "PATCH /apis/apps/v1/namespaces/ns/deployments/web/scale",
                   .status = status,
                   .body = R"({"spec":{"replicas":0}})",
                   .content_type = "application/merge-patch+json"});
    return K8S_Deployment(server.client(), "ns").patch("web", json(R"({"spec":{"replicas":0}})"));
  }
};

TEST_F(Scale, IsAMergePatchOfTheSubResource) {
  EXPECT_TRUE(patch(200));
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(Scale, IsWhatARealServerTook) {
  server.expect(recorded("scale", "scale to 0 with a merge patch"));
  EXPECT_TRUE(K8S_Deployment(server.client(), "scale-demo").patch("web", json(R"({"spec":{"replicas":0}})")));
}

TEST_F(Scale, TakesNoOtherStatusThan200) {
  for (const int status : {0, 201, 202, 400, 401, 403, 404, 409, 415, 422, 429, 500, 503}) {
    log.clear();
    EXPECT_FALSE(patch(status)) << status;
    EXPECT_THAT(errors(), ElementsAre(string_sprintf(
                              "Failed to patch type %s info\n%s\n type 0 status %d\n", typeid(K8S_Deployment).name(),
                              json_spirit::JSON_Dump(json(R"({"spec":{"replicas":0}})"), true).c_str(), status)));
  }
}

TEST_F(Scale, NeedsAClient) {
  EXPECT_FALSE(K8S_Deployment(nullptr, "ns").patch("web", json("{}")));
  EXPECT_THAT(emergencies(), ElementsAre("k8s/api/k8s_deployment.cpp, client_ is NULL:"));
}

// extract_pvcs

struct ExtractPvcs : Resource_Fixture {
  /// extract_pvcs() of a pod with these volumes.
  bool extract(const std::string& volumes) {
    return K8S_Pod(server.client(), "unused")
        .extract_pvcs(json(R"({"spec":{"volumes":)" + volumes + "}}"), names, "ns");
  }
  void expect_claim(const std::string& claim, const std::string& volume, const char* spec) {
    server.expect_all({{"GET /api/v1/namespaces/ns/persistentvolumeclaims/" + claim, 200,
                        R"({"spec":{"volumeName":")" + volume + "\"}}"},
                       {"GET /api/v1/persistentvolumes/" + volume, 200, std::string(R"({"spec":)") + spec + "}"}});
  }

  std::vector<std::string> names = {"before"};
};

const char csi[] = R"({"csi":{"driver":"d"}})";

TEST_F(ExtractPvcs, AppendsTheClaimsOnCsiVolumes) {
  expect_claim("c1", "v1", csi);
  expect_claim("c2", "v2", R"({"hostPath":{}})");
  expect_claim("c3", "v3", csi);
  EXPECT_TRUE(extract(R"([{"name":"a","persistentVolumeClaim":{"claimName":"c1"}},
                          {"name":"b","emptyDir":{}},
                          {"name":"c","persistentVolumeClaim":{"claimName":"c2"}},
                          {"name":"d","persistentVolumeClaim":{"claimName":"c3"}}])"));
  EXPECT_THAT(names, ElementsAre("before", "c1", "c3"));
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(ExtractPvcs, WithoutVolumesAppendsNothing) {
  for (const char* volumes : {"[]", "null", "{}", "7"}) EXPECT_TRUE(extract(volumes)) << volumes;
  EXPECT_TRUE(K8S_Pod(server.client(), "ns").extract_pvcs(Value(), names, "ns"));
  EXPECT_THAT(names, ElementsAre("before"));
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(ExtractPvcs, AVolumeThatIsNoObjectEndsTheWalk) {
  expect_claim("c1", "v1", csi);
  EXPECT_FALSE(extract(R"([{"name":"a","persistentVolumeClaim":{"claimName":"c1"}}, 7,
                           {"name":"b","persistentVolumeClaim":{"claimName":"c2"}}])"));
  EXPECT_THAT(names, ElementsAre("before", "c1"));
  EXPECT_THAT(errors(), ElementsAre("Persistent volume claim is not object type.\n"));
}

TEST_F(ExtractPvcs, AVolumeWithoutANameEndsTheWalk) {
  for (const char* volume : {"{}", R"({"name":""})", R"({"name":1})", R"({"emptyDir":{}})"}) {
    log.clear();
    EXPECT_FALSE(extract(std::string("[") + volume + "]")) << volume;
    EXPECT_THAT(emergencies(), ElementsAre("k8s/api/k8s_workload.cpp, name is NULL or empty:"));
  }
}

TEST_F(ExtractPvcs, AClaimWithoutANameEndsTheWalkQuietly) {
  for (const char* claim : {"{}", R"({"claimName":""})", R"({"claimName":1})", "null"})
    EXPECT_FALSE(extract(std::string(R"([{"name":"a","persistentVolumeClaim":)") + claim + "}]")) << claim;
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(ExtractPvcs, AClaimThatDoesNotExistEndsTheWalk) {
  server.expect({"GET /api/v1/namespaces/ns/persistentvolumeclaims/c1", 404, not_found});
  EXPECT_FALSE(extract(R"([{"name":"a","persistentVolumeClaim":{"claimName":"c1"}}])"));
  EXPECT_THAT(errors(), ElementsAre(get_failure<K8S_PVC>("c1", not_found, 404)));
}

TEST_F(ExtractPvcs, AClaimThatIsNotBoundEndsTheWalk) {
  server.expect({"GET /api/v1/namespaces/ns/persistentvolumeclaims/c1", 200, R"({"spec":{}})"});
  EXPECT_FALSE(extract(R"([{"name":"a","persistentVolumeClaim":{"claimName":"c1"}}])"));
  EXPECT_THAT(emergencies(), ElementsAre("k8s/api/k8s_workload.cpp, volume_name is NULL or empty:"));
}

TEST_F(ExtractPvcs, AVolumeThatCannotBeReadIsLeftOut) {
  server.expect_all({{"GET /api/v1/namespaces/ns/persistentvolumeclaims/c1", 200, R"({"spec":{"volumeName":"v1"}})"},
                     {"GET /api/v1/persistentvolumes/v1", 404, not_found}});
  EXPECT_TRUE(extract(R"([{"name":"a","persistentVolumeClaim":{"claimName":"c1"}}])"));
  EXPECT_THAT(names, ElementsAre("before"));
  EXPECT_THAT(errors(), ElementsAre(get_failure<K8S_PV>("v1", not_found, 404)));
}

// get_pods

struct GetPods : Resource_Fixture {
  bool get_pods(const char* workload) { return K8S_Deployment(server.client(), "ns").get_pods(json(workload), pods); }

  const char* web = R"({"metadata":{"name":"web"},"spec":{"selector":{"matchLabels":{"tier":"front","app":"web"}}}})";
  const std::string request = "GET /api/v1/namespaces/ns/pods?labelSelector=app%3Dweb,tier%3Dfront";
  Array pods = {"before"};
};

TEST_F(GetPods, ListsThemByTheLabelsOfTheWorkload) {
  server.expect({request, 200, R"({"items":[{"metadata":{"name":"a"}},{"kind":"X","apiVersion":"v9"},7]})"});
  EXPECT_TRUE(get_pods(web));
  EXPECT_EQ(Value(pods),
            json(R"([{"apiVersion":"v1","kind":"Pod","metadata":{"name":"a"}},{"apiVersion":"v1","kind":"Pod"},7])"));
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(GetPods, OfARecordedDeployment) {
  server.expect(recorded("deployments", "pods that the deployment made"));
  const Value web = json(recorded("deployments", "get after its controller has worked").reply);
  EXPECT_TRUE(K8S_Deployment(server.client(), "dep-demo").get_pods(web, pods));
  ASSERT_FALSE(pods.empty());
  for (const Value& pod : pods) {
    EXPECT_EQ(json_spirit::object_get_str_or_throw(pod.get_obj(), "kind"), "Pod");
    EXPECT_EQ(json_spirit::object_get_str_or_throw(pod.get_obj(), "apiVersion"), "v1");
  }
}

TEST_F(GetPods, NoneIsAQuietFailure) {
  server.expect({request, 200, R"({"items":[]})"});
  EXPECT_FALSE(get_pods(web));
  EXPECT_TRUE(pods.empty());
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(GetPods, AReplyWithoutItemsLeavesTheArray) {
  server.expect({request, 200, "{}"});
  EXPECT_TRUE(get_pods(web));
  EXPECT_EQ(Value(pods), json(R"(["before"])"));
}

TEST_F(GetPods, NeedsMatchLabels) {
  for (const char* workload :
       {"{}", "null", R"({"spec":{"selector":{"matchLabels":{}}}})", R"({"spec":{"selector":{"matchLabels":[]}}})",
        R"({"spec":{"selector":{"matchExpressions":[{"key":"a","operator":"Exists"}]}}})"}) {
    log.clear();
    EXPECT_FALSE(get_pods(workload)) << workload;
    EXPECT_THAT(emergencies(), ElementsAre("k8s/api/k8s_workload.cpp, labels is NULL or empty:"));
  }
}

TEST_F(GetPods, NeedsLabelsThatAreTexts) {
  EXPECT_FALSE(get_pods(R"({"spec":{"selector":{"matchLabels":{"a":"b","c":1}}}})"));
  EXPECT_THAT(emergencies(), ElementsAre("k8s/api/k8s_workload, i.second is not string!"));
}

TEST_F(GetPods, NeedsANamespaceInTheUrl) {
  const K8S_Workload_ptr workload = K8S_Workload_Factory::create(server.client(), DEPLOYMENT_WORKLOAD, nullptr);
  EXPECT_FALSE(workload->get_pods(json(web), pods));
  EXPECT_THAT(errors(), ElementsAre("Failed to get namespace from /apis/apps/v1/namespaces//deployments.\n"));
}

TEST_F(GetPods, TakesTheNamespaceFromTheUrlAsFarAsItIsAName) {
  server.expect({"GET /api/v1/namespaces/my-ns-1/pods?labelSelector=app%3Dweb,tier%3Dfront", 200, R"({"items":[{}]})"});
  EXPECT_TRUE(K8S_Deployment(server.client(), "my-ns-1").get_pods(json(web), pods));
}

TEST_F(GetPods, ThatCannotBeListedAreLoggedWithTheWorkload) {
  server.expect({request, 403, forbidden});
  EXPECT_FALSE(get_pods(web));
  EXPECT_THAT(errors(), ElementsAre(list_failure<K8S_Pod>(forbidden, 403), "Failed to list pods for workload web.\n"));
  EXPECT_EQ(Value(pods), json(R"(["before"])"));
}

TEST_F(GetPods, OfAWorkloadWithoutANameAreLoggedWithoutIt) {
  server.expect({"GET /api/v1/namespaces/ns/pods?labelSelector=a%3Db"});
  EXPECT_FALSE(get_pods(R"({"spec":{"selector":{"matchLabels":{"a":"b"}}}})"));
  EXPECT_THAT(errors(), ElementsAre(list_failure<K8S_Pod>("", 0), "Failed to list pods for workload (null).\n"));
}

// K8S_Pod

struct Pod : Resource_Fixture {
  bool is_running(int status, const char* reply) {
    server.expect({"GET /api/v1/namespaces/ns/pods/p", status, reply});
    return K8S_Pod(server.client(), "ns").is_running("p");
  }
};

TEST_F(Pod, IsItsOwnOnlyPod) {
  Array pods = {"before"};
  EXPECT_TRUE(K8S_Pod(nullptr, "ns").get_pods(json(R"({"kind":"X"})"), pods));
  EXPECT_EQ(Value(pods), json(R"(["before",{"kind":"X"}])"));
}

TEST_F(Pod, RunsInThePhaseRunning) {
  EXPECT_TRUE(is_running(200, R"({"status":{"phase":"Running"}})"));
  for (const char* phase : {"Succeeded", "Failed", "Pending", "running"})
    EXPECT_FALSE(is_running(200, string_sprintf(R"({"status":{"phase":"%s"}})", phase).c_str())) << phase;
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(Pod, WithoutAPhaseIsMalformed) {
  for (const char* pod : {"{}", R"({"status":{}})", R"({"status":{"phase":""}})", R"({"status":{"phase":1}})"}) {
    log.clear();
    EXPECT_FALSE(is_running(200, pod)) << pod;
    EXPECT_THAT(emergencies(), ElementsAre("k8s/api/k8s_pod.cpp, pod_status is NULL or empty:"));
  }
}

TEST_F(Pod, ThatCannotBeReadDoesNotRun) {
  EXPECT_FALSE(is_running(404, not_found));
  EXPECT_THAT(errors(), ElementsAre(get_failure<K8S_Pod>("p", not_found, 404)));
}

}  // namespace
