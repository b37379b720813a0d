// Backups, removals and restores that are killed at random moments, one after the other, in a pool that lives through
// all of them. TESSARIN_KILL_ROUNDS tells how many; TESSARIN_KILL_SEED repeats a run.
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "kolt/pool_info.h"
#include "mtf_backup/test/mover_fixture.h"
#include "support/tree_maker.h"

using namespace mover_test;

namespace {

namespace fs = std::filesystem;
using MTF_BACKUP::Set_Id;

unsigned long long number_from_environment(const char* name, unsigned long long otherwise) {
  const char* value = std::getenv(name);
  return value ? std::strtoull(value, nullptr, 10) : otherwise;
}

/// A pool on the disk, a source that changes from set to set, and a copy of it per set.
class Kill_Rounds : public Mover_Fixture {
 protected:
  typedef std::chrono::microseconds Time;

  Kill_Rounds() {
    Pool_Info pool;
    pool.url = "file://" + (dir_ / "pool");
    factory_ = MTF_BACKUP::make_channel_factory(pool, "host/minor", Client_IO_Base::Options());
    test_support::make_tree(source_, {.files = 150, .bytes = 1'500'000});
  }

  MTF_BACKUP::Set_Store store() const { return MTF_BACKUP::Set_Store(factory_->storage()); }

  bool back_up_next(bool incremental) const {
    MTF::Metadata metadata;
    MTF_Backup backup(MTF::Event_Handler_var(nullptr), metadata, ACE_Log_Msg_Callback_var());
    backup.uuid("set-" + std::to_string(last_seq_ + 1));
    backup.seq(last_seq_);
    backup.incremental(incremental);
    backup.channel_num(2);
    backup.compression(last_seq_ % 2 ? COMPR_ZSTD : COMPR_NONE);
    backup.callback_factory(MTF::IBackup_Callback_Factory_var(new Posix_Backup_Factory));
    backup.channel_factory(factory_);
    backup.add_source(source_);
    return backup.backup("volume");
  }

  bool restore_to_target(const Set_Id& id) const {
    MTF_Restore restore(MTF::Event_Handler_var(nullptr), ACE_Log_Msg_Callback_var());
    restore.seq(id.seq);
    restore.incarnation(id.incarnation);
    restore.concurrent(2);
    restore.path_converter(
        MTF_FS::create_transform_path_converter("/", {{source_, target_}}, false, MTF::IPath_Converter_var(nullptr)));
    restore.callback_factory(MTF::IRestore_Callback_Factory_var(new Posix_Restore_Factory));
    restore.channel_factory(factory_);
    return restore.restore("volume");
  }

  /// Runs it in another process. @param time  after which that is killed; none: never. Whether it ended well.
  static bool run(const std::function<bool()>& work, const Time* time = nullptr) {
    const pid_t child = fork();
    if (child == 0) _exit(work() ? 0 : 1);
    if (time) {
      std::this_thread::sleep_for(*time);
      kill(child, SIGKILL);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
  }

  /// Kills the work at a random moment of the time that it takes.
  bool run_killed(const std::function<bool()>& work, Time whole) {
    const Time moment(static_cast<long>(random_() % static_cast<unsigned long>(whole.count() + 1)));
    const bool ended = run(work, &moment);
    ++(ended ? ended_ : killed_);
    return ended;
  }

  static Time time_of(const std::function<bool()>& work) {
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_TRUE(run(work));
    return std::chrono::duration_cast<Time>(std::chrono::steady_clock::now() - begin);
  }

  std::vector<Set_Id> listed() const {
    std::vector<Set_Id> ids;
    EXPECT_TRUE(store().list([&](const Set_Id& id, const MTF_BACKUP::Commit_Record&) {
      ids.push_back(id);
      return true;
    }));
    return ids;
  }
  bool is_listed(const Set_Id& id) const {
    const std::vector<Set_Id> ids = listed();
    return std::any_of(ids.begin(), ids.end(), [&](const Set_Id& other) { return other.dir() == id.dir(); });
  }

  std::string copy_of(unsigned seq) const { return dir_ / ("copy-" + std::to_string(seq)); }

  /// Files come, change, move and go; what is there then is kept for comparing.
  void change_source() {
    const unsigned next = last_seq_ + 1;
    write("round-" + std::to_string(next), noise(random_() % 50'000, next));
    write("d0/changing", noise(20'000 + random_() % 3, next));
    fs::remove(source_ + "/round-" + std::to_string(next - 3));
    if (next > 2) fs::rename(source_ + "/round-" + std::to_string(next - 1), source_ + "/moved");
    ASSERT_EQ(0, std::system(("cp -a '" + source_ + "' '" + copy_of(next) + "'").c_str()));
  }

  void clear_target() const {
    for (const auto& entry : fs::directory_iterator(target_)) fs::remove_all(entry.path());
  }
  void expect_target(const Set_Id& id) const {
    ASSERT_EQ("", joined(test_support::compare_trees(copy_of(id.seq), target_).differences)) << id.dir();
  }
  void expect_whole(const Set_Id& id) const {
    clear_target();
    ASSERT_TRUE(run([&] { return restore_to_target(id); })) << id.dir();
    expect_target(id);
  }
  void expect_files_whole(unsigned seq) const {
    for (const auto& file : fs::recursive_directory_iterator(target_)) {
      const std::string path = file.path().string();
      if (!fs::is_regular_file(file.symlink_status()) || file.path().filename().string().starts_with(".tessarin-"))
        continue;
      ASSERT_TRUE(test_support::read_file(copy_of(seq) + path.substr(target_.size())) == test_support::read_file(path))
          << path;
    }
  }

  /// Nothing but sets and what belongs to them.
  void expect_no_leftovers() const {
    ASSERT_TRUE(store().sweep());
    const size_t sets = listed().size();
    size_t directories = 0;
    for (const auto& entry : fs::directory_iterator(dir_ / "pool/host/minor/volume")) {
      directories += entry.is_directory();
      ASSERT_TRUE(fs::exists(entry.path() / "commit")) << entry.path();
      for (const auto& object : fs::directory_iterator(entry.path()))
        ASSERT_FALSE(object.path().filename().string().starts_with(".unfinished-")) << object.path();
    }
    ASSERT_EQ(sets, directories);
  }

  /// Makes the newest set younger than its files: what changed less than a minute before it is read again.
  void age_newest() const {
    MTF_BACKUP::Commit_Record record;
    Set_Id id;
    if (!store().find("volume", last_seq_, 0, id, record)) return;  // it was removed
    record.begin_time = std::time(nullptr) + 100;
    ASSERT_TRUE(factory_->storage()->remove(id.dir() + "/commit"));
    ASSERT_TRUE(store().commit(id, record));
  }

  void killed_backup(bool incremental) {
    age_newest();
    change_source();
    const auto work = [&] { return back_up_next(incremental); };
    const bool ended = run_killed(work, backup_time_);
    const Set_Id first{"volume", last_seq_ + 1, 1};
    const bool there = is_listed(first);
    ASSERT_TRUE(there || !ended);
    if (there) sets_.push_back(first);
    // Another one gets the incarnation after the first, or after what that has left.
    ASSERT_TRUE(run(work));
    Set_Id again;
    MTF_BACKUP::Commit_Record record;
    ASSERT_TRUE(store().find("volume", ++last_seq_, 0, again, record));
    ASSERT_TRUE(again.incarnation == 2 || (again.incarnation == 1 && !there));
    sets_.push_back(again);
    if (there) expect_whole(first);
    expect_whole(again);
  }

  /// A set, and those that need it. False where none would be left.
  bool choose_for_removal(std::vector<Set_Id>& going) {
    const Set_Id& chosen = sets_[random_() % sets_.size()];
    EXPECT_TRUE(store().dependents(chosen, going));
    going.push_back(chosen);
    return going.size() < sets_.size();
  }

  void killed_removal(const std::vector<Set_Id>& going) {
    for (const Set_Id& id : going) std::erase_if(sets_, [&](const Set_Id& other) { return other.dir() == id.dir(); });
    const auto work = [&] { return store().remove(going); };
    run_killed(work, std::chrono::microseconds(700 * going.size()));
    for (const Set_Id& id : going)
      if (is_listed(id)) expect_whole(id);
    ASSERT_TRUE(run(work));
    for (const Set_Id& id : going) ASSERT_FALSE(is_listed(id)) << id.dir();
  }

  void killed_restore() {
    const Set_Id id = sets_[random_() % sets_.size()];
    clear_target();
    run_killed([&] { return restore_to_target(id); }, restore_time_);
    expect_files_whole(id.seq);
    ASSERT_TRUE(run([&] { return restore_to_target(id); }));
    expect_target(id);
  }

  MTF_BACKUP::Channel_Factory_var factory_;
  std::mt19937_64 random_;
  unsigned last_seq_ = 0;
  std::vector<Set_Id> sets_;  // that have to be there
  Time backup_time_{0};
  Time restore_time_{0};
  size_t killed_ = 0;
  size_t ended_ = 0;
};

TEST_F(Kill_Rounds, LeaveWholeSetsOnlyAndLoseNone) {
  const unsigned long long seed = number_from_environment("TESSARIN_KILL_SEED", std::random_device()());
  SCOPED_TRACE("seed " + std::to_string(seed));
  random_.seed(seed);
  const unsigned long long rounds = number_from_environment("TESSARIN_KILL_ROUNDS", 24);

  change_source();
  backup_time_ = time_of([&] { return back_up_next(false); });
  sets_.push_back({"volume", ++last_seq_, 1});
  restore_time_ = time_of([&] { return restore_to_target(sets_.front()); });
  size_t full = 0, incremental = 0, removals = 0, restores = 0;
  for (unsigned long long round = 0; round < rounds && !HasFatalFailure(); ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    std::vector<Set_Id> going;
    if (round % 8 == 0 && ++full)
      killed_backup(false);
    else if (round % 2 == 0 && ++incremental)
      killed_backup(true);
    else if (sets_.size() > 8 && choose_for_removal(going) && ++removals)
      killed_removal(going);
    else if (++restores)
      killed_restore();
    for (const Set_Id& id : sets_) ASSERT_TRUE(is_listed(id)) << id.dir() << " is lost";
    expect_whole(sets_[random_() % sets_.size()]);
  }
  for (const Set_Id& id : sets_) expect_whole(id);
  expect_no_leftovers();
  std::printf("%zu full and %zu incremental backups, %zu removals, %zu restores: %zu killed, %zu had ended\n", full,
              incremental, removals, restores, killed_, ended_);
  EXPECT_GT(killed_, 0u);
}

}  // namespace
