#include <regex>

#include "capability_fixture.h"
#include "k8s/api/k8s_events.h"
#include "k8s/api/k8s_storage_class.h"
#include "k8s/api/k8s_volume_snapshot.h"

namespace {

using json_spirit::Object;
using json_spirit::Value;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using namespace test_support;
typedef Storage_Class_Capability_Validation_Unit Unit;

struct Validation_Unit : Capability_Fixture {
  bool clean(Unit& unit) { return unit.clean(pvc_client, snap_client, sc_client); }
  /// A unit for a class that is in the cluster, without the requests that it made for itself.
  Unit unit_of(const std::string& sc, const Class_Behaviour& behaviour = {}) {
    server.add_class(sc, behaviour);
    Unit unit(sc, true);
    server.clear_requests();
    return unit;
  }
  std::string config_entry(const Unit& unit, Storage_Class_Type type) {
    Object config;
    unit.generate_config_entry(config, type);
    return json_spirit::JSON_Dump(config, false).str();
  }
  Capability_Flag verdict(const Unit& unit) {
    Storage_Class_Map scs;
    unit.set_scs_capabilities(scs);
    return scs.at(unit.sc_name_);
  }

  K8S_PVC pvc_client{client, "backup"};
  K8S_Volume_Snapshot snap_client{client, "backup"};
  K8S_Storage_Class sc_client{client};
};

// flags

TEST(Capability_Flags, OrKeepsTheLow16Bits) {
  Capability_Flag flags = CAPABILITY_CLONE;
  flags |= CAPABILITY_SNAP;
  EXPECT_EQ(flags, CAPABILITY_ALL);
  flags |= static_cast<Capability_Flag>(0x7FFF0004);
  EXPECT_EQ(static_cast<int>(flags), 7);
}

TEST(Capability_Flags, AndLooksAtTheLow16Bits) {
  static_assert(std::is_same_v<decltype(CAPABILITY_ALL & CAPABILITY_SNAP), bool>);
  EXPECT_TRUE(CAPABILITY_ALL & CAPABILITY_SNAP);
  EXPECT_FALSE(CAPABILITY_CLONE & CAPABILITY_SNAP);
  EXPECT_FALSE(CAPABILITY_ALL & CAPABILITY_NONE);
  EXPECT_FALSE(static_cast<Capability_Flag>(0x10000) & static_cast<Capability_Flag>(0x10000));
}

// construction

TEST_F(Validation_Unit, OfAClassThatIsNotInTheClusterAsksNothing) {
  const Unit unit("gold", false);
  EXPECT_THAT(server.requests(), IsEmpty());
  EXPECT_EQ(unit.sc_name_, "gold");
  EXPECT_FALSE(unit.sc_exist_on_system_);
  EXPECT_FALSE(unit.need_immediate_mode_temp_sc_);
  EXPECT_EQ(verdict(unit), CAPABILITY_NONE);
}

TEST_F(Validation_Unit, ReadsTheModeOfAClassThatIsInTheCluster) {
  server.add_class("gold");
  server.add_class("lazy", {.mode = "WaitForFirstConsumer"});
  EXPECT_FALSE(Unit("gold", true).need_immediate_mode_temp_sc_);
  EXPECT_TRUE(Unit("lazy", true).need_immediate_mode_temp_sc_);
  EXPECT_THAT(server.requests(), ElementsAre("GET " + classes + "/gold", "GET " + classes + "/lazy"));
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(Validation_Unit, TakesAClassThatCannotBeReadForOneThatBindsAtOnce) {
  EXPECT_FALSE(Unit("gold", true).need_immediate_mode_temp_sc_);
  EXPECT_THAT(logged(LM_ERROR), ElementsAre(HasSubstr("name gold info")));
}

TEST_F(Validation_Unit, LogsAClassWithoutAMode) {
  server.add_class("none", {.mode = nullptr});
  server.add_class("empty", {.mode = ""});
  EXPECT_FALSE(Unit("none", true).need_immediate_mode_temp_sc_);
  EXPECT_FALSE(Unit("empty", true).need_immediate_mode_temp_sc_);
  const std::string line =
      "Unexpected error in k8s/api/k8s_storage_class_capability_config.cpp, mode is NULL or empty:";
  EXPECT_THAT(logged(LM_EMERGENCY), ElementsAre(line, line));
}

TEST_F(Validation_Unit, LogsThatThereIsNoClient) {
  server.no_memory = true;
  EXPECT_FALSE(Unit("gold", true).need_immediate_mode_temp_sc_);
  EXPECT_THAT(logged(LM_EMERGENCY),
              ElementsAre("Unexpected error in k8s/api/k8s_storage_class_capability_config.cpp, client is NULL:"));
  EXPECT_THAT(server.requests(), IsEmpty());
}

// the claim

TEST_F(Validation_Unit, ClaimOfAClassThatBindsAtOnceNamesTheClass) {
  Unit unit = unit_of("gold");
  EXPECT_TRUE(unit.create_temp_pvc(pvc_client, client));
  EXPECT_TRUE(std::regex_match(unit.pvc_.name_, std::regex("[a-z]{8}"))) << unit.pvc_.name_;
  EXPECT_THAT(server.requests(), ElementsAre("POST " + claims));
  EXPECT_EQ(server.legible(json_spirit::JSON_Dump(server.sent(), false).str()),
            R"({"apiVersion":"v1","kind":"PersistentVolumeClaim","metadata":{"labels":{"component":"tessarin-agent"},)"
            R"("name":"claim-of-gold","namespace":"backup"},"spec":{"accessModes":["ReadWriteOnce"],)"
            R"("resources":{"requests":{"storage":"1Gi"}},"storageClassName":"gold","volumeMode":"Filesystem"}})");
  EXPECT_EQ(unit.temp_sc_.name_, "");
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(Validation_Unit, ClaimOfAClassThatWaitsForAConsumerNamesItsCopy) {
  Unit unit = unit_of("lazy", {.mode = "WaitForFirstConsumer"});
  EXPECT_TRUE(unit.create_temp_pvc(pvc_client, client));
  EXPECT_THAT(server.requests(), ElementsAre("GET " + classes + "/lazy", "POST " + classes, "POST " + claims));
  EXPECT_TRUE(std::regex_match(unit.temp_sc_.name_, std::regex("[a-z]{8}"))) << unit.temp_sc_.name_;
  EXPECT_NE(unit.temp_sc_.name_, unit.pvc_.name_);
  EXPECT_EQ(server.at(classes + "/" + unit.temp_sc_.name_).get_obj().at("volumeBindingMode"), "Immediate");
  EXPECT_EQ(server.sent().get_obj().at("spec").get_obj().at("storageClassName"), unit.temp_sc_.name_);
}

TEST_F(Validation_Unit, WithoutACopyOfTheClassThereIsNoClaim) {
  Unit unit = unit_of("lazy", {.mode = "WaitForFirstConsumer"});
  server.fault = [](std::size_t, const std::string& request) -> std::optional<Exchange_Fault> {
    if (request != "POST " + classes) return std::nullopt;
    return Exchange_Fault{403};
  };
  EXPECT_FALSE(unit.create_temp_pvc(pvc_client, client));
  EXPECT_EQ(unit.pvc_.name_, "");
  EXPECT_THAT(server.requests(), ElementsAre("GET " + classes + "/lazy", "POST " + classes));
  EXPECT_EQ(verdict(unit), CAPABILITY_NONE);

  server.clear_requests();
  EXPECT_TRUE(clean(unit));
  EXPECT_THAT(server.requests(), ElementsAre("GET " + classes + "/copy-of-lazy"));
}

TEST_F(Validation_Unit, AClassThatCannotBeReadForItsCopyLeavesNothingToClean) {
  Unit unit = unit_of("lazy", {.mode = "WaitForFirstConsumer"});
  server.fault = [](std::size_t, const std::string&) { return Exchange_Fault{500}; };
  EXPECT_FALSE(unit.create_temp_pvc(pvc_client, client));
  EXPECT_EQ(unit.temp_sc_.name_, "");
  server.clear_requests();
  EXPECT_TRUE(clean(unit));
  EXPECT_THAT(server.requests(), IsEmpty());
}

TEST_F(Validation_Unit, AClaimThatIsRefusedKeepsItsName) {
  Unit unit = unit_of("gold", {.claim_refused = true});
  EXPECT_FALSE(unit.create_temp_pvc(pvc_client, client));
  EXPECT_THAT(unit.pvc_.name_, SizeIs(8));
  EXPECT_THAT(logged(LM_ERROR),
              ElementsAre(HasSubstr("Failed to create type "), "Failed to create pvc claim-of-gold.\n"));

  server.clear_requests();
  EXPECT_TRUE(clean(unit));
  EXPECT_THAT(server.requests(), ElementsAre("GET " + claims + "/claim-of-gold"));
}

// clone and snapshot

TEST_F(Validation_Unit, CloneIsNamedAfterTheClaim) {
  Unit unit = unit_of("gold");
  ASSERT_TRUE(unit.create_temp_pvc(pvc_client, client));
  unit.clone_temp_pvc(pvc_client);
  EXPECT_EQ(unit.pvc_clone_.name_, unit.pvc_.name_ + "-clone");
  EXPECT_TRUE(server.has(claims + "/" + unit.pvc_clone_.name_));
}

TEST_F(Validation_Unit, ACloneThatIsRefusedKeepsItsName) {
  Unit unit = unit_of("gold", {.clone_refused = true});
  ASSERT_TRUE(unit.create_temp_pvc(pvc_client, client));
  unit.clone_temp_pvc(pvc_client);
  EXPECT_EQ(unit.pvc_clone_.name_, unit.pvc_.name_ + "-clone");
  EXPECT_EQ(logged(LM_ERROR).back(), "Failed to create PVC clone 'claim-of-gold-clone' of PVC 'claim-of-gold'\n");
}

TEST_F(Validation_Unit, SnapshotIsNamedAfterTheClaim) {
  Unit unit = unit_of("gold");
  ASSERT_TRUE(unit.create_temp_pvc(pvc_client, client));
  unit.create_snapshot_for_temp_pvc(snap_client, pvc_client);
  EXPECT_EQ(unit.pvc_snap_.name_, unit.pvc_.name_ + "-snap");
  EXPECT_TRUE(server.has(snapshots + "/" + unit.pvc_snap_.name_));
}

TEST_F(Validation_Unit, ASnapshotThatCannotBeMadeKeepsItsNameAndIsNotReady) {
  Unit unit = unit_of("gold", {.bound_sec = never});
  ASSERT_TRUE(unit.create_temp_pvc(pvc_client, client));
  unit.create_snapshot_for_temp_pvc(snap_client, pvc_client);
  EXPECT_EQ(unit.pvc_snap_.name_, unit.pvc_.name_ + "-snap");
  EXPECT_FALSE(unit.are_snapshots_ready_to_use(snap_client));
}

// polling

TEST_F(Validation_Unit, PollingLooksTwiceAtAClaimAndNotYetAtItsClone) {
  Unit unit = unit_of("gold", {.bound_sec = 5});
  ASSERT_TRUE(unit.create_temp_pvc(pvc_client, client));
  unit.clone_temp_pvc(pvc_client);
  server.clear_requests();
  EXPECT_FALSE(unit.are_pvcs_and_clone_bound(pvc_client));
  EXPECT_THAT(server.requests(), ElementsAre("GET " + claims + "/claim-of-gold", "GET " + claims + "/claim-of-gold"));
  EXPECT_EQ(clock.sleeps().size(), 1u);
  EXPECT_FALSE(unit.pvc_.bound_);
  EXPECT_THAT(logged(LM_ERROR), IsEmpty());
}

TEST_F(Validation_Unit, ABoundClaimIsNotAskedAboutAgain) {
  Unit unit = unit_of("gold", {.clone_bound_sec = 100});
  ASSERT_TRUE(unit.create_temp_pvc(pvc_client, client));
  unit.clone_temp_pvc(pvc_client);
  server.clear_requests();
  const std::string look = "GET " + claims + "/claim-of-gold", clone_look = look + "-clone";
  EXPECT_FALSE(unit.are_pvcs_and_clone_bound(pvc_client));
  EXPECT_THAT(server.requests(), ElementsAre(look, clone_look, clone_look));
  EXPECT_TRUE(unit.pvc_.bound_);
  clock.advance(std::chrono::seconds(100));
  server.clear_requests();
  EXPECT_TRUE(unit.are_pvcs_and_clone_bound(pvc_client));
  EXPECT_THAT(server.requests(), ElementsAre(clone_look));
  server.clear_requests();
  EXPECT_TRUE(unit.are_pvcs_and_clone_bound(pvc_client));
  EXPECT_THAT(server.requests(), IsEmpty());
}

TEST_F(Validation_Unit, AReadySnapshotIsNotAskedAboutAgain) {
  Unit unit = unit_of("gold", {.ready_sec = 100});
  ASSERT_TRUE(unit.create_temp_pvc(pvc_client, client));
  unit.create_snapshot_for_temp_pvc(snap_client, pvc_client);
  server.clear_requests();
  const std::string look = "GET " + snapshots + "/claim-of-gold-snap";
  EXPECT_FALSE(unit.are_snapshots_ready_to_use(snap_client));
  EXPECT_THAT(server.requests(), ElementsAre(look, look));
  EXPECT_THAT(logged(LM_ERROR), IsEmpty());
  clock.advance(std::chrono::seconds(100));
  EXPECT_TRUE(unit.are_snapshots_ready_to_use(snap_client));
  server.clear_requests();
  EXPECT_TRUE(unit.are_snapshots_ready_to_use(snap_client));
  EXPECT_THAT(server.requests(), IsEmpty());
}

// the verdict

TEST_F(Validation_Unit, VerdictRestsOnTheClaimAndNotOnItsClone) {
  Unit unit("gold", false);
  unit.pvc_clone_.bound_ = true;
  EXPECT_EQ(verdict(unit), CAPABILITY_NONE);
  EXPECT_EQ(config_entry(unit, SC_TYPE_CSI), R"({"gold":{"clone":false,"snapshot":false}})");
  unit.pvc_clone_.bound_ = false;
  unit.pvc_.bound_ = true;
  EXPECT_EQ(verdict(unit), CAPABILITY_CLONE);
  EXPECT_EQ(config_entry(unit, SC_TYPE_CSI), R"({"gold":{"clone":true,"snapshot":false}})");
  unit.pvc_snap_.ready_to_use_ = true;
  EXPECT_EQ(verdict(unit), CAPABILITY_ALL);
  EXPECT_EQ(config_entry(unit, SC_TYPE_CSI), R"({"gold":{"clone":true,"snapshot":true}})");
  unit.pvc_.bound_ = false;
  EXPECT_EQ(verdict(unit), CAPABILITY_SNAP);
}

TEST_F(Validation_Unit, VerdictTakesThePlaceOfAnEarlierOne) {
  Storage_Class_Map scs{{"gold", CAPABILITY_ALL}, {"other", CAPABILITY_SNAP}};
  Unit("gold", false).set_scs_capabilities(scs);
  EXPECT_EQ(scs, (Storage_Class_Map{{"gold", CAPABILITY_NONE}, {"other", CAPABILITY_SNAP}}));
}

TEST_F(Validation_Unit, OtherTypesAreMarkedAbleWithoutATest) {
  const Unit unit("gold", false);
  for (const Storage_Class_Type type : {SC_TYPE_NFS, SC_TYPE_LOCAL, SC_TYPE_UNKNOWN})
    EXPECT_EQ(config_entry(unit, type), R"({"gold":{"clone":true,"snapshot":true}})") << type;
}

TEST_F(Validation_Unit, ConfigEntryDoesNotReplaceOneThatIsThere) {
  Object config{{"gold", "there"}};
  Unit("gold", false).generate_config_entry(config, SC_TYPE_NFS);
  EXPECT_EQ(config, (Object{{"gold", "there"}}));
}

// cleaning

TEST_F(Validation_Unit, CleanOfAClassThatIsNotInTheClusterAsksNothing) {
  Unit unit("gold", false);
  EXPECT_TRUE(clean(unit));
  EXPECT_THAT(server.requests(), IsEmpty());
}

struct Made_Unit : Validation_Unit {
  /// With all its objects made.
  Unit make(const Class_Behaviour& behaviour) {
    Unit unit = unit_of("gold", behaviour);
    before = server.objects();
    EXPECT_TRUE(unit.create_temp_pvc(pvc_client, client));
    unit.clone_temp_pvc(pvc_client);
    EXPECT_TRUE(unit.are_pvcs_and_clone_bound(pvc_client));
    unit.create_snapshot_for_temp_pvc(snap_client, pvc_client);
    EXPECT_TRUE(unit.are_snapshots_ready_to_use(snap_client));
    server.clear_requests();
    return unit;
  }
  std::vector<std::string> deletions() {
    std::vector<std::string> result;
    for (const std::string& request : server.requests())
      if (request.starts_with("DELETE ")) result.push_back(request.substr(7));
    return result;
  }
  std::map<std::string, Value> before;
  const std::string claim = claims + "/claim-of-gold", clone = claim + "-clone",
                    snapshot = snapshots + "/claim-of-gold-snap", copy = classes + "/copy-of-gold";
};

TEST_F(Made_Unit, CleanDeletesClaimCloneSnapshotAndClassInThisOrder) {
  Unit unit = make({.mode = "WaitForFirstConsumer"});
  EXPECT_TRUE(clean(unit));
  EXPECT_THAT(deletions(), ElementsAre(claim, clone, snapshot, copy));
  EXPECT_TRUE(unit.pvc_.deleted_ && unit.pvc_clone_.deleted_ && unit.pvc_snap_.deleted_ && unit.temp_sc_.deleted_);
  EXPECT_EQ(server.objects(), before);
  EXPECT_THAT(logged(LM_ERROR), IsEmpty());
}

TEST_F(Made_Unit, CleanLeavesTheClassItselfAlone) {
  Unit unit = make({});
  EXPECT_TRUE(clean(unit));
  EXPECT_THAT(deletions(), ElementsAre(claim, clone, snapshot));
  EXPECT_EQ(server.objects(), before);
}

TEST_F(Made_Unit, SecondCleanAsksNothing) {
  Unit unit = make({.mode = "WaitForFirstConsumer"});
  EXPECT_TRUE(clean(unit));
  server.clear_requests();
  EXPECT_TRUE(clean(unit));
  EXPECT_THAT(server.requests(), IsEmpty());
}

TEST_F(Made_Unit, EachObjectIsTriedWhateverBecameOfTheOthers) {
  Unit unit = make({.mode = "WaitForFirstConsumer"});
  server.fault = [](std::size_t, const std::string& request) -> std::optional<Exchange_Fault> {
    if (request.starts_with("DELETE ")) return Exchange_Fault{};
    return std::nullopt;
  };
  EXPECT_FALSE(clean(unit));
  EXPECT_THAT(deletions(), ElementsAre(claim, clone, snapshot, copy));
  EXPECT_FALSE(unit.pvc_.deleted_ || unit.pvc_clone_.deleted_ || unit.pvc_snap_.deleted_ || unit.temp_sc_.deleted_);
}

TEST_F(Made_Unit, OnlyWhatWasNotDeletedIsTriedAgain) {
  for (const std::string& stubborn : {claim, clone, snapshot, copy}) {
    Unit unit = make({.mode = "WaitForFirstConsumer"});
    server.fault = [&](std::size_t, const std::string& request) -> std::optional<Exchange_Fault> {
      if (request == "DELETE " + stubborn) return Exchange_Fault{};
      return std::nullopt;
    };
    EXPECT_FALSE(clean(unit));
    server.fault = nullptr;
    server.clear_requests();
    EXPECT_TRUE(clean(unit));
    EXPECT_THAT(server.requests(), ElementsAre("GET " + stubborn, "DELETE " + stubborn, "GET " + stubborn));
    EXPECT_EQ(server.objects(), before) << stubborn;
  }
}

TEST_F(Made_Unit, DeletionLooksTwiceWhetherTheObjectIsGone) {
  Unit unit = make({.gone_sec = never});
  log.clear();
  EXPECT_FALSE(delete_resource(unit.pvc_, pvc_client));
  EXPECT_THAT(server.requests(), ElementsAre("GET " + claim, "DELETE " + claim, "GET " + claim, "GET " + claim));
  EXPECT_THAT(logged(LM_ERROR), ElementsAre(HasSubstr("name claim-of-gold exists after delete\n")));
  EXPECT_FALSE(unit.pvc_.deleted_);
}

// the report

struct Unbound_Report : Validation_Unit {
  Unbound_Report() {
    unit.pvc_.name_ = "abc";
    unit.pvc_clone_.name_ = "abc-clone";
    for (const std::string name : {"abc", "abc-clone"})
      server.add(events_of(name), R"({"items":[{"message":"why )" + name + R"("},{"reason":"no message"}]})");
    server.clear_requests();
  }
  static std::string events_of(const std::string& name) {
    return "/api/v1/namespaces/backup/events/?fieldSelector=involvedObject.name=" + name +
           ",involvedObject.kind=PersistentVolumeClaim";
  }
  std::vector<std::string> report() {
    log.clear();
    unit.report_unbound_pvcs(events);
    std::vector<std::string> lines;
    for (const Log_Line& line : log.lines()) lines.push_back((line.priority == LM_WARNING ? "W " : "E ") + line.text);
    return lines;
  }

  Unit unit = unit_of("gold");
  K8S_Events events{client, "backup"};
};

TEST_F(Unbound_Report, NamesTheClaimAndItsEventsAndNotTheClone) {
  EXPECT_THAT(report(),
              ElementsAre("E why abc\n", "W PVC 'abc' associated with storage class 'gold' is not in bound status.\n"));
  EXPECT_THAT(server.requests(), ElementsAre("GET " + events_of("abc")));
}

TEST_F(Unbound_Report, NamesTheCloneOfABoundClaim) {
  unit.pvc_.bound_ = true;
  EXPECT_THAT(report(),
              ElementsAre("E why abc-clone\n",
                          "W PVC 'abc-clone' associated with storage class 'gold' is not in bound status.\n"));
}

TEST_F(Unbound_Report, IsSilentWhereBothAreBound) {
  unit.pvc_.bound_ = unit.pvc_clone_.bound_ = true;
  EXPECT_THAT(report(), IsEmpty());
  EXPECT_THAT(server.requests(), IsEmpty());
}

TEST_F(Unbound_Report, IsSilentForAClassThatIsNotInTheCluster) {
  unit.sc_exist_on_system_ = false;
  EXPECT_THAT(report(), IsEmpty());
  EXPECT_THAT(server.requests(), IsEmpty());
}

}  // namespace
