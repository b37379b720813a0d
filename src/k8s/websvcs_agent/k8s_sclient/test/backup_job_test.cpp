#include <sys/mount.h>

#include "fake_data_mover.h"
#include "json_text.h"
#include "k8s/api/mount_calls.h"
#include "k8s/websvcs_agent/k8s_sclient/k8s_sclient_task_handler.h"
#include "k8s/websvcs_agent/k8s_sclient/k8s_sclient_toolkit.h"
#include "k8s/websvcs_agent/k8s_sclient/k8s_sclient_volume_event_handler.h"
#include "log_texts.h"
#include "volumes_fixture.h"

namespace {

namespace fs = std::filesystem;
typedef K8S_SClient_Volume_Event_Handler Totals;
using test_support::Log_Capture;

constexpr char unit[] = "k8s/websvcs_agent/k8s_sclient/k8s_sclient_task_handler.cpp";

/// Fails one call, counted from 1, with EPERM; all others go to the system.
class Failing_Mount_Calls : public k8s::Mount_Calls {
 public:
  Failing_Mount_Calls(int failing_mount, bool failing_umounts)
      : failing_mount_(failing_mount), failing_umounts_(failing_umounts) {
    install(this);
  }
  ~Failing_Mount_Calls() override { install(nullptr); }

  int mount(const char* src, const char* target, unsigned long flags) override {
    return ++mounts_ == failing_mount_ ? fail() : Mount_Calls::mount(src, target, flags);
  }
  int umount(const char* target, int flags) override {
    return failing_umounts_ ? fail() : Mount_Calls::umount(target, flags);
  }

 private:
  static int fail() {
    errno = EPERM;
    return -1;
  }

  const int failing_mount_;
  const bool failing_umounts_;
  int mounts_ = 0;
};

class Backup_Job : public ::testing::Test {
 protected:
  Backup_Job() {
    Fake_Data_Mover::reset();
    volumes.dir.write("vol-a/file", std::string(100, 'a'));
    volumes.dir.write("vol-a/sub/file", std::string(20, 'a'));
    volumes.dir.write("vol-b/file", std::string(3000, 'b'));
  }
  ~Backup_Job() override {
    for (const std::string& mount : Node_Volumes::mounts()) umount2(mount.c_str(), MNT_DETACH);
    fs::remove_all(k8s::root_directory);
    K8S_SClient_Toolkit::instance()->remove_job_progress("job");
  }

  bool backup(const std::string& paths) { return handler.backup(params(paths), "job", result); }
  static json_spirit::Object params(const std::string& paths) {
    return json_object(R"({
      "paths": )" + paths +
                       R"(,
      "meta": {"pool_uuid": "P", "host_uuid": "H", "uuid": "S"}, "minor_resource_id": "R",
      "opts": {"compression": 3, "compression_level": 5, "channel_num": 4}, "seq": 8, "subtype": "full",
      "max_seconds_retry": 77, "resumption_buffer_size": 4096, "access_key": "secret",
      "pool_info": {"url": "file:///pool"}})");
  }
  std::string both() const { return "[" + volumes.path("vol-a") + "," + volumes.path("vol-b") + "]"; }

  Log_Capture log;
  Node_Volumes volumes;
  Fake_Data_Mover& mover = Fake_Data_Mover::instance();
  K8S_SClient_Task_Handler handler;
  json_spirit::Object result;
};

TEST_F(Backup_Job, EveryVolumeIsBackedUpInOrderUnderTheLastComponentOfItsMountPath) {
  ASSERT_TRUE(backup(both()));
  ASSERT_EQ(2u, mover.backups.size());
  EXPECT_EQ("vol-a", mover.backups[0].name);
  EXPECT_EQ("vol-b", mover.backups[1].name);
  EXPECT_THAT(mover.backups[1].settings.sources, ::testing::ElementsAre(Node_Volumes::bound("vol-b")));
  EXPECT_THAT(log.texts(LM_DEBUG), ::testing::ElementsAre("Backup task 'job' start.\n"));
}

TEST_F(Backup_Job, ResultHoldsTheTotalsOfAllVolumes) {
  mover.runs.push_back({.size = 120, .set_size = 110, .storage_size = 60});
  mover.runs.push_back({.size = 3000, .set_size = 2000, .storage_size = 1000});
  ASSERT_TRUE(backup(both()));
  EXPECT_EQ(text_of(json(R"({"size":3120,"set_size":2110,"storage_size":1060})")), text_of(result));
}

TEST_F(Backup_Job, AllVolumesAreBoundReadOnlyBeforeTheFirstIsMoved) {
  bool seen = false;
  mover.runs.push_back({.during = [&](MTF::Event_Handler&) {
    seen = fs::exists(Node_Volumes::bound("vol-a") + "/file") && fs::exists(Node_Volumes::bound("vol-b") + "/file") &&
           !can_write(Node_Volumes::bound("vol-a")) && !can_write(Node_Volumes::bound("vol-b"));
  }});
  backup(both());
  EXPECT_TRUE(seen);
}

TEST_F(Backup_Job, ProgressRunsOverTheWholeJob) {
  std::vector<std::string> reports;
  const auto report = [&](MTF::Event_Handler& events) {
    events.handle_progress(50, 999, 50, 7);
    const K8S_SClient_Toolkit::Progress progress = K8S_SClient_Toolkit::instance()->get_job_progress("job");
    reports.push_back(std::to_string(progress.processed) + " of " + std::to_string(progress.total));
  };
  mover.runs.push_back({.size = 120, .during = report});
  mover.runs.push_back({.size = 3000, .during = report});
  backup(both());
  EXPECT_THAT(reports, ::testing::ElementsAre("50 of 3120", "170 of 3120"));
}

TEST_F(Backup_Job, NothingIsLeftOnTheNode) {
  ASSERT_TRUE(backup(both()));
  EXPECT_TRUE(Node_Volumes::is_clean());
}

TEST_F(Backup_Job, SourcesAreAsTheyWere) {
  backup(both());
  EXPECT_EQ(std::string(100, 'a'), test_support::read_file(volumes.source("vol-a") + "/file"));
  EXPECT_EQ(std::string(20, 'a'), test_support::read_file(volumes.source("vol-a") + "/sub/file"));
  EXPECT_EQ(std::string(3000, 'b'), test_support::read_file(volumes.source("vol-b") + "/file"));
}

TEST_F(Backup_Job, StartsWithCleanTotalsAndWithoutAPendingCancel) {
  Totals::processed_size = Totals::set_size = Totals::storage_size = 9;
  K8S_SClient_Task_Handler::instance()->set_act_state(JOB_STATE_CANCELING);
  bool canceled = true;
  mover.runs.push_back({.during = [&](MTF::Event_Handler& events) { canceled = events.canceling(); }});
  ASSERT_TRUE(backup("[" + volumes.path("vol-a") + "]"));
  EXPECT_FALSE(canceled);
  EXPECT_EQ(text_of(json(R"({"size":120,"set_size":0,"storage_size":0})")), text_of(result));
}

TEST_F(Backup_Job, CancelInMidRunIsSeenByTheDataMover) {
  bool canceled = false;
  mover.runs.push_back({.ok = false, .code = MTF::E_FAILED, .during = [&](MTF::Event_Handler& events) {
                          K8S_SClient_Task_Handler::instance()->set_act_state(JOB_STATE_CANCELING);
                          canceled = events.canceling();
                        }});
  EXPECT_FALSE(backup(both()));
  EXPECT_TRUE(canceled);
  EXPECT_EQ(1u, mover.backups.size());
  EXPECT_TRUE(Node_Volumes::is_clean());
}

TEST_F(Backup_Job, FailedVolumeEndsTheJobWithoutAResult) {
  mover.runs.push_back({.ok = false, .code = MTF::E_WRITE_TO_STORAGE});
  EXPECT_FALSE(backup(both()));
  EXPECT_EQ(1u, mover.backups.size());
  EXPECT_TRUE(result.empty());
  EXPECT_THAT(log.texts(LM_ERROR), ::testing::ElementsAre("Failed to backup data to storage.\n"));
  EXPECT_TRUE(Node_Volumes::is_clean());
}

TEST_F(Backup_Job, MissingPathsFailBeforeAnythingIsBound) {
  json_spirit::Object bad = params("[]");
  bad.erase("paths");
  EXPECT_FALSE(handler.backup(bad, "job", result));
  EXPECT_THAT(log.texts(LM_ERROR),
              ::testing::ElementsAre("Failed to extract backup information from\n" + text_of(bad) + ".\n"));
  EXPECT_FALSE(fs::exists(k8s::root_directory));
}

TEST_F(Backup_Job, MissingPathsLeaveTheDirectoryOfAnEarlierJobAlone) {
  fs::create_directories(Node_Volumes::bound("left"));
  EXPECT_FALSE(backup("1"));
  EXPECT_TRUE(fs::exists(Node_Volumes::bound("left")));
}

TEST_F(Backup_Job, PathsThatAreNoArrayFail) {
  EXPECT_FALSE(backup("{}"));
  EXPECT_EQ(1u, log.texts(LM_ERROR).size());
}

TEST_F(Backup_Job, EmptyPathsAreASuccessOfSizeZero) {
  ASSERT_TRUE(backup("[]"));
  EXPECT_EQ(text_of(json(R"({"size":0,"set_size":0,"storage_size":0})")), text_of(result));
  EXPECT_TRUE(mover.backups.empty());
  EXPECT_FALSE(fs::exists(k8s::root_directory));
}

TEST_F(Backup_Job, ElementsThatAreNoObjectsArePassedOver) {
  ASSERT_TRUE(backup("[1," + volumes.path("vol-a") + ",\"x\",null]"));
  EXPECT_EQ(1u, mover.backups.size());
  EXPECT_TRUE(log.texts(LM_ERROR).empty());
}

TEST_F(Backup_Job, OnlyTheFirstMatchInSortedOrderIsBound) {
  volumes.dir.write("vol-0/only", "0");
  std::string bound;
  mover.runs.push_back(
      {.during = [&](MTF::Event_Handler&) { bound = test_support::read_file(Node_Volumes::bound("v") + "/only"); }});
  ASSERT_TRUE(backup(R"([{"data_path":")" + volumes.source("vol-*") + R"(","mount_path":")" + Node_Volumes::bound("v") +
                     "\"}]"));
  EXPECT_EQ("0", bound);
  EXPECT_EQ(1u, mover.backups.size());
}

TEST_F(Backup_Job, PatternWithoutAMatchFailsAndUndoesTheBindsMadeSoFar) {
  EXPECT_FALSE(backup("[" + volumes.path("vol-a") + "," + volumes.path("none-*") + "]"));
  EXPECT_THAT(log.texts(LM_ERROR),
              ::testing::ElementsAre("Failed to get backup path " + volumes.source("none-*") + ".\n"));
  EXPECT_TRUE(mover.backups.empty());
  EXPECT_TRUE(Node_Volumes::is_clean());
}

struct Bad_Path {
  const char* name;
  const char* element;
  const char* failure;
};

class Bad_Volume : public Backup_Job, public ::testing::WithParamInterface<Bad_Path> {};

INSTANTIATE_TEST_SUITE_P(
    Each, Bad_Volume,
    ::testing::Values(
        Bad_Path{"NoDataPath", R"({"mount_path":"/m"})", "data_path is NULL or empty:\n"},
        Bad_Path{"EmptyDataPath", R"({"data_path":"","mount_path":"/m"})", "data_path is NULL or empty:\n"},
        Bad_Path{"DataPathOfAnotherType", R"({"data_path":1,"mount_path":"/m"})", "data_path is NULL or empty:\n"},
        Bad_Path{"NoMountPath", R"({"data_path":"/d"})", "mount_path is NULL or empty:\n"},
        Bad_Path{"EmptyMountPath", R"({"data_path":"/d","mount_path":""})", "mount_path is NULL or empty:\n"},
        Bad_Path{"NeitherPath", "{}", "data_path is NULL or empty:\n"}),
    [](const auto& info) { return info.param.name; });

TEST_P(Bad_Volume, FailsTheJobAndUndoesTheBindsMadeSoFar) {
  EXPECT_FALSE(backup("[" + volumes.path("vol-a") + "," + GetParam().element + "]"));
  EXPECT_TRUE(is_only_check_failure(log, unit, GetParam().failure)) << log.all();
  EXPECT_TRUE(mover.backups.empty());
  EXPECT_TRUE(Node_Volumes::is_clean());
}

TEST_F(Backup_Job, FailedBindFailsTheJob) {
  const Failing_Mount_Calls system(3, false);
  EXPECT_FALSE(backup(both()));
  EXPECT_THAT(log.texts(LM_ERROR), ::testing::ElementsAre("Failed to mount data directory '" + volumes.source("vol-b") +
                                                          "' to '" + Node_Volumes::bound("vol-b") + "'.\n"));
  EXPECT_TRUE(mover.backups.empty());
  EXPECT_TRUE(Node_Volumes::is_clean());
}

TEST_F(Backup_Job, BindWhoseRemountFailedIsTakenDown) {
  const Failing_Mount_Calls system(2, false);
  EXPECT_FALSE(backup(both()));
  EXPECT_TRUE(Node_Volumes::is_clean());
  EXPECT_TRUE(fs::exists(volumes.source("vol-a") + "/file"));
}

TEST_F(Backup_Job, FailedUnmountChangesNothingForTheJobAndNothingInTheSource) {
  const Failing_Mount_Calls system(0, true);
  EXPECT_TRUE(backup(both()));
  EXPECT_EQ(2u, Node_Volumes::mounts().size());
  EXPECT_EQ(3120u, result["size"].get_uint64());
  EXPECT_TRUE(fs::exists(volumes.source("vol-a") + "/sub/file"));
  EXPECT_TRUE(fs::exists(volumes.source("vol-b") + "/file"));
}

TEST_F(Backup_Job, BindKeptBusyIsDetachedAndItsSourceStays) {
  int fd = -1;
  mover.runs.push_back({.during = [&](MTF::Event_Handler&) {
    fd = open((Node_Volumes::bound("vol-a") + "/sub").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  }});
  EXPECT_TRUE(backup(both()));
  EXPECT_TRUE(Node_Volumes::is_clean());
  EXPECT_EQ(0, faccessat(fd, "file", R_OK, 0));
  close(fd);
}

TEST_F(Backup_Job, MountInsideAVolumeSurvivesTheJob) {
  const std::string inner = volumes.source("vol-a") + "/sub";
  ASSERT_EQ(0, mount("tmpfs", inner.c_str(), "tmpfs", 0, nullptr));
  std::ofstream(inner + "/inner") << "inner";
  bool writable = true;
  mover.runs.push_back(
      {.during = [&](MTF::Event_Handler&) { writable = can_write(Node_Volumes::bound("vol-a") + "/sub"); }});
  EXPECT_TRUE(backup(both()));
  EXPECT_FALSE(writable);
  EXPECT_EQ("inner", test_support::read_file(inner + "/inner"));
  EXPECT_TRUE(Node_Volumes::is_clean());
  umount2(inner.c_str(), MNT_DETACH);
}

TEST_F(Backup_Job, ExceptionInMidJobLeavesItWithTheBindsUndone) {
  mover.runs.push_back({.during = [](MTF::Event_Handler&) { throw std::runtime_error("broken"); }});
  EXPECT_THROW(backup(both()), std::runtime_error);
  EXPECT_TRUE(Node_Volumes::is_clean());
}

TEST_F(Backup_Job, MountPathBelowAChildIsNotUnmountedAndItsSourceStays) {
  const std::string deep = Node_Volumes::bound("p") + "/vol-a";
  EXPECT_TRUE(backup(R"([{"data_path":")" + volumes.source("vol-a") + R"(","mount_path":")" + deep + "\"}]"));
  EXPECT_THAT(Node_Volumes::mounts(), ::testing::ElementsAre(deep));
  EXPECT_TRUE(fs::exists(volumes.source("vol-a") + "/file"));
}

}  // namespace
