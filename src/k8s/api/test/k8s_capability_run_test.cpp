#include <algorithm>
#include <optional>

#include "capability_fixture.h"

namespace {

using json_spirit::Value;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::Gt;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Lt;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;
using namespace test_support;

const std::string start_line =
    "Start to clean up all temporary resources from the storage class capability validation.\n";
const std::string success_line =
    "Successfully clean up all temporary resources from the storage class capability validation.\n";
const std::string failure_line =
    "Failed to clean up all temporary resources, Please clean up them in namespace 'backup' manually.\n";

struct Capability_Run : Capability_Fixture {
  ~Capability_Run() override {
    if (run) end();
  }

  void add_class(const std::string& name, const Class_Behaviour& behaviour = {}) {
    server.add_class(name, behaviour);
    csi[name] = CAPABILITY_NONE;
  }
  bool init(int retry_time_out = 30) {
    before = server.objects();
    run.emplace(client, "backup", retry_time_out);
    return run->init(csi, nfs, local);
  }
  void end() { run.reset(); }
  /// A run from its beginning to its end.
  bool whole_run(int retry_time_out = 30) {
    const bool good = init(retry_time_out) && run->update();
    if (good) run->set_scs_capabilities(csi, nfs, local);
    end();
    return good;
  }
  /// The published document.
  std::string published() const {
    const auto& data = server.at(config_map).get_obj().at("data").get_obj();
    return data.at("config.json").get_str();
  }
  /// Whether all objects are as they were, but for the config map.
  bool nothing_left() const {
    auto now = server.objects();
    now.erase(config_map);
    auto then = before;
    then.erase(config_map);
    return now == then;
  }
  std::vector<std::string> infos_without_retries() const {
    std::vector<std::string> result = logged(LM_INFO);
    std::erase_if(result, [](const std::string& line) { return line.starts_with("Retry("); });
    return result;
  }
  /// Names of classes in the order in which a run takes them.
  std::vector<std::string> order() const {
    std::vector<std::string> names;
    for (const auto& sc : csi) names.push_back(sc.first);
    return names;
  }

  Storage_Class_Map csi, nfs, local;
  std::optional<Storage_Class_Capability_Config> run;
  std::map<std::string, Value> before;
};

// the whole

TEST_F(Capability_Run, OfAClassThatBindsAtOnceMakesTheseRequests) {
  add_class("gold");
  EXPECT_TRUE(whole_run());
  const std::string claim = claims + "/claim-of-gold", clone = claim + "-clone",
                    snapshot = snapshots + "/claim-of-gold-snap";
  EXPECT_THAT(server.requests(), ElementsAre("GET " + classes, "GET " + classes + "/gold",      // listing, mode
                                             "POST " + claims,                                  // claim
                                             "GET " + claim, "POST " + claims,                  // clone
                                             "GET " + claim, "GET " + clone,                    // bound
                                             "GET " + claim, HasSubstr("/persistentvolumes/"),  // snapshot
                                             HasSubstr("/volumesnapshotclasses"), "POST " + snapshots,
                                             "GET " + snapshot,                                  // ready
                                             "GET " + config_map, "POST " + config_maps,         // verdicts
                                             "GET " + claim, "DELETE " + claim, "GET " + claim,  // clean-up
                                             "GET " + clone, "DELETE " + clone, "GET " + clone,  //
                                             "GET " + snapshot, "DELETE " + snapshot, "GET " + snapshot));
  EXPECT_EQ(published(), R"({"csi":{"gold":{"clone":true,"snapshot":true}},"local":{},"nfs":{}})");
  EXPECT_EQ(csi.at("gold"), CAPABILITY_ALL);
  EXPECT_TRUE(nothing_left());
  EXPECT_THAT(clock.sleeps(), IsEmpty());
  EXPECT_THAT(infos_without_retries(), ElementsAre(start_line, success_line));
}

TEST_F(Capability_Run, OfAClassThatWaitsForAConsumerUsesACopyAndRemovesIt) {
  add_class("lazy", {.mode = "WaitForFirstConsumer"});
  EXPECT_TRUE(whole_run());
  EXPECT_EQ(csi.at("lazy"), CAPABILITY_ALL);
  EXPECT_TRUE(nothing_left());
  const std::vector<std::string> requests = server.requests();
  EXPECT_EQ(requests[requests.size() - 2], "DELETE " + classes + "/copy-of-lazy");
}

TEST_F(Capability_Run, WritesTheConfigMapWithoutALabel) {
  add_class("gold");
  EXPECT_TRUE(whole_run());
  const Value config = server.at(config_map);
  EXPECT_EQ(json_spirit::JSON_Dump(config.get_obj().at("metadata"), false).str(),
            R"({"name":"sc-capability-config","namespace":"backup"})");
  EXPECT_EQ(config.get_obj().at("apiVersion"), "v1");
  EXPECT_EQ(config.get_obj().at("data").get_obj().size(), 1u);
}

TEST_F(Capability_Run, ClaimsAreMadeOneByOneEachFollowedByItsClone) {
  for (const char* name : {"a", "b", "c"}) add_class(name);
  EXPECT_TRUE(init());
  std::vector<std::string> expected, posts;
  for (const std::string& name : order()) expected.insert(expected.end(), {"GET " + claims + "/claim-of-" + name});
  const std::vector<std::string> requests = server.requests();
  for (std::size_t i = 1; i + 1 < requests.size(); ++i)
    if (requests[i - 1] == "POST " + claims && requests[i + 1] == "POST " + claims) posts.push_back(requests[i]);
  EXPECT_EQ(posts, expected);
}

// classes that take no part

TEST_F(Capability_Run, WithoutACSIClassStillAsksForTheClassesAndPublishes) {
  nfs = {{"share", CAPABILITY_NONE}};
  local = {{"disk", CAPABILITY_NONE}};
  EXPECT_TRUE(whole_run());
  EXPECT_THAT(server.requests(), ElementsAre("GET " + classes, "GET " + config_map, "POST " + config_maps));
  EXPECT_EQ(published(), R"({"csi":{},"local":{"disk":{"clone":true,"snapshot":true}},)"
                         R"("nfs":{"share":{"clone":true,"snapshot":true}}})");
  EXPECT_EQ(nfs.at("share"), CAPABILITY_NONE);
  EXPECT_EQ(local.at("disk"), CAPABILITY_NONE);
  EXPECT_THAT(clock.sleeps(), IsEmpty());
}

TEST_F(Capability_Run, AClassThatIsNotInTheClusterIsListedAndNothingMore) {
  csi = {{"gone", CAPABILITY_NONE}};
  EXPECT_TRUE(whole_run());
  EXPECT_THAT(server.requests(), ElementsAre("GET " + classes, "GET " + config_map, "POST " + config_maps));
  EXPECT_EQ(published(), R"({"csi":{"gone":{"clone":false,"snapshot":false}},"local":{},"nfs":{}})");
  EXPECT_EQ(csi.at("gone"), CAPABILITY_NONE);
}

// verdicts

TEST_F(Capability_Run, ABoundClaimWithAnUnboundCloneCanBeCloned) {
  add_class("gold", {.clone_bound_sec = never});
  EXPECT_TRUE(whole_run());
  EXPECT_EQ(csi.at("gold"), CAPABILITY_ALL);
  EXPECT_THAT(logged(LM_WARNING), ElementsAre("PVC 'claim-of-gold-clone' associated with storage class 'gold' is not "
                                              "in bound status.\n"));
  EXPECT_TRUE(nothing_left());
}

TEST_F(Capability_Run, ASnapshotThatIsNeverReadyIsReported) {
  add_class("gold", {.ready_sec = never});
  EXPECT_TRUE(whole_run());
  EXPECT_EQ(csi.at("gold"), CAPABILITY_CLONE);
  EXPECT_THAT(logged(LM_WARNING), ElementsAre("The snapshot 'claim-of-gold-snap' associated with storage class 'gold' "
                                              "was not created.\n"));
  EXPECT_TRUE(nothing_left());
}

TEST_F(Capability_Run, AClaimThatNeverBindsGetsNoSnapshot) {
  add_class("gold", {.bound_sec = never});
  EXPECT_TRUE(whole_run());
  EXPECT_EQ(csi.at("gold"), CAPABILITY_NONE);
  EXPECT_THAT(server.requests(), Not(Contains(HasSubstr("-snap"))));
  EXPECT_THAT(logged(LM_WARNING),
              ElementsAre("PVC 'claim-of-gold' associated with storage class 'gold' is not in bound status.\n"));
  EXPECT_TRUE(nothing_left());
}

TEST_F(Capability_Run, AFirstClassThatNeverBindsDeniesThoseBehindIt) {
  for (const char* name : {"a", "b", "c"}) add_class(name);
  const std::vector<std::string> names = order();
  server.add_class(names[0], {.bound_sec = never});
  EXPECT_TRUE(whole_run());
  for (const std::string& name : names) EXPECT_EQ(csi.at(name), CAPABILITY_NONE) << name;
  std::vector<std::string> warnings;
  for (const std::string& name : names)
    warnings.push_back("PVC 'claim-of-" + name + "' associated with storage class '" + name +
                       "' is not in bound status.\n");
  EXPECT_EQ(logged(LM_WARNING), warnings);
  EXPECT_TRUE(nothing_left());
}

TEST_F(Capability_Run, ALastClassThatNeverBindsDeniesNobodyElse) {
  for (const char* name : {"a", "b", "c"}) add_class(name);
  const std::vector<std::string> names = order();
  server.add_class(names[2], {.bound_sec = never});
  EXPECT_TRUE(whole_run());
  EXPECT_EQ(csi.at(names[0]), CAPABILITY_ALL);
  EXPECT_EQ(csi.at(names[1]), CAPABILITY_ALL);
  EXPECT_EQ(csi.at(names[2]), CAPABILITY_NONE);
}

TEST_F(Capability_Run, AClaimThatIsRefusedLetsTheWaitRunToItsLimitAndTheOthersGoOn) {
  for (const char* name : {"a", "b"}) add_class(name);
  const std::vector<std::string> names = order();
  server.add_class(names[1], {.claim_refused = true});
  EXPECT_TRUE(whole_run(90));
  EXPECT_EQ(csi.at(names[0]), CAPABILITY_ALL);
  EXPECT_EQ(csi.at(names[1]), CAPABILITY_NONE);
  EXPECT_GE(slept_sec(), 30);
  EXPECT_THAT(server.requests(), Not(Contains(HasSubstr("claim-of-" + names[1] + "-clone"))));
  EXPECT_THAT(logged(LM_ERROR), Contains("Failed to create pvc claim-of-" + names[1] + ".\n"));
  EXPECT_THAT(logged(LM_WARNING), ElementsAre("PVC 'claim-of-" + names[1] + "' associated with storage class '" +
                                              names[1] + "' is not in bound status.\n"));
  EXPECT_TRUE(nothing_left());
}

TEST_F(Capability_Run, AClassWhoseCopyIsRefusedGetsNeitherClaimNorClone) {
  add_class("lazy", {.mode = "WaitForFirstConsumer"});
  server.fault = [](std::size_t, const std::string& request) -> std::optional<Exchange_Fault> {
    if (request != "POST " + classes) return std::nullopt;
    return Exchange_Fault{403};
  };
  EXPECT_TRUE(whole_run(0));
  EXPECT_EQ(csi.at("lazy"), CAPABILITY_NONE);
  EXPECT_THAT(server.requests(), Not(Contains("POST " + claims)));
  EXPECT_EQ(published(), R"({"csi":{"lazy":{"clone":false,"snapshot":false}},"local":{},"nfs":{}})");
  EXPECT_TRUE(nothing_left());
}

TEST_F(Capability_Run, AClassThatGetsThereLateIsAwaited) {
  add_class("slow", {.bound_sec = 15, .clone_bound_sec = 20, .ready_sec = 15});
  EXPECT_TRUE(whole_run(180));
  EXPECT_EQ(csi.at("slow"), CAPABILITY_ALL);
  EXPECT_THAT(logged(LM_WARNING), IsEmpty());
  EXPECT_THAT(logged(LM_INFO),
              Contains(MatchesRegex("Retry\\(1\\) .*k8s/api/k8s_storage_class_capability_config.cpp:[0-9]+ at 1 "
                                    "second\\(s\\) later.\n")));
}

// the time budget

struct Budget : Capability_Run {
  /// How often the wait for a claim that never binds slept.
  std::size_t rounds(int retry_time_out) {
    add_class("gold", {.bound_sec = never});
    EXPECT_TRUE(init(retry_time_out));
    std::size_t result = 0;
    for (const std::string& line : logged(LM_INFO))
      result += line.find("k8s_storage_class_capability_config.cpp") != std::string::npos;
    return result;
  }
};

TEST_F(Budget, Of0LooksOnceInEachWait) {
  add_class("gold", {.bound_sec = 5, .gone_sec = 5});
  EXPECT_TRUE(whole_run(0));
  EXPECT_EQ(csi.at("gold"), CAPABILITY_NONE);
  const std::string claim = claims + "/claim-of-gold";
  const std::vector<std::string> requests = server.requests();
  // One for the clone, two for the wait; one before and two behind its deletion.
  EXPECT_EQ(std::count(requests.begin(), requests.end(), "GET " + claim), 6);
  EXPECT_EQ(std::count(requests.begin(), requests.end(), "DELETE " + claim), 1);
  EXPECT_THAT(logged(LM_WARNING).back(), failure_line);
}

TEST_F(Budget, From2DownToMinus2IsOneAttempt) {
  for (const int seconds : {2, 1, -1, -2}) {
    log.clear();
    EXPECT_EQ(rounds(seconds), 0u) << seconds;
    end();
  }
}

TEST_F(Budget, OfThreeSecondsIsASecondForEachWait) {
  EXPECT_EQ(rounds(3), 1u);
}

TEST_F(Budget, IsSplitByThree) {
  rounds(180);
  EXPECT_GE(slept_sec(), 60);
  // The last delay may overshoot the limit by its own length, and each look sleeps a second more.
  EXPECT_LT(slept_sec(), 60 + 60 + 20);
}

TEST_F(Budget, OfTheWaitForSnapshotsIsAThirdToo) {
  add_class("gold", {.ready_sec = never});
  EXPECT_TRUE(init(180));
  EXPECT_GE(slept_sec(), 60);
  EXPECT_LT(slept_sec(), 60 + 60 + 20);
}

TEST_F(Budget, WhoseThirdIsMinusOneIsNoBoundButThatOnRounds) {
  for (const int seconds : {-3, -4, -5, -6}) {
    log.clear();
    EXPECT_EQ(rounds(seconds), 100u) << seconds;
    end();
  }
}

// failures of the run

TEST_F(Capability_Run, WithoutAListOfClassesFails) {
  add_class("gold");
  server.fault = [](std::size_t, const std::string&) { return Exchange_Fault{403}; };
  EXPECT_FALSE(init());
  EXPECT_THAT(server.requests(), ElementsAre("GET " + classes));
  EXPECT_EQ(logged(LM_ERROR).back(), "Failed to get all storage classes on system\n");
  end();
  EXPECT_THAT(logged(LM_INFO), ElementsAre(start_line, success_line));
}

TEST_F(Capability_Run, PatchesAConfigMapThatIsThereByItsOneKey) {
  add_class("gold");
  server.add(config_map, R"({"kind":"ConfigMap","data":{"config.json":"old","other":"stays"}})");
  EXPECT_TRUE(init());
  server.clear_requests();
  EXPECT_TRUE(run->update());
  EXPECT_THAT(server.requests(),
              ElementsAre("GET " + config_map, "PATCH(application/strategic-merge-patch+json) " + config_map));
  EXPECT_EQ(
      json_spirit::JSON_Dump(server.sent(), false).str(),
      R"({"data":{"config.json":"{\"csi\":{\"gold\":{\"clone\":true,\"snapshot\":true}},\"local\":{},\"nfs\":{}}"}})");
  EXPECT_EQ(server.at(config_map).get_obj().at("data").get_obj().at("other"), "stays");
}

TEST_F(Capability_Run, MakesAConfigMapWhoseAbsenceIsLogged) {
  EXPECT_TRUE(init());
  log.clear();
  EXPECT_TRUE(run->update());
  EXPECT_THAT(logged(LM_ERROR), ElementsAre(HasSubstr("name sc-capability-config info")));
}

TEST_F(Capability_Run, TakesAConfigMapThatCannotBeReadForAbsent) {
  server.add(config_map, R"({"kind":"ConfigMap","data":{}})");
  EXPECT_TRUE(init());
  server.fault = [](std::size_t, const std::string& request) -> std::optional<Exchange_Fault> {
    if (request != "GET " + config_map) return std::nullopt;
    return Exchange_Fault{500};
  };
  EXPECT_FALSE(run->update());
  EXPECT_EQ(server.requests().back(), "POST " + config_maps);
}

TEST_F(Capability_Run, CleansUpWhenTheVerdictsCannotBePublished) {
  add_class("gold");
  server.fault = [](std::size_t, const std::string& request) -> std::optional<Exchange_Fault> {
    if (request != "POST " + config_maps) return std::nullopt;
    return Exchange_Fault{403};
  };
  EXPECT_FALSE(whole_run());
  EXPECT_TRUE(nothing_left());
  EXPECT_EQ(csi.at("gold"), CAPABILITY_NONE);
  EXPECT_EQ(logged(LM_INFO).back(), success_line);
}

TEST_F(Capability_Run, OfWhichNothingCameIsStillASuccess) {
  add_class("gold", {.claim_refused = true});
  EXPECT_TRUE(init(0));
}

// the clean-up

TEST_F(Capability_Run, CleanUpThatFailedAtFirstIsToldAsFailedThoughNothingRemains) {
  add_class("gold", {.gone_sec = 2});
  EXPECT_TRUE(init());
  log.clear();
  end();
  EXPECT_TRUE(nothing_left());
  EXPECT_THAT(logged(LM_WARNING), ElementsAre(failure_line));
  EXPECT_THAT(infos_without_retries(), ElementsAre(start_line));
  // A third of 30 seconds, beyond which the last delay may go.
  EXPECT_GE(slept_sec(), 10);
  EXPECT_LT(slept_sec(), 30);
}

struct Wait_Ended {};

/// Notes how far the first class is whenever the run waits, and ends one of the waits.
class Ending_Clock : public kolt::Clock {
 public:
  Ending_Clock(kolt::Clock& clock, size_t last) : clock_(clock), last_(last), previous_(kolt::set_clock(this)) {}
  ~Ending_Clock() override { kolt::set_clock(previous_); }

  time_t now() override { return clock_.now(); }
  void sleep(std::chrono::milliseconds span) override {
    clock_.sleep(span);
    if (units_ == nullptr) return;
    const auto& unit = units_->front();
    seen.push_back(unit.pvc_snap_.name_.empty() ? unit.pvc_.name_ : unit.pvc_snap_.name_);
    if (seen.size() == last_) throw Wait_Ended();
  }
  /// Null: ends nothing any more.
  void watch(const Validation_Units* units) { units_ = units; }

  std::vector<std::string> seen;

 private:
  kolt::Clock& clock_;
  const size_t last_;
  kolt::Clock* const previous_;
  const Validation_Units* units_ = nullptr;
};

TEST_F(Capability_Run, ThatAClockEndsInAWaitIsCleanedUp) {
  add_class("gold", {.mode = "WaitForFirstConsumer", .ready_sec = never});
  before = server.objects();
  run.emplace(client, "backup", 30);
  Ending_Clock ending(clock, 3);
  ending.watch(&run->csi_units());
  EXPECT_THROW(run->init(csi, nfs, local), Wait_Ended);
  EXPECT_THAT(ending.seen.back(), EndsWith("-snap"));
  ending.watch(nullptr);
  end();
  EXPECT_TRUE(nothing_left());
  EXPECT_THAT(infos_without_retries(), ElementsAre(start_line, success_line));
  EXPECT_FALSE(server.has(config_map));
}

TEST_F(Capability_Run, CleanUpOfOneClassGoesOnAfterThatOfAnotherFailed) {
  for (const char* name : {"a", "b", "c"}) add_class(name);
  server.add_class(order()[0], {.gone_sec = never});
  EXPECT_TRUE(init(0));
  log.clear();
  end();
  const auto now = server.objects();
  EXPECT_EQ(now.size(), before.size() + 2);  // claim and clone of the first
  EXPECT_TRUE(now.contains(server.real(claims + "/claim-of-" + order()[0])));
  EXPECT_THAT(logged(LM_WARNING), ElementsAre(failure_line));
}

TEST_F(Capability_Run, CleanUpAsksOnlyForWhatIsLeft) {
  add_class("gold", {.gone_sec = 4});
  EXPECT_TRUE(init());
  server.clear_requests();
  end();
  const std::vector<std::string> requests = server.requests();
  EXPECT_EQ(std::count(requests.begin(), requests.end(), "DELETE " + snapshots + "/claim-of-gold-snap"), 1);
  EXPECT_THAT(std::count(requests.begin(), requests.end(), "DELETE " + claims + "/claim-of-gold"), AllOf(Gt(0), Lt(4)));
  EXPECT_TRUE(nothing_left());
}

TEST_F(Capability_Run, CleanUpThatFailsWithoutANamespaceSaysSo) {
  add_class("gold", {.gone_sec = never});
  EXPECT_TRUE(init(0));
  unsetenv("CURRENT_NAMESPACE");
  log.clear();
  end();
  EXPECT_EQ(logged(LM_ERROR).back(), "Cannot retrieve current namespace.");
  EXPECT_THAT(logged(LM_WARNING), IsEmpty());
  EXPECT_THAT(infos_without_retries(), ElementsAre(start_line));
}

TEST_F(Capability_Run, CleanUpFollowsWhicheverWayTheRunEnds) {
  add_class("gold");
  EXPECT_TRUE(init());
  EXPECT_FALSE(nothing_left());
  end();
  EXPECT_TRUE(nothing_left());
}

TEST_F(Capability_Run, OfTwoAtOnceEachRemovesItsOwnObjectsAndNoOthers) {
  add_class("gold");
  ASSERT_TRUE(init());
  const auto with_first = server.objects();
  {
    Storage_Class_Capability_Config second(client, "backup", 30);
    ASSERT_TRUE(second.init(csi, nfs, local));
    EXPECT_EQ(server.objects().size(), with_first.size() + 3);
  }
  EXPECT_EQ(server.objects(), with_first);
  end();
  EXPECT_TRUE(nothing_left());
}

// faults at every request

struct Faulty_Run : Capability_Run {
  /// A run in which the request @a nth goes wrong, from a fresh start. @return whether there was such a request.
  bool run_with(const Exchange_Fault& bad, std::size_t nth) {
    server.reset();
    add_class("gold");
    add_class("lazy", {.mode = "WaitForFirstConsumer"});
    hit.clear();
    server.fault = [&, nth](std::size_t n, const std::string& request) -> std::optional<Exchange_Fault> {
      if (n != nth) return std::nullopt;
      hit = request;
      return bad;
    };
    log.clear();
    initialised = init();
    published_ = initialised && run->update();
    cleaning = hit.empty();
    end();
    return !hit.empty();
  }
  bool told_success() const { return infos_without_retries().back() == success_line; }

  std::string hit;  // the request that went wrong
  bool initialised = false, published_ = false;
  bool cleaning = false;  // it went wrong in the clean-up
};

TEST_F(Faulty_Run, LeavesNothingBehindWhicheverRequestGoesWrong) {
  std::size_t runs = 0;
  for (const Exchange_Fault bad : {Exchange_Fault{500}, Exchange_Fault{409}, Exchange_Fault{0},
                                   Exchange_Fault{500, true}, Exchange_Fault{0, true}}) {
    for (std::size_t n = 1; run_with(bad, n); ++n, ++runs) {
      SCOPED_TRACE(testing::Message() << "status " << bad.status << (bad.carried ? ", carried out" : "") << ", request "
                                      << n << ": " << hit);
      EXPECT_EQ(initialised, hit != "GET " + classes);
      EXPECT_EQ(published_, initialised && hit != "POST " + config_maps);
      EXPECT_EQ(infos_without_retries().front(), start_line);
      EXPECT_NE(told_success(), log.has(LM_WARNING, failure_line));
      if (!cleaning) {
        EXPECT_TRUE(told_success());
      }
      // Without an exchange, an object that is looked for before its deletion counts as gone.
      if (!cleaning || bad.status != 0 || !hit.starts_with("GET ")) {
        EXPECT_TRUE(nothing_left());
      }
    }
  }
  EXPECT_GT(runs, 5u * 40u);
}

}  // namespace
