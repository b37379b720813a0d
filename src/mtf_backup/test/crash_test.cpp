#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "kolt/pool_info.h"
#include "mtf_backup/test/mover_fixture.h"
#include "support/tree_maker.h"

using namespace mover_test;

namespace {

/// Runs that die, with a pool on the disk.
class Killed_Run : public Mover_Fixture {
 protected:
  Killed_Run() {
    Pool_Info pool;
    pool.url = "file://" + (dir_ / "pool");
    factory_ = MTF_BACKUP::make_channel_factory(pool, "host/minor", Client_IO_Base::Options());
    test_support::make_tree(source_, {.files = 300, .bytes = 3'000'000});
  }

  bool run_backup(const Hook& hook = Hook()) {
    MTF::Metadata metadata;
    MTF_Backup backup(MTF::Event_Handler_var(nullptr), metadata, ACE_Log_Msg_Callback_var());
    backup.uuid("set-uuid");
    backup.channel_num(2);
    backup.compression(COMPR_ZSTD);
    backup.callback_factory(MTF::IBackup_Callback_Factory_var(new Posix_Backup_Factory(hook)));
    backup.channel_factory(factory_);
    backup.add_source(source_);
    return backup.backup("volume");
  }
  bool run_restore(const Hook& hook = Hook()) {
    MTF_Restore restore(MTF::Event_Handler_var(nullptr), ACE_Log_Msg_Callback_var());
    restore.seq(1);
    restore.concurrent(3);
    restore.path_converter(
        MTF_FS::create_transform_path_converter("/", {{source_, target_}}, false, MTF::IPath_Converter_var(nullptr)));
    restore.callback_factory(MTF::IRestore_Callback_Factory_var(new Posix_Restore_Factory(hook)));
    restore.channel_factory(factory_);
    return restore.restore("volume");
  }

  /// Runs it in another process and kills that after some time. Whether it had ended by itself.
  static bool killed_after(std::chrono::microseconds time, const std::function<bool()>& run) {
    const pid_t child = fork();
    if (child == 0) _exit(run() ? 0 : 1);
    std::this_thread::sleep_for(time);
    kill(child, SIGKILL);
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status);
  }

  size_t set_count() {
    size_t count = 0;
    EXPECT_TRUE(MTF_BACKUP::Set_Store(factory_->storage()).list([&](const auto&, const auto&) {
      ++count;
      return true;
    }));
    return count;
  }

  MTF_BACKUP::Channel_Factory_var factory_;
};

TEST_F(Killed_Run, BackupKilledAtAnyMomentLeavesWholeSetsOnly) {
  size_t ended = 0;
  for (int moment = 0; moment < 20; ++moment) {
    ended += killed_after(std::chrono::milliseconds(3 * moment), [this] { return run_backup(); });
    EXPECT_LE(set_count(), static_cast<size_t>(moment) + 1);
    EXPECT_GE(set_count(), ended);
  }
  const size_t before = set_count();
  ASSERT_TRUE(run_backup());
  EXPECT_EQ(before + 1, set_count());
  // What the dead ones left is gone: every directory of the pool is that of a set.
  size_t directories = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(dir_ / "pool/host/minor/volume"))
    directories += entry.is_directory();
  EXPECT_EQ(before + 1, directories);
  ASSERT_TRUE(run_restore());
  EXPECT_EQ("", differences());
}

TEST_F(Killed_Run, RestoreKilledAtAnyMomentConvergesWhenItIsRunAgain) {
  ASSERT_TRUE(run_backup());
  for (int moment = 0; moment < 20; ++moment) {
    killed_after(std::chrono::milliseconds(2 * moment), [this] { return run_restore(); });
    for (const auto& file : std::filesystem::recursive_directory_iterator(target_)) {
      const std::string name = file.path().filename().string();
      if (!std::filesystem::is_regular_file(file.symlink_status()) || name.starts_with(".tessarin-")) continue;
      const std::string path = file.path().string();
      // A file that stands under its name is whole.
      ASSERT_EQ(test_support::read_file(source_ + path.substr(target_.size())), test_support::read_file(path));
    }
  }
  // What the dead ones left is gone, which the comparison sees.
  ASSERT_TRUE(run_restore());
  EXPECT_EQ("", differences());
}

TEST_F(Killed_Run, TwoRestoresIntoOneTargetDoNotHarmEachOther) {
  std::filesystem::remove_all(source_);
  for (int i = 0; i < 400; ++i) write("d" + std::to_string(i % 5) + "/f" + std::to_string(i), noise(500, i));
  ASSERT_TRUE(run_backup());
  for (int round = 0; round < 5; ++round) {
    bool other = false;
    std::thread thread([&] { other = run_restore(); });
    EXPECT_TRUE(run_restore());
    thread.join();
    EXPECT_TRUE(other);
  }
  // The last one has set the times.
  ASSERT_TRUE(run_restore());
  EXPECT_EQ("", differences());
}

// What a run may take at its peak, in MiB. Sanitizers keep freed memory and shadows of their own: with them the bound
// still tells a run that holds a file from one that does not.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr long peak_bound = 512;
#else
constexpr long peak_bound = 100;
#endif

/// In MiB, of a run in a process of its own.
long peak_of(const std::function<bool()>& run) {
  const pid_t child = fork();
  if (child == 0) _exit(run() ? 0 : 1);
  int status = 0;
  rusage used{};
  wait4(child, &status, 0, &used);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  return used.ru_maxrss / 1024;
}

TEST_F(Killed_Run, LargeFileIsMovedInBoundedMemory) {
  ASSERT_EQ(0, truncate(write("large", "").c_str(), off_t(1) << 30));
  EXPECT_LT(peak_of([this] { return run_backup(without_holes); }), peak_bound);
  EXPECT_LT(peak_of([this] { return run_restore(without_holes); }), peak_bound);
}

TEST_F(Killed_Run, FileOfManyPiecesIsMovedInBoundedMemory) {
  const std::string piece = noise(200);
  const int fd = open(write("pieces", "").c_str(), O_WRONLY);
  for (off_t i = 0; i < 30'000; ++i) ASSERT_EQ(200, pwrite(fd, piece.data(), piece.size(), i * 8192));
  close(fd);
  EXPECT_LT(peak_of([this] { return run_backup(); }), peak_bound);
  EXPECT_LT(peak_of([this] { return run_restore(); }), peak_bound);
  EXPECT_EQ("", differences());
}

}  // namespace
