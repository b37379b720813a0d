#include "client_io/util.h"
#include "failing_new.h"
#include "fake_data_mover.h"
#include "json_text.h"
#include "k8s/job/k8s_restore_callback.h"
#include "k8s/websvcs_agent/k8s_sclient/drivers.h"
#include "k8s/websvcs_agent/k8s_sclient/k8s_sclient_volume_event_handler.h"
#include "kolt/redact.h"
#include "log_texts.h"
#include "options_text.h"

namespace {

typedef K8S_SClient_Volume_Event_Handler Totals;
using test_support::Log_Capture;

constexpr char good_params[] = R"({
  "minor_resource_id": "R",
  "pool_uuid": "P",
  "host_uuid": "H",
  "seq": 8,
  "incarnation": 2,
  "channel_num": 4,
  "concurrent": 6,
  "access_key": "secret",
  "pool_info": {"url": "dedup://host"},
  "max_seconds_retry": 77,
  "resumption_buffer_size": 4096,
  "server_side_dedup": true,
  "src_rate_limits": [{"start_time": 0, "end_time": 100, "max_bytes_per_second": 4000}]
})";

class Restore_Driver : public ::testing::Test {
 protected:
  Restore_Driver() {
    Fake_Data_Mover::reset();
    Totals::total_size = Totals::processed_size = Totals::set_size = Totals::storage_size = 0;
  }

  bool run() { return mtf_restore("job", "pvc-1", entries, rules, params); }
  void set(const char* key, const std::string& text) { params[key] = json(text); }
  const MTF_BACKUP::Restore_Settings& settings() { return mover.restores.at(0).settings; }
  /// What the storage clients are made with.
  const Client_IO_Base::Options& client() { return mover.channels.at(0).options; }

  Log_Capture log;
  Fake_Data_Mover& mover = Fake_Data_Mover::instance();
  const json_spirit::Array entries = json(R"([{"dir":"/data/pvc-1"}])").get_array();
  const MTF_FS::path_transform_rules rules = {{"/data/pvc-1", "/new/place"}};
  json_spirit::Object params = json_object(good_params);
};

TEST_F(Restore_Driver, RunsOneRestoreUnderTheName) {
  ASSERT_TRUE(run());
  ASSERT_EQ(1u, mover.restores.size());
  EXPECT_EQ("pvc-1", mover.restores[0].name);
  EXPECT_FALSE(mover.restores[0].own_log_callback);
  EXPECT_EQ("", log.all());
}

TEST_F(Restore_Driver, TellsWhatIdentifiesTheSet) {
  run();
  EXPECT_EQ("R", settings().definition_uuid);
  EXPECT_EQ("R", settings().backup_minor_resource_id);
  EXPECT_EQ("P", settings().pool_uuid);
  EXPECT_FALSE(settings().with_setting);
  EXPECT_EQ("H", settings().backup_host_uuid);
  EXPECT_EQ(2u, settings().incarnation);
  EXPECT_EQ(8u, settings().seq);
}

TEST_F(Restore_Driver, PassesParallelismOn) {
  run();
  EXPECT_EQ(4u, settings().channel_num);
  EXPECT_EQ(6u, settings().concurrent);
}

TEST_F(Restore_Driver, SelectionIsTheCallersArray) {
  run();
  EXPECT_EQ(&entries, settings().restore_select);
}

TEST_F(Restore_Driver, GivesTheFilesystemCallbacksOfVolumes) {
  run();
  EXPECT_NE(nullptr, dynamic_cast<K8S_Restore_Callback_Factory*>(settings().callback_factory.get()));
}

TEST_F(Restore_Driver, RestoresToTheRulesTargets) {
  run();
  EXPECT_EQ("/", settings().target_location);
  ASSERT_FALSE(settings().path_converter.null());
  std::string target;
  EXPECT_TRUE(settings().path_converter->convert("/data/pvc-1/a/b", target));
  EXPECT_EQ("/new/place/a/b", target);
}

TEST_F(Restore_Driver, TellsThePathConverterAfterAllThatIdentifiesTheSetAndBeforeTheChannels) {
  run();
  ASSERT_EQ(1u, mover.converters.size());
  EXPECT_EQ(6u, mover.converters[0].settings.concurrent);
  EXPECT_TRUE(mover.converters[0].before_channels);
}

TEST_F(Restore_Driver, WithoutMemoryForThePathConverterTheDataMoverRefuses) {
  const size_t size = Failing_New::largest_size(
      [&] { MTF_FS::create_transform_path_converter("/", rules, false, MTF::IPath_Converter_var()); });
  mover.runs.push_back({.ok = false, .code = MTF::E_FAILED});
  const Failing_New no_memory(size);
  EXPECT_FALSE(run());
  EXPECT_EQ(1, no_memory.count());
  ASSERT_EQ(1u, mover.converters.size());
  EXPECT_TRUE(mover.converters[0].empty);
  EXPECT_EQ(1u, mover.restores.size());
  EXPECT_THAT(log.texts(LM_ERROR), ::testing::ElementsAre("Failed to restore data from storage.\n"));
}

TEST_F(Restore_Driver, SequenceNumberIsCutToThirtyTwoBits) {
  set("seq", "4294967298");
  run();
  EXPECT_EQ(2u, settings().seq);
}

TEST_F(Restore_Driver, SetsTheClientOptions) {
  run();
  EXPECT_EQ(77u, client().max_seconds_retry);
  EXPECT_EQ(4096u, client().resumption_buffer_size);
  EXPECT_EQ(1000u, client().rate_limits.src_rate_limits.at(0).max_bytes_per_second);
  Client_IO_Base::Options expected;
  set_access_key_to_options(expected, "secret");
  EXPECT_EQ(expected.extra_options, client().extra_options);
}

TEST_F(Restore_Driver, ClientOptionsAreTheDataMoversToo) {
  run();
  EXPECT_EQ(options_text(client()), options_text(settings().extra_client_io_opts));
}

TEST_F(Restore_Driver, ServerSideDedupIsNotRead) {
  run();
  EXPECT_FALSE(client().server_side_dedup);
}

TEST_F(Restore_Driver, DedupPoolSetsNoCompression) {
  run();
  EXPECT_EQ(COMPR_NONE, client().compression_method);
}

// As one channel would: no test can tell which of them the driver asked for.
TEST_F(Restore_Driver, NoChannelsLeaveTheRateLimitsAlone) {
  set("channel_num", "0");
  run();
  EXPECT_EQ(4000u, client().rate_limits.src_rate_limits.at(0).max_bytes_per_second);
  EXPECT_EQ(0u, settings().channel_num);
}

TEST_F(Restore_Driver, StorageLiesBelowHostAndResource) {
  run();
  ASSERT_EQ(1u, mover.channels.size());
  EXPECT_EQ("H/R", mover.channels[0].uri_path);
  EXPECT_NE(nullptr, settings().channel_factory);
}

TEST_F(Restore_Driver, EmptyHostUuidIsNotRefused) {
  set("host_uuid", "\"\"");
  EXPECT_TRUE(run());
  EXPECT_EQ("/R", mover.channels.at(0).uri_path);
}

class Missing_Restore_Param : public Restore_Driver, public ::testing::WithParamInterface<const char*> {};

INSTANTIATE_TEST_SUITE_P(Each, Missing_Restore_Param,
                         ::testing::Values("minor_resource_id", "pool_uuid", "host_uuid", "seq", "incarnation",
                                           "channel_num", "concurrent", "access_key", "pool_info", "max_seconds_retry",
                                           "resumption_buffer_size"),
                         [](const auto& info) { return info.param; });

TEST_P(Missing_Restore_Param, FailsWithAllParamsAndTheReasonInTheLog) {
  params.erase(GetParam());
  EXPECT_FALSE(run());
  const std::vector<std::string> errors = log.texts(LM_ERROR);
  ASSERT_EQ(1u, errors.size());
  EXPECT_THAT(errors[0],
              ::testing::StartsWith("Failed to extract restore information from\n" + text_of(params) + "\nerror "));
  EXPECT_THAT(errors[0], ::testing::EndsWith(".\n"));
  EXPECT_EQ(0u, mover.constructed);
}

TEST_P(Missing_Restore_Param, ReasonIsToldBehindParamsLongerThanALine) {
  params.erase(GetParam());
  run();
  set("zeros", "\"" + std::string(10'000, '0') + "\"");
  run();
  const std::vector<std::string> errors = log.texts(LM_ERROR);
  ASSERT_EQ(2u, errors.size());
  const std::string reason = errors[0].substr(errors[0].rfind("\nerror "));
  EXPECT_THAT(reason, ::testing::HasSubstr(GetParam()));
  EXPECT_THAT(errors[1], ::testing::EndsWith("00..." + reason));
}

TEST_P(Missing_Restore_Param, OfAnotherTypeFails) {
  params[GetParam()] = json("[1]");
  EXPECT_FALSE(run());
  EXPECT_EQ(1u, log.texts(LM_ERROR).size());
  EXPECT_EQ(0u, mover.constructed);
}

TEST_F(Restore_Driver, SecretThatIsCutOffIsMaskedAndTheReasonIsNot) {
  set("access_key", "\"" + std::string(10'000, 's') + "\"");
  params.erase("seq");
  EXPECT_FALSE(run());
  const std::string written = redact_secrets(log.texts(LM_ERROR).at(0));
  EXPECT_THAT(written, ::testing::Not(::testing::HasSubstr("sss")));
  EXPECT_THAT(written, ::testing::ContainsRegex("\nerror .*seq.*\\.\n$"));
}

TEST_F(Restore_Driver, WithoutChannelsTheRestoreFails) {
  mover.no_channels = true;
  EXPECT_FALSE(run());
  EXPECT_TRUE(
      is_only_check_failure(log, "k8s/websvcs_agent/k8s_sclient/restore_driver.cpp", "channel_factory is NULL:\n"));
  EXPECT_TRUE(mover.restores.empty());
}

TEST_F(Restore_Driver, WithoutMemoryForTheEventHandlerFailsSilently) {
  const Failing_New no_memory(sizeof(K8S_SClient_Volume_Event_Handler));
  errno = 0;
  EXPECT_FALSE(run());
  EXPECT_EQ(ENOMEM, errno);
  EXPECT_EQ("", log.all());
  EXPECT_EQ(0u, mover.constructed);
}

TEST_F(Restore_Driver, WithoutMemoryForTheCallbacksNoneAreGiven) {
  const Failing_New no_memory(sizeof(K8S_Restore_Callback_Factory));
  run();
  EXPECT_EQ(1, no_memory.count());
  EXPECT_TRUE(settings().callback_factory.null());
}

TEST_F(Restore_Driver, FiguresOfTheRunAreAddedToTheTotals) {
  Totals::processed_size = 3;
  Totals::set_size = 1;
  mover.runs.push_back({.size = 1000, .set_size = 100, .storage_size = 10});
  ASSERT_TRUE(run());
  EXPECT_EQ(1003u, Totals::processed_size);
  EXPECT_EQ(101u, Totals::set_size);
  EXPECT_EQ(0u, Totals::storage_size);
  EXPECT_EQ(0u, Totals::total_size);
}

TEST_F(Restore_Driver, EmptySelectionIsASuccessAndCounts) {
  mover.runs.push_back({.ok = false, .code = MTF::E_NO_FILES_RESTORED, .size = 7, .set_size = 5});
  EXPECT_TRUE(run());
  EXPECT_EQ(7u, Totals::processed_size);
  EXPECT_EQ(5u, Totals::set_size);
  EXPECT_EQ("", log.all());
}

class Restore_Error : public Restore_Driver, public ::testing::WithParamInterface<MTF::Error_Code> {};

INSTANTIATE_TEST_SUITE_P(Each, Restore_Error, ::testing::ValuesIn(error_codes_but(MTF::E_NO_FILES_RESTORED)));

TEST_P(Restore_Error, FailsAndAddsNothing) {
  mover.runs.push_back({.ok = false, .code = GetParam(), .size = 1000, .set_size = 100});
  EXPECT_FALSE(run());
  EXPECT_THAT(log.texts(LM_ERROR), ::testing::ElementsAre("Failed to restore data from storage.\n"));
  EXPECT_EQ(0u, Totals::set_size + Totals::processed_size);
}

}  // namespace
