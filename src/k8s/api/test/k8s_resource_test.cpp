#include "k8s/api/k8s_resource.h"

#include "resource_fixture.h"

namespace {

using json_spirit::Object;
using json_spirit::Value;
using testing::ElementsAre;
using namespace test_support;

/// A kind of its own, so that the log shows its run-time name.
class Widget : public K8S_Resource {
 public:
  explicit Widget(K8S_Client_var client) : K8S_Resource(std::move(client), "/api/v1/widgets", "/api/v1/all/widgets") {}
};

struct Resource : Resource_Fixture {
  Widget widgets() { return Widget(server.client()); }
  Value val;
};

// get

TEST_F(Resource, GetReadsTheObjectBelowTheCollection) {
  server.expect({"GET /api/v1/widgets/a", 200, R"({"kind":"Widget"})"});
  EXPECT_TRUE(widgets().get("a", val, true));
  EXPECT_EQ(val, json(R"({"kind":"Widget"})"));
  EXPECT_TRUE(nothing_logged());
}

TEST_F(Resource, GetOfAMissingObjectLogsNothingWhenToldSo) {
  server.expect({"GET /api/v1/widgets/a", 404, not_found});
  EXPECT_FALSE(widgets().get("a", val, false));
  EXPECT_EQ(val, json(not_found));
  EXPECT_TRUE(nothing_logged());
}

TEST_F(Resource, GetLogsTheDocumentItsTypeAndTheStatus) {
  server.expect({"GET /api/v1/widgets/a", 404, not_found});
  EXPECT_FALSE(widgets().get("a", val, true));
  EXPECT_THAT(errors(), ElementsAre(get_failure<Widget>("a", not_found, 404)));
}

TEST_F(Resource, StatusIsToldBehindADocumentLongerThanALine) {
  const std::string reply = R"({"message":")" + std::string(10'000, 'x') + "\"}";
  server.expect({"GET /api/v1/widgets/a", 403, reply});
  server.expect({"GET /api/v1/widgets", 403, reply});
  server.expect({"POST /api/v1/widgets", 403});
  EXPECT_FALSE(widgets().get("a", val, true));
  EXPECT_FALSE(widgets().list(val, {}));
  EXPECT_FALSE(widgets().post(json(reply)));
  EXPECT_THAT(errors(), ::testing::SizeIs(3));
  EXPECT_THAT(errors(), ::testing::Each(::testing::EndsWith("xxx...\n type 0 status 403\n")));
}

TEST_F(Resource, GetTakesNoOtherStatusThan200) {
  for (const int status : {201, 202, 206, 301, 400, 401, 403, 409, 410, 429, 500, 503}) {
    server.expect({"GET /api/v1/widgets/a", status, "{}"});
    log.clear();
    EXPECT_FALSE(widgets().get("a", val, true)) << status;
    EXPECT_THAT(errors(), ElementsAre(get_failure<Widget>("a", "{}", status)));
  }
}

TEST_F(Resource, GetOfADocumentThatIsNoObjectFails) {
  server.expect({"GET /api/v1/widgets/a", 200, "[1]"});
  EXPECT_FALSE(widgets().get("a", val, true));
  EXPECT_THAT(errors(), ElementsAre(get_failure<Widget>("a", "[1]", 200)));
}

TEST_F(Resource, GetWithoutAnExchangeFailsWithStatus0) {
  server.expect({"GET /api/v1/widgets/a"});
  EXPECT_FALSE(widgets().get("a", val, true));
  EXPECT_THAT(errors(), ElementsAre(get_failure<Widget>("a", "", 0)));
}

TEST_F(Resource, NamesAreJoinedWithOneSlash) {
  server.expect_all({{"GET /x/a", 200, "{}"}, {"GET /x/a", 200, "{}"}, {"GET /x/a", 200, "{}"}});
  EXPECT_TRUE(K8S_General_Resource(server.client(), "/x/").get("a", val, true));
  EXPECT_TRUE(K8S_General_Resource(server.client(), "/x").get("/a", val, true));
  EXPECT_TRUE(K8S_General_Resource(server.client(), "/x/").get("/a", val, true));
}

// list

TEST_F(Resource, ListReadsTheCollection) {
  server.expect({"GET /api/v1/widgets", 200, R"({"items":[]})"});
  EXPECT_TRUE(widgets().list(val, {}));
  EXPECT_EQ(val, json(R"({"items":[]})"));
}

TEST_F(Resource, ListSendsTheSelectors) {
  server.expect({"GET /api/v1/widgets?labelSelector=a%3D1,b%3D2&fieldSelector=c%3D3", 200, "{}"});
  EXPECT_TRUE(widgets().list(val, {{"labelSelector", {{"b", "2"}, {"a", "1"}}}, {"fieldSelector", {{"c", "3"}}}}));
}

TEST_F(Resource, ListTakesNoOtherStatusThan200) {
  for (const int status : {201, 401, 403, 404, 410, 429, 500, 503}) {
    server.expect({"GET /api/v1/widgets", status, forbidden});
    log.clear();
    EXPECT_FALSE(widgets().list(val, {})) << status;
    EXPECT_THAT(errors(), ElementsAre(list_failure<Widget>(forbidden, status)));
    EXPECT_EQ(val, json(forbidden));
  }
}

TEST_F(Resource, ListWithoutAnExchangeFailsWithStatus0) {
  server.expect({"GET /api/v1/widgets"});
  EXPECT_FALSE(widgets().list(val, {}));
  EXPECT_THAT(errors(), ElementsAre(list_failure<Widget>("", 0)));
}

// list_all

TEST_F(Resource, ListAllReadsAcrossNamespaces) {
  server.expect({"GET /api/v1/all/widgets?labelSelector=a%3D1", 200, "{}"});
  EXPECT_TRUE(widgets().list_all(val, {{"labelSelector", {{"a", "1"}}}}));
}

TEST_F(Resource, ListAllLogsAsListDoes) {
  server.expect({"GET /api/v1/all/widgets", 403, forbidden});
  EXPECT_FALSE(widgets().list_all(val, {}));
  EXPECT_THAT(errors(), ElementsAre(list_failure<Widget>(forbidden, 403)));
}

TEST_F(Resource, ListAllOfAKindWithoutSuchACollectionSendsNothing) {
  EXPECT_FALSE(K8S_General_Resource(server.client(), "/x").list_all(val, {}));
  EXPECT_THAT(emergencies(), ElementsAre("k8s/api/k8s_resource.cpp, all_url_ is empty:"));
}

// post

TEST_F(Resource, PostSendsTheDocumentToTheCollection) {
  server.expect({"POST /api/v1/widgets", 201, "", R"({"metadata":{"name":"a"}})"});
  EXPECT_TRUE(widgets().post(json(R"({"metadata":{"name":"a"}})")));
  EXPECT_TRUE(nothing_logged());
}

TEST_F(Resource, PostTakesNoOtherStatusThan201) {
  const Value sent = json(R"({"a":1})");
  for (const int status : {0, 200, 202, 400, 401, 403, 404, 409, 422, 429, 500, 503}) {
    server.expect({"POST /api/v1/widgets", status});
    log.clear();
    EXPECT_FALSE(widgets().post(sent)) << status;
    EXPECT_THAT(errors(), ElementsAre(create_failure<Widget>(sent, status)));
  }
}

// delete_

TEST_F(Resource, DeleteOfAMissingObjectSendsNoDelete) {
  server.expect({"GET /api/v1/widgets/a", 404, not_found});
  EXPECT_TRUE(widgets().delete_("a", true, 1));
  EXPECT_TRUE(nothing_logged());
}

TEST_F(Resource, DeleteTakesABrokenProbeForAMissingObject) {
  server.expect({"GET /api/v1/widgets/a"});
  EXPECT_TRUE(widgets().delete_("a", true, 1));
}

TEST_F(Resource, DeleteOfAnObjectThatGoesAtOnceDoesNotSleep) {
  server.expect_all({{"GET /api/v1/widgets/a", 200, "{}"},
                     {"DELETE /api/v1/widgets/a", 200},
                     {"GET /api/v1/widgets/a", 404, not_found}});
  EXPECT_TRUE(widgets().delete_("a", true, 100));
  EXPECT_EQ(sleeps(), 0u);
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(Resource, DeleteWaitsUntilTheObjectIsGone) {
  server.expect_all({{"GET /api/v1/widgets/a", 200, "{}"},
                     {"DELETE /api/v1/widgets/a", 200},
                     {"GET /api/v1/widgets/a", 200, "{}"},
                     {"GET /api/v1/widgets/a", 200, "{}"},
                     {"GET /api/v1/widgets/a", 404, not_found}});
  EXPECT_TRUE(widgets().delete_("a", true, 100));
  EXPECT_EQ(sleeps(), 2u);
  EXPECT_THAT(log.texts(LM_INFO),
              ElementsAre(testing::MatchesRegex("Retry\\(1\\) .*k8s/api/k8s_resource.cpp:[0-9]+ at 1 "
                                                "second\\(s\\) later.\n"),
                          testing::StartsWith("Retry(2) ")));
}

TEST_F(Resource, DeleteOfAnObjectThatStaysLooksOnceMorePerRetry) {
  server.expect_all({{"GET /api/v1/widgets/a", 200, "{}"},
                     {"DELETE /api/v1/widgets/a", 200},
                     {"GET /api/v1/widgets/a", 200, "{}"},
                     {"GET /api/v1/widgets/a", 200, "{}"}});
  EXPECT_FALSE(widgets().delete_("a", true, 1));
  EXPECT_EQ(sleeps(), 1u);
  EXPECT_THAT(errors(), ElementsAre(string_sprintf("Type %s name a exists after delete\n", typeid(Widget).name())));
}

TEST_F(Resource, DeleteOfAnObjectThatStaysLogsNothingWhenToldSo) {
  server.expect_all(
      {{"GET /api/v1/widgets/a", 200, "{}"}, {"DELETE /api/v1/widgets/a", 200}, {"GET /api/v1/widgets/a", 200, "{}"}});
  EXPECT_FALSE(widgets().delete_("a", false, 0));
  EXPECT_EQ(sleeps(), 0u);
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(Resource, DeleteGivesUpAfterAboutTenMinutes) {
  server.expect_all({{"GET /api/v1/widgets/a", 200, "{}"},
                     {"DELETE /api/v1/widgets/a", 200},
                     {.request = "GET /api/v1/widgets/a", .status = 200, .reply = "{}", .again = true}});
  EXPECT_FALSE(widgets().delete_("a", true, -1));
  EXPECT_GE(slept_sec(), 600);
  EXPECT_LT(slept_sec(), 660);
}

TEST_F(Resource, DeleteIgnoresTheStatusOfTheDeleteItself) {
  for (const int status : {202, 401, 403, 409, 422, 429, 500, 503}) {
    server.expect_all({{"GET /api/v1/widgets/a", 200, "{}"},
                       {"DELETE /api/v1/widgets/a", status},
                       {"GET /api/v1/widgets/a", 404, not_found}});
    EXPECT_TRUE(widgets().delete_("a", true, 0)) << status;
  }
  EXPECT_TRUE(nothing_logged());
}

TEST_F(Resource, DeleteIsJudgedByTheProbeAndLoggedWithItsOwnStatus) {
  for (const int probe : {201, 401, 403, 429, 500, 503}) {
    server.expect_all({{"GET /api/v1/widgets/a", probe, forbidden}, {"DELETE /api/v1/widgets/a", 410}});
    log.clear();
    EXPECT_FALSE(widgets().delete_("a", true, 1)) << probe;
    EXPECT_THAT(errors(),
                ElementsAre(string_sprintf("Failed to delete type %s name a status 410\n", typeid(Widget).name())));
  }
}

TEST_F(Resource, DeleteThatIsNotSentIsLoggedAlsoWithoutLogging) {
  server.expect_all({{"GET /api/v1/widgets/a", 200, "{}"}, {"DELETE /api/v1/widgets/a"}});
  EXPECT_FALSE(widgets().delete_("a", false, 1));
  EXPECT_THAT(errors(),
              ElementsAre(string_sprintf("Failed to delete type %s name a status 0\n", typeid(Widget).name())));
}

TEST_F(Resource, DeleteEndsQuietlyWhenTheWaitCannotRead) {
  const std::pair<int, const char*> replies[] = {{0, ""}, {404, ""}, {200, "[]"}};
  for (const auto& [status, reply] : replies) {
    server.expect_all({{"GET /api/v1/widgets/a", 200, "{}"},
                       {"DELETE /api/v1/widgets/a", 200},
                       {"GET /api/v1/widgets/a", status, reply}});
    EXPECT_FALSE(widgets().delete_("a", true, 100)) << status;
  }
  EXPECT_EQ(sleeps(), 0u);
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(Resource, DeleteGoesOnWaitingOverARefusedRead) {
  server.expect_all({{"GET /api/v1/widgets/a", 200, "{}"},
                     {"DELETE /api/v1/widgets/a", 200},
                     {"GET /api/v1/widgets/a", 503, forbidden},
                     {"GET /api/v1/widgets/a", 404, not_found}});
  EXPECT_TRUE(widgets().delete_("a", true, 100));
  EXPECT_EQ(sleeps(), 1u);
}

TEST_F(Resource, DeleteWithAnEmptyNameSendsNothing) {
  EXPECT_FALSE(widgets().delete_("", true, 1));
  EXPECT_THAT(emergencies(), ElementsAre("k8s/api/k8s_resource.cpp, name is NULL or empty:"));
}

TEST_F(Resource, DeleteOfWhatWouldBeTheWholeCollectionSendsNothing) {
  for (const char* name : {"/", "///", "?", "?labelSelector=a", "/?a", "#", "#a", ".", "..", "a/..", "../", "/./"}) {
    log.clear();
    EXPECT_FALSE(widgets().delete_(name, true, 1)) << name;
    EXPECT_THAT(emergencies(), ElementsAre("k8s/api/k8s_resource.cpp, name is not the name of an object!")) << name;
  }
}

TEST_F(Resource, DeleteOfARecordedClaimWaitsForItsFinalizer) {
  server.expect_all({recorded("pvc-protection", "get the claim while it is terminating"),
                     recorded("pvc-protection", "delete the claim again"),
                     recorded("pvc-protection", "get the claim while it is terminating, three seconds later"),
                     recorded("pvc-protection", "get the claim after the pod is gone")});
  K8S_General_Resource claims(server.client(), "/api/v1/namespaces/prot-demo/persistentvolumeclaims");
  EXPECT_TRUE(claims.delete_("data", true, 100));
  EXPECT_EQ(sleeps(), 1u);
}

// the client

TEST_F(Resource, EveryOperationFailsWithoutAClient) {
  Widget widgets(nullptr);
  EXPECT_FALSE(widgets.get("a", val, true));
  EXPECT_FALSE(widgets.list(val, {}));
  EXPECT_FALSE(widgets.list_all(val, {}));
  EXPECT_FALSE(widgets.post(val));
  EXPECT_FALSE(widgets.delete_("a", true, 1));
  EXPECT_EQ(emergencies(), std::vector<std::string>(5, "k8s/api/k8s_resource.cpp, client_ is NULL:"));
  EXPECT_TRUE(errors().empty());
}

TEST_F(Resource, GeneralResourceShowsItsOwnNameInTheLog) {
  server.expect({"GET /x/a", 500, "{}"});
  EXPECT_FALSE(K8S_General_Resource(server.client(), "/x").get("a", val, true));
  EXPECT_THAT(errors(), ElementsAre(get_failure<K8S_General_Resource>("a", "{}", 500)));
}

}  // namespace
