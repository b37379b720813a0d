#include <sys/stat.h>

#include <fstream>

#include "capability_fixture.h"
#include "k8s/api/k8s_pvc_data_helper.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using namespace test_support;

constexpr char path[] = "/opt/storage_class/config.json";
const std::string load_failure =
    "Failed to load /opt/storage_class/config.json, please create a configmap and mount it to the corresponding "
    "directory.\n";

struct Class_Config : Capability_Fixture {
  ~Class_Config() override {
    std::remove(path);
    Storage_Class_Config::close_instance();
  }
  void write(const std::string& text) { std::ofstream(path) << text; }
  bool load(const std::string& text) {
    write(text);
    return config.init(false, 0);
  }

  Storage_Class_Config& config = *Storage_Class_Config::instance();
};

// before init

TEST_F(Class_Config, BeforeInitEveryClassPassesAndNoneIsKnown) {
  EXPECT_TRUE(config.check_clone("any"));
  EXPECT_TRUE(config.check_snapshot("any"));
  EXPECT_EQ(config.sc_to_type("any"), SC_TYPE_UNKNOWN);
  EXPECT_FALSE(config.is_sc_validated());
  EXPECT_EQ(config.get_status(), START);
  EXPECT_EQ(config.get_status_name(), "start");
}

TEST_F(Class_Config, ASingletonThatIsClosedStartsAnew) {
  ASSERT_TRUE(load(R"({"csi":["gold"]})"));
  Storage_Class_Config_fini();
  EXPECT_EQ(Storage_Class_Config::instance()->sc_to_type("gold"), SC_TYPE_UNKNOWN);
  EXPECT_EQ(Storage_Class_Config::instance(), Storage_Class_Config::instance());
}

// the file

TEST_F(Class_Config, LoadsTheClassesOfEachType) {
  EXPECT_TRUE(load(R"({"csi":["gold","silver"],"local":["disk"],"nfs":["share"]})"));
  EXPECT_EQ(config.sc_to_type("gold"), SC_TYPE_CSI);
  EXPECT_EQ(config.sc_to_type("silver"), SC_TYPE_CSI);
  EXPECT_EQ(config.sc_to_type("disk"), SC_TYPE_LOCAL);
  EXPECT_EQ(config.sc_to_type("share"), SC_TYPE_NFS);
  EXPECT_EQ(config.sc_to_type("Gold"), SC_TYPE_UNKNOWN);
  EXPECT_EQ(config.sc_to_type(""), SC_TYPE_UNKNOWN);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(Class_Config, WithoutTheExperimentStaysPermissive) {
  EXPECT_TRUE(load(R"({"csi":["gold"]})"));
  EXPECT_EQ(config.sc_to_type("gold"), SC_TYPE_CSI);
  EXPECT_TRUE(config.check_clone("gold"));
  EXPECT_TRUE(config.check_clone("any"));
  EXPECT_TRUE(config.check_snapshot("any"));
  EXPECT_FALSE(config.is_sc_validated());
  EXPECT_EQ(config.get_status(), COMPLETED);
  EXPECT_EQ(config.get_status_name(), "completed");
  EXPECT_THAT(server.requests(), IsEmpty());
}

TEST_F(Class_Config, PassesOverAnArrayOfAnyOtherName) {
  EXPECT_TRUE(load(R"({"CSI":["a"],"other":["b",1],"":["c"],"csi ":["d"],"nfs":["share"]})"));
  EXPECT_EQ(config.sc_to_type("share"), SC_TYPE_NFS);
  for (const char* sc : {"a", "b", "c", "d"}) EXPECT_EQ(config.sc_to_type(sc), SC_TYPE_UNKNOWN) << sc;
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(Class_Config, RefusesAMemberOfAnyNameThatIsNoArray) {
  for (const char* text : {R"({"other":7})", R"({"csi":"gold"})", R"({"csi":null})", R"({"nfs":{}})"}) {
    log.clear();
    EXPECT_FALSE(load(text)) << text;
    EXPECT_THAT(log.texts(LM_EMERGENCY),
                ElementsAre(MatchesRegex(
                    "Unexpected error in k8s/api/k8s_pvc_data_helper:[0-9]+, type.second is not array!\n")));
    EXPECT_EQ(config.get_status(), ERROR);
    EXPECT_EQ(config.get_status_name(), "error");
  }
}

TEST_F(Class_Config, KeepsWhatStoodBeforeTheMemberThatIsNoArray) {
  ASSERT_TRUE(load(R"({"csi":["old"],"nfs":["old-share"]})"));
  EXPECT_FALSE(load(R"({"csi":["gold"],"local":7,"nfs":["share"]})"));
  EXPECT_EQ(config.sc_to_type("gold"), SC_TYPE_CSI);
  EXPECT_EQ(config.sc_to_type("share"), SC_TYPE_UNKNOWN);
  EXPECT_EQ(config.sc_to_type("old"), SC_TYPE_UNKNOWN);
  EXPECT_EQ(config.sc_to_type("old-share"), SC_TYPE_UNKNOWN);
}

TEST_F(Class_Config, KeepsTheStringsOfAnArrayAlone) {
  EXPECT_TRUE(load(R"({"csi":[1,"gold",null,["nested"],{"a":1},true,"silver"]})"));
  EXPECT_EQ(config.sc_to_type("gold"), SC_TYPE_CSI);
  EXPECT_EQ(config.sc_to_type("silver"), SC_TYPE_CSI);
  EXPECT_EQ(config.sc_to_type("nested"), SC_TYPE_UNKNOWN);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(Class_Config, RefusesTheFormOfTheConfigMapAfterItHasForgottenTheOldFile) {
  ASSERT_TRUE(load(R"({"csi":["gold"]})"));
  EXPECT_FALSE(load(R"({"csi":{"gold":{"clone":true,"snapshot":true}},"local":{},"nfs":{}})"));
  EXPECT_EQ(log.texts(LM_EMERGENCY).size(), 1u);
  EXPECT_EQ(config.sc_to_type("gold"), SC_TYPE_UNKNOWN);
}

TEST_F(Class_Config, AClassOfSeveralTypesIsCsiBeforeLocalBeforeNfs) {
  EXPECT_TRUE(load(R"({"csi":["a"],"local":["b"],"nfs":["a","b","c"]})"));
  EXPECT_EQ(config.sc_to_type("a"), SC_TYPE_CSI);
  EXPECT_EQ(config.sc_to_type("b"), SC_TYPE_LOCAL);
  EXPECT_EQ(config.sc_to_type("c"), SC_TYPE_NFS);
}

TEST_F(Class_Config, AFileThatCannotBeLoadedLeavesTheTableAsItWas) {
  ASSERT_TRUE(load(R"({"csi":["gold"]})"));
  for (const char* text : {"", "[]", "7", "{", R"("csi")", R"({"csi":["a"]} x)"}) {
    log.clear();
    EXPECT_FALSE(load(text)) << text;
    EXPECT_THAT(log.texts(LM_ERROR), ElementsAre(load_failure)) << text;
    EXPECT_EQ(config.sc_to_type("gold"), SC_TYPE_CSI);
    EXPECT_EQ(config.get_status(), ERROR);
  }
}

TEST_F(Class_Config, AFileThatIsNotThereIsToldWithItsPath) {
  EXPECT_FALSE(config.init(true, 0));
  EXPECT_THAT(log.texts(LM_ERROR), ElementsAre(load_failure));
  EXPECT_THAT(server.requests(), IsEmpty());
}

TEST_F(Class_Config, FollowsTheLinksThatAMountedConfigMapIsMadeOf) {
  std::ofstream("/opt/storage_class/..data") << R"({"csi":["gold"]})";
  ASSERT_EQ(symlink("..data", path), 0);
  EXPECT_TRUE(config.init(false, 0));
  EXPECT_EQ(config.sc_to_type("gold"), SC_TYPE_CSI);
}

// the experiment

TEST_F(Class_Config, AfterTheExperimentAnswersByItsVerdicts) {
  server.add_class("gold");
  server.add_class("disk");
  write(R"({"csi":["gold","absent"],"local":["disk"],"nfs":["share"]})");
  EXPECT_TRUE(config.init(true, 30));
  EXPECT_TRUE(config.is_sc_validated());
  EXPECT_EQ(config.get_status(), COMPLETED);
  EXPECT_TRUE(config.check_clone("gold"));
  EXPECT_TRUE(config.check_snapshot("gold"));
  for (const char* sc : {"absent", "disk", "share", "unlisted"}) {
    EXPECT_FALSE(config.check_clone(sc)) << sc;
    EXPECT_FALSE(config.check_snapshot(sc)) << sc;
  }
  EXPECT_TRUE(server.has(config_map));
  EXPECT_THAT(log.texts(LM_INFO), Contains("Successfully check storage classes capability.\n"));
}

TEST_F(Class_Config, CloneAndSnapshotAreTwoVerdicts) {
  server.add_class("gold", {.ready_sec = never});
  write(R"({"csi":["gold"]})");
  EXPECT_TRUE(config.init(true, 30));
  EXPECT_TRUE(config.check_clone("gold"));
  EXPECT_FALSE(config.check_snapshot("gold"));
}

TEST_F(Class_Config, SuccessIsToldBeforeTheCleanUp) {
  write(R"({"csi":[]})");
  EXPECT_TRUE(config.init(true, 30));
  const std::vector<std::string> infos = log.texts(LM_INFO);
  ASSERT_EQ(infos.size(), 3u);
  EXPECT_EQ(infos[0], "Successfully check storage classes capability.\n");
  EXPECT_THAT(infos[1], HasSubstr("Start to clean up"));
  EXPECT_THAT(infos[2], HasSubstr("Successfully clean up"));
}

TEST_F(Class_Config, StatusIsRunningDuringTheExperiment) {
  std::vector<Check_Status> seen;
  server.fault = [&](std::size_t, const std::string&) -> std::optional<Exchange_Fault> {
    seen.push_back(config.get_status());
    return std::nullopt;
  };
  write(R"({"csi":[]})");
  EXPECT_TRUE(config.init(true, 30));
  EXPECT_THAT(seen, testing::AllOf(testing::SizeIs(3), testing::Each(RUNNING)));
}

TEST_F(Class_Config, WithoutANamespaceThereIsNoExperimentAndTheTableStands) {
  for (const char* ns : {static_cast<const char*>(nullptr), ""}) {
    if (ns)
      setenv("CURRENT_NAMESPACE", ns, 1);
    else
      unsetenv("CURRENT_NAMESPACE");
    log.clear();
    write(R"({"csi":["gold"]})");
    EXPECT_FALSE(config.init(true, 30));
    EXPECT_THAT(log.texts(LM_ERROR), ElementsAre("Failed to retrieve current namespace."));
    EXPECT_EQ(config.get_status(), ERROR);
    EXPECT_EQ(config.sc_to_type("gold"), SC_TYPE_CSI);
    EXPECT_FALSE(config.is_sc_validated());
  }
  EXPECT_THAT(server.requests(), IsEmpty());
}

TEST_F(Class_Config, WithoutAClientThereIsNoExperiment) {
  server.no_memory = true;
  write(R"({"csi":["gold"]})");
  EXPECT_FALSE(config.init(true, 30));
  EXPECT_THAT(logged(LM_EMERGENCY),
              ElementsAre("Unexpected error in k8s/api/k8s_pvc_data_helper.cpp, client is NULL:"));
  EXPECT_EQ(config.get_status(), ERROR);
}

TEST_F(Class_Config, AnExperimentThatCannotBeginOrBePublishedFails) {
  server.add_class("gold");
  for (const std::string& request : {"GET " + classes, "POST " + config_maps}) {
    log.clear();
    server.fault = [&](std::size_t, const std::string& asked) -> std::optional<Exchange_Fault> {
      if (asked != request) return std::nullopt;
      return Exchange_Fault{403};
    };
    write(R"({"csi":["gold"]})");
    EXPECT_FALSE(config.init(true, 30)) << request;
    EXPECT_EQ(log.texts(LM_ERROR).back(), "Failed to update sc-capability-config.\n");
    EXPECT_EQ(config.get_status(), ERROR);
    EXPECT_FALSE(config.is_sc_validated());
    EXPECT_TRUE(config.check_clone("gold"));
  }
}

TEST_F(Class_Config, NothingTakesBackThatTheExperimentHasRun) {
  server.add_class("gold");
  write(R"({"csi":["gold"]})");
  ASSERT_TRUE(config.init(true, 30));
  // The reload forgets the verdicts, and the failed run brings no new ones.
  server.fault = [](std::size_t, const std::string&) { return Exchange_Fault{403}; };
  EXPECT_FALSE(config.init(true, 30));
  EXPECT_TRUE(config.is_sc_validated());
  EXPECT_EQ(config.get_status(), ERROR);
  EXPECT_FALSE(config.check_clone("gold"));
  EXPECT_TRUE(config.init(false, 30));
  EXPECT_TRUE(config.is_sc_validated());
  EXPECT_FALSE(config.check_clone("gold"));
}

}  // namespace
