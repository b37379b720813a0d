#include "client_io/util.h"
#include "failing_new.h"
#include "fake_data_mover.h"
#include "json_text.h"
#include "k8s/job/k8s_backup_callback.h"
#include "k8s/websvcs_agent/k8s_sclient/drivers.h"
#include "k8s/websvcs_agent/k8s_sclient/k8s_sclient_toolkit.h"
#include "k8s/websvcs_agent/k8s_sclient/k8s_sclient_volume_event_handler.h"
#include "kolt/pool_info.h"
#include "log_texts.h"
#include "mtf/core/metadata.h"
#include "mtf_backup/mtf_backup.h"
#include "options_text.h"

namespace {

typedef K8S_SClient_Volume_Event_Handler Totals;
using test_support::Log_Capture;

constexpr char good_params[] = R"({
  "meta": {"pool_uuid": "P", "host_uuid": "H", "uuid": "S", "extra": 1},
  "minor_resource_id": "R",
  "opts": {"compression": 3, "compression_level": 5, "channel_num": 4},
  "seq": 8,
  "subtype": "full",
  "max_seconds_retry": 77,
  "resumption_buffer_size": 4096,
  "access_key": "secret",
  "pool_info": {"url": "file:///pool"},
  "dest_rate_limits": [{"start_time": 0, "end_time": 100, "max_bytes_per_second": 4000}]
})";

class Backup_Driver : public ::testing::Test {
 protected:
  Backup_Driver() {
    Fake_Data_Mover::reset();
    Totals::total_size = Totals::processed_size = Totals::set_size = Totals::storage_size = 0;
  }

  bool run() { return mtf_backup("job", "pvc-1", "/data/pvc-1", params); }
  void set(const char* key, const std::string& text) { params[key] = json(text); }
  void set_opt(const char* key, const std::string& text) { params["opts"].get_obj()[key] = json(text); }
  const MTF_BACKUP::Backup_Settings& settings() { return mover.backups.at(0).settings; }
  /// What the storage clients are made with.
  const Client_IO_Base::Options& client() { return mover.channels.at(0).options; }

  Log_Capture log;
  Fake_Data_Mover& mover = Fake_Data_Mover::instance();
  json_spirit::Object params = json_object(good_params);
};

TEST_F(Backup_Driver, RunsOneBackupOfThePathUnderTheName) {
  ASSERT_TRUE(run());
  ASSERT_EQ(1u, mover.backups.size());
  EXPECT_EQ("pvc-1", mover.backups[0].name);
  EXPECT_THAT(settings().sources, ::testing::ElementsAre("/data/pvc-1"));
  EXPECT_EQ("", log.all());
}

TEST_F(Backup_Driver, TellsWhatIdentifiesTheSet) {
  run();
  EXPECT_EQ("P", settings().pool_uuid);
  EXPECT_EQ("H", settings().host_uuid);
  EXPECT_EQ("S", settings().uuid);
  EXPECT_EQ("R", settings().minor_resource_id);
}

TEST_F(Backup_Driver, HandsTheWholeMetadataOver) {
  run();
  EXPECT_EQ(text_of(params["meta"]), text_of(mover.backups[0].meta));
  EXPECT_FALSE(mover.backups[0].own_log_callback);
}

TEST_F(Backup_Driver, PassesCompressionAndChannelsOn) {
  run();
  EXPECT_EQ(3, settings().compression);
  EXPECT_EQ(5, settings().compression_level);
  EXPECT_EQ(4u, settings().channel_num);
}

TEST_F(Backup_Driver, GivesTheFilesystemCallbacksOfVolumes) {
  run();
  EXPECT_NE(nullptr, dynamic_cast<K8S_Backup_Callback_Factory*>(settings().callback_factory.get()));
}

TEST_F(Backup_Driver, SequenceNumberIsOneLess) {
  run();
  EXPECT_EQ(7u, settings().seq);
}

TEST_F(Backup_Driver, SequenceNumberZeroWrapsAround) {
  set("seq", "0");
  run();
  EXPECT_EQ(0xFFFFFFFFu, settings().seq);
}

TEST_F(Backup_Driver, SequenceNumberIsCutToThirtyTwoBits) {
  set("seq", "4294967296");
  run();
  EXPECT_EQ(0xFFFFFFFFu, settings().seq);
}

TEST_F(Backup_Driver, SmallestSequenceNumberIsCutToo) {
  set("seq", "-9223372036854775808");
  run();
  EXPECT_EQ(0xFFFFFFFFu, settings().seq);
}

TEST_F(Backup_Driver, FullSubtypeIsNotIncremental) {
  run();
  EXPECT_FALSE(settings().incremental);
}

TEST_F(Backup_Driver, IncrementalSubtypeIsIncremental) {
  set("subtype", "\"incremental\"");
  run();
  EXPECT_TRUE(settings().incremental);
}

TEST_F(Backup_Driver, DifferentialSubtypeIsFull) {
  set("subtype", "\"differential\"");
  run();
  EXPECT_FALSE(settings().incremental);
}

TEST_F(Backup_Driver, UnknownSubtypeIsFull) {
  set("subtype", "\"never heard of\"");
  EXPECT_TRUE(run());
  EXPECT_FALSE(settings().incremental);
}

TEST_F(Backup_Driver, SetsTheClientOptions) {
  run();
  EXPECT_EQ(77u, client().max_seconds_retry);
  EXPECT_EQ(4096u, client().resumption_buffer_size);
  EXPECT_FALSE(client().server_side_dedup);
}

TEST_F(Backup_Driver, ClientOptionsAreTheDataMoversToo) {
  set("server_side_dedup", "true");
  set("pool_info", R"({"url":"dedup://host"})");
  run();
  EXPECT_EQ(options_text(client()), options_text(settings().extra_client_io_opts));
}

TEST_F(Backup_Driver, ServerSideDedupIsPassedOn) {
  set("server_side_dedup", "true");
  run();
  EXPECT_TRUE(client().server_side_dedup);
}

TEST_F(Backup_Driver, ServerSideDedupOfAnotherTypeIsNone) {
  set("server_side_dedup", "\"true\"");
  EXPECT_TRUE(run());
  EXPECT_FALSE(client().server_side_dedup);
}

TEST_F(Backup_Driver, AccessKeyTravelsAsAHeader) {
  run();
  Client_IO_Base::Options expected;
  set_access_key_to_options(expected, "secret");
  EXPECT_EQ(1u, client().extra_options.size());
  EXPECT_EQ(expected.extra_options, client().extra_options);
  EXPECT_EQ("", client().access_key);
}

TEST_F(Backup_Driver, RateLimitsAreDividedAmongTheChannels) {
  run();
  ASSERT_EQ(1u, client().rate_limits.dest_rate_limits.size());
  EXPECT_EQ(1000u, client().rate_limits.dest_rate_limits[0].max_bytes_per_second);
}

// None and one share the limits out alike, so that no test can tell which of them the driver asked for.
TEST_F(Backup_Driver, NoChannelsCountAsOneForTheRateLimitsOnly) {
  set_opt("channel_num", "0");
  run();
  EXPECT_EQ(4000u, client().rate_limits.dest_rate_limits.at(0).max_bytes_per_second);
  EXPECT_EQ(0u, settings().channel_num);
}

TEST_F(Backup_Driver, ChannelsBeyondAnIntAreCutForTheRateLimitsOnly) {
  set_opt("channel_num", "4294967296");
  run();
  EXPECT_EQ(4000u, client().rate_limits.dest_rate_limits.at(0).max_bytes_per_second);
  EXPECT_EQ(4294967296u, settings().channel_num);
}

TEST_F(Backup_Driver, ChannelsThatBecomeNegativeCountAsOne) {
  set_opt("channel_num", "2147483648");
  run();
  EXPECT_EQ(4000u, client().rate_limits.dest_rate_limits.at(0).max_bytes_per_second);
}

TEST_F(Backup_Driver, BrokenRateWindowDoesNotFailTheVolume) {
  set("dest_rate_limits", R"([{"start_time": 0, "end_time": 9, "max_bytes_per_second": 400}, "x"])");
  EXPECT_TRUE(run());
  EXPECT_EQ(1u, client().rate_limits.dest_rate_limits.size());
}

TEST_F(Backup_Driver, StorageLiesBelowHostAndResource) {
  run();
  ASSERT_EQ(1u, mover.channels.size());
  EXPECT_EQ("H/R", mover.channels[0].uri_path);
  EXPECT_EQ("file:///pool", mover.channels[0].pool_url);
  EXPECT_NE(nullptr, settings().channel_factory);
}

class Dedup_Pool : public Backup_Driver, public ::testing::WithParamInterface<const char*> {};

INSTANTIATE_TEST_SUITE_P(Each, Dedup_Pool, ::testing::Values("dedup://", "dedups://", "ws://", "wss://"));

TEST_P(Dedup_Pool, MovesTheCompressionToTheClient) {
  set("pool_info", std::string(R"({"url":")") + GetParam() + "host\"}");
  run();
  EXPECT_EQ(0, settings().compression);
  EXPECT_EQ(0, settings().compression_level);
  EXPECT_EQ(COMPR_ZSTD, client().compression_method);
  EXPECT_EQ(5, client().compression_level);
}

TEST_F(Backup_Driver, OtherPoolKeepsTheCompressionWithTheDataMover) {
  run();
  EXPECT_EQ(COMPR_NONE, client().compression_method);
  EXPECT_EQ(0, client().compression_level);
}

TEST_F(Backup_Driver, DedupPoolInCapitalsIsNone) {
  set("pool_info", R"({"url":"DEDUP://host"})");
  run();
  EXPECT_EQ(3, settings().compression);
}

class Missing_Backup_Param : public Backup_Driver, public ::testing::WithParamInterface<const char*> {};

INSTANTIATE_TEST_SUITE_P(Each, Missing_Backup_Param,
                         ::testing::Values("meta", "minor_resource_id", "opts", "seq", "subtype", "max_seconds_retry",
                                           "resumption_buffer_size", "access_key", "pool_info"),
                         [](const auto& info) { return info.param; });

TEST_P(Missing_Backup_Param, FailsTheVolumeWithAllParamsInTheLog) {
  params.erase(GetParam());
  EXPECT_FALSE(run());
  EXPECT_THAT(log.texts(LM_ERROR),
              ::testing::ElementsAre("Failed to extract backup information from\n" + text_of(params) + ".\n"));
  EXPECT_EQ(0u, mover.constructed);
}

TEST_P(Missing_Backup_Param, OfAnotherTypeFailsTheVolume) {
  params[GetParam()] = json("[1]");
  EXPECT_FALSE(run());
  EXPECT_EQ(1u, log.texts(LM_ERROR).size());
  EXPECT_EQ(0u, mover.constructed);
}

TEST_F(Backup_Driver, MetaWithoutSetUuidFailsWithoutALineEnd) {
  params["meta"].get_obj().erase("uuid");
  EXPECT_FALSE(run());
  EXPECT_THAT(log.texts(LM_ERROR), ::testing::ElementsAre("Failed to get pool_uuid, host_uuid or set uuid"));
  EXPECT_TRUE(mover.backups.empty());
}

TEST_F(Backup_Driver, MetaWithoutPoolUuidFails) {
  params["meta"].get_obj().erase("pool_uuid");
  EXPECT_FALSE(run());
  EXPECT_THAT(log.texts(LM_ERROR), ::testing::ElementsAre("Failed to get pool_uuid, host_uuid or set uuid"));
}

TEST_F(Backup_Driver, MetaWithoutHostUuidFails) {
  params["meta"].get_obj().erase("host_uuid");
  EXPECT_FALSE(run());
  EXPECT_THAT(log.texts(LM_ERROR), ::testing::ElementsAre("Failed to get pool_uuid, host_uuid or set uuid"));
}

class Missing_Opt : public Backup_Driver, public ::testing::WithParamInterface<const char*> {};

INSTANTIATE_TEST_SUITE_P(Each, Missing_Opt, ::testing::Values("compression", "compression_level", "channel_num"),
                         [](const auto& info) { return info.param; });

TEST_P(Missing_Opt, FailsTheVolume) {
  params["opts"].get_obj().erase(GetParam());
  EXPECT_FALSE(run());
  const std::vector<std::string> errors = log.texts(LM_ERROR);
  ASSERT_EQ(1u, errors.size());
  EXPECT_THAT(errors[0], ::testing::StartsWith("Failed to extract backup options, err "));
  EXPECT_THAT(errors[0], ::testing::EndsWith(".\n"));
  EXPECT_TRUE(mover.backups.empty());
}

TEST_F(Backup_Driver, WithoutChannelsTheVolumeFails) {
  mover.no_channels = true;
  EXPECT_FALSE(run());
  EXPECT_TRUE(
      is_only_check_failure(log, "k8s/websvcs_agent/k8s_sclient/backup_driver.cpp", "channel_factory is NULL:\n"));
  EXPECT_TRUE(mover.backups.empty());
}

TEST_F(Backup_Driver, WithoutMemoryForTheEventHandlerFailsSilently) {
  const Failing_New no_memory(sizeof(K8S_SClient_Volume_Event_Handler));
  errno = 0;
  EXPECT_FALSE(run());
  EXPECT_EQ(ENOMEM, errno);
  EXPECT_EQ("", log.all());
  EXPECT_EQ(0u, mover.constructed);
}

TEST_F(Backup_Driver, WithoutMemoryForTheCallbacksNoneAreGiven) {
  const Failing_New no_memory(sizeof(K8S_Backup_Callback_Factory));
  run();
  EXPECT_EQ(1, no_memory.count());
  EXPECT_TRUE(settings().callback_factory.null());
}

TEST_F(Backup_Driver, FiguresOfTheRunAreAddedToTheTotals) {
  Totals::set_size = 1;
  Totals::storage_size = 2;
  Totals::processed_size = 3;
  Totals::total_size = 4;
  mover.runs.push_back({.size = 1000, .set_size = 100, .storage_size = 10});
  ASSERT_TRUE(run());
  EXPECT_EQ(101u, Totals::set_size);
  EXPECT_EQ(12u, Totals::storage_size);
  EXPECT_EQ(1003u, Totals::processed_size);
  EXPECT_EQ(4u, Totals::total_size);
}

TEST_F(Backup_Driver, VolumeWithNothingToBackUpIsASuccessAndCounts) {
  mover.runs.push_back({.ok = false, .code = MTF::E_NO_FILES_BACKUPED, .size = 0, .set_size = 0, .storage_size = 10});
  EXPECT_TRUE(run());
  EXPECT_EQ(10u, Totals::storage_size);
  EXPECT_EQ("", log.all());
}

class Backup_Error : public Backup_Driver, public ::testing::WithParamInterface<MTF::Error_Code> {};

INSTANTIATE_TEST_SUITE_P(Each, Backup_Error, ::testing::ValuesIn(error_codes_but(MTF::E_NO_FILES_BACKUPED)));

TEST_P(Backup_Error, FailsTheVolumeAndAddsNothing) {
  mover.runs.push_back({.ok = false, .code = GetParam(), .size = 1000, .set_size = 100, .storage_size = 10});
  EXPECT_FALSE(run());
  EXPECT_THAT(log.texts(LM_ERROR), ::testing::ElementsAre("Failed to backup data to storage.\n"));
  EXPECT_EQ(0u, Totals::set_size + Totals::storage_size + Totals::processed_size);
}

TEST_F(Backup_Driver, RunReportsUnderTheJobId) {
  mover.runs.push_back({.during = [](MTF::Event_Handler& events) { events.handle_progress(1, 10, 5, 2); }});
  run();
  EXPECT_EQ(5u, K8S_SClient_Toolkit::instance()->get_job_progress("job").processed);
  K8S_SClient_Toolkit::instance()->remove_job_progress("job");
}

TEST(Build_MTF_Metadata, SetsABackupUp) {
  MTF::Metadata meta(json_object(R"({"pool_uuid":"P","host_uuid":"H","uuid":"S"})"));
  MTF_Backup bak(MTF::Event_Handler_var(), meta, ACE_Log_Msg_Callback_var());
  bak.incremental(true);
  ASSERT_TRUE(build_mtf_metadata(meta, "R", json_object(R"({"compression":1,"compression_level":2,"channel_num":3})"),
                                 Pool_Info(), 1, bak));
  EXPECT_FALSE(bak.settings().incremental);
  EXPECT_EQ(1, bak.settings().compression);
  EXPECT_EQ(0u, bak.settings().seq);
}

}  // namespace
