#include "k8s/api/k8s_configmap.h"
#include "k8s/api/k8s_events.h"
#include "k8s/api/k8s_namespace.h"
#include "k8s/api/k8s_pv.h"
#include "resource_fixture.h"

namespace {

using json_spirit::Value;
using testing::ElementsAre;
using namespace test_support;

// namespaces

struct Namespace : Resource_Fixture {};

TEST_F(Namespace, DeleteIsAQuietNoOpThatSucceeds) {
  EXPECT_TRUE(K8S_Namespace(server.client()).delete_("default", true, 1));
  EXPECT_THAT(log.texts(LM_INFO), ElementsAre("K8S namespace delete method not implemented.\n"));
  EXPECT_EQ(log.lines().size(), 1u);
}

TEST_F(Namespace, ListReadsAllOfThem) {
  server.expect(recorded("namespaces", "list"));
  Value val;
  EXPECT_TRUE(K8S_Namespace(server.client()).list(val, {}));
}

TEST_F(Namespace, HasNoCollectionAcrossNamespaces) {
  Value val;
  EXPECT_FALSE(K8S_Namespace(server.client()).list_all(val, {}));
  EXPECT_THAT(emergencies(), ElementsAre("k8s/api/k8s_resource.cpp, all_url_ is empty:"));
}

// config maps

struct ConfigMap : Resource_Fixture {};

TEST_F(ConfigMap, CreateSendsTheDocumentAsTextAndNoLabel) {
  server.expect({"POST /api/v1/namespaces/ns/configmaps/", 201, "",
                 R"({"apiVersion":"v1","kind":"ConfigMap","metadata":{"name":"n","namespace":"ns"},
                     "data":{"config.json":"{\"a\":\"say \\\"b\\\"\",\"c\":[1]}"}})"});
  EXPECT_TRUE(K8S_Config_Map(server.client(), "ns").create("n", json(R"({"c":[1],"a":"say \"b\""})"), "v1"));
}

TEST_F(ConfigMap, CreateOfOneThatExistsFails) {
  server.expect({"POST /api/v1/namespaces/ns/configmaps/", 409});
  EXPECT_FALSE(K8S_Config_Map(server.client(), "ns").create("n", json("{}"), "v1"));
  EXPECT_THAT(errors(), ElementsAre(create_failure<K8S_Config_Map>(server.sent(), 409)));
}

TEST_F(ConfigMap, GetHasOneSlashBeforeTheName) {
  server.expect(recorded("configmaps", "get"));
  Value val;
  EXPECT_TRUE(K8S_Config_Map(server.client(), "cm-demo").get("settings", val, true));
}

TEST_F(ConfigMap, PatchSendsTheOneKeyWithTheCallersContentType) {
  for (const char* type : {"application/merge-patch+json", "application/strategic-merge-patch+json"}) {
    server.expect({.request = "PATCH /api/v1/namespaces/ns/configmaps/n",
                   .status = 200,
                   .body = R"({"data":{"config.json":"{\"a\":1}"}})",
                   .content_type = type});
    EXPECT_TRUE(K8S_Config_Map(server.client(), "ns").patch("n", json(R"({"a":1})"), type));
  }
}

TEST_F(ConfigMap, PatchDoesNotLookAtTheStatus) {
  server.expect({.request = "PATCH /api/v1/namespaces/ns/configmaps/n", .status = 404, .content_type = "x"});
  EXPECT_TRUE(K8S_Config_Map(server.client(), "ns").patch("n", json("{}"), "x"));
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(ConfigMap, PatchThatIsNotSentFailsQuietly) {
  server.expect({.request = "PATCH /api/v1/namespaces/ns/configmaps/n", .content_type = "x"});
  EXPECT_FALSE(K8S_Config_Map(server.client(), "ns").patch("n", json("{}"), "x"));
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(ConfigMap, NothingWorksWithoutAClient) {
  K8S_Config_Map maps(nullptr, "ns");
  EXPECT_FALSE(maps.patch("n", json("{}"), "x"));
  EXPECT_FALSE(maps.create("n", json("{}"), "v1"));
  EXPECT_THAT(emergencies(),
              ElementsAre("k8s/api/k8s_configmap.cpp, client_ is NULL:", "k8s/api/k8s_resource.cpp, client_ is NULL:"));
}

TEST_F(ConfigMap, DeleteWithAnEmptyNameDoesNotEmptyTheNamespace) {
  EXPECT_FALSE(K8S_Config_Map(server.client(), "ns").delete_("", true, 1));
  EXPECT_FALSE(K8S_Config_Map(server.client(), "ns").delete_("/", true, 1));
  EXPECT_EQ(emergencies().size(), 2u);
}

// events

struct Events : Resource_Fixture {
  void show(const Step& step) {
    server.expect(step);
    K8S_Events(server.client(), "ns").show("data", "PersistentVolumeClaim");
  }

  const std::string request =
      "GET /api/v1/namespaces/ns/events/"
      "?fieldSelector=involvedObject.name=data,involvedObject.kind=PersistentVolumeClaim";
};

TEST_F(Events, AreLoggedInTheServersOrder) {
  show({request, 200, R"({"items":[{"message":"one","type":"Normal"},{"message":"two"}]})"});
  EXPECT_THAT(errors(), ElementsAre("one\n", "two\n"));
}

TEST_F(Events, WithoutAMessageArePassedOver) {
  show({request, 200, R"({"items":[7,{"message":""},{},{"message":1},{"message":"one"}]})"});
  EXPECT_THAT(errors(), ElementsAre("one\n"));
  EXPECT_EQ(log.lines().size(), 1u);
}

TEST_F(Events, NoneLogNothing) {
  for (const char* reply : {R"({"items":[]})", "{}", R"({"items":{}})"}) show({request, 200, reply});
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(Events, ThatCannotBeReadAreLoggedByTheRead) {
  show({request, 403, forbidden});
  EXPECT_THAT(errors(), ElementsAre(get_failure<K8S_Events>(
                            "?fieldSelector=involvedObject.name=data,involvedObject.kind=PersistentVolumeClaim",
                            forbidden, 403)));
}

TEST_F(Events, OfARecordedClaim) {
  server.expect(recorded("events", "the same with a slash before the question mark"));
  K8S_Events(server.client(), "ev-demo").show("data", "PersistentVolumeClaim");
  EXPECT_FALSE(errors().empty());
  for (const std::string& text : errors()) EXPECT_NE(text, "\n");
}

// persistent volumes

struct Pv : Resource_Fixture {
  bool is_csi(const Step& step) {
    server.expect(step);
    return K8S_PV(server.client()).is_CSI("v");
  }
  bool get_driver(const Step& step) {
    server.expect(step);
    return K8S_PV(server.client()).get_driver("v", driver);
  }

  const std::string request = "GET /api/v1/persistentvolumes/v";
  std::string driver;
};

TEST_F(Pv, DeleteIsAQuietNoOpThatSucceeds) {
  EXPECT_TRUE(K8S_PV(server.client()).delete_("v", true, 1));
  EXPECT_THAT(log.texts(LM_INFO), ElementsAre("K8S persistent volume delete method not implemented.\n"));
  EXPECT_EQ(log.lines().size(), 1u);
}

TEST_F(Pv, IsCsiWithACsiObjectThatIsNotEmpty) {
  EXPECT_TRUE(is_csi({request, 200, R"({"spec":{"csi":{"driver":"d"}}})"}));
  for (const char* spec : {R"({"csi":{}})", R"({"csi":"d"})", R"({"hostPath":{}})", "{}"})
    EXPECT_FALSE(is_csi({request, 200, std::string(R"({"spec":)") + spec + "}"})) << spec;
  EXPECT_FALSE(is_csi({request, 200, "{}"}));
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(Pv, ThatCannotBeReadIsNoCsiVolume) {
  EXPECT_FALSE(is_csi({request, 404, not_found}));
  EXPECT_THAT(errors(), ElementsAre(get_failure<K8S_PV>("v", not_found, 404)));
}

TEST_F(Pv, HasTheDriverOfItsCsiObject) {
  EXPECT_TRUE(get_driver({request, 200, R"({"spec":{"csi":{"driver":"d"}}})"}));
  EXPECT_EQ(driver, "d");
}

TEST_F(Pv, WithoutADriverHasNone) {
  for (const char* csi : {R"({"driver":""})", R"({"driver":1})", "{}", "null"})
    EXPECT_FALSE(get_driver({request, 200, std::string(R"({"spec":{"csi":)") + csi + "}}"})) << csi;
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(Pv, ThatCannotBeReadHasNoDriver) {
  driver = "kept";
  EXPECT_FALSE(get_driver({request}));
  EXPECT_EQ(driver, "kept");
  EXPECT_THAT(errors(), ElementsAre(get_failure<K8S_PV>("v", "", 0)));
}

TEST_F(Pv, OfARecordedCsiDriver) {
  const std::string name = "pvc-6986dc11-dd27-4566-bd20-2e17b8262332";
  server.expect_all(
      {recorded("csi-provision-clone-snapshot", "its volume"), recorded("csi-provision-clone-snapshot", "its volume")});
  K8S_PV volumes(server.client());
  EXPECT_TRUE(volumes.is_CSI(name));
  EXPECT_TRUE(volumes.get_driver(name, driver));
  EXPECT_EQ(driver, "hostpath.csi.k8s.io");
}

}  // namespace
